// Resource files: round trips, the exact bytes written, damaged files, atomic replacement.
#include "host/resource_file.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <functional>

#include "host_test_support.h"

namespace {

using namespace vellux::rsc;
using namespace host_test;

std::string ParseError(const Bytes& bytes) {
    try {
        ParseResourceFile(bytes);
    } catch (const ResourceFileError& error) {
        return error.what();
    }
    return "(parsed)";
}

TEST(ResourceFile, RoundTripsAndReserialisesByteForByte) {
    ResourceFile many = SampleFile();   // and thousands more, types interleaved, sizes from 0 up
    for (int i = 0; i < 3000; ++i)
        many.resources.push_back(Res(i % 3 == 0 ? "AAAA" : i % 3 == 1 ? "\x01\x02\xFE\xFF" : "RING", int16_t(i + 3),
                                     Bytes(size_t(i % 37), uint8_t(i)), i % 4 ? std::nullopt : std::optional(std::string(i % 61, 'x')), uint8_t(i)));
    ResourceFile grouped;   // what the file holds: types in order of first appearance
    for (const char* type : {"FLAR", "RING", "DLOG", "AAAA", "\x01\x02\xFE\xFF"})
        for (const Resource& r : many.resources)
            if (r.type == TypeCode(type)) grouped.resources.push_back(r);

    const std::pair<ResourceFile, ResourceFile> cases[] = {{SampleFile(), SampleFile()}, {many, grouped}, {{}, {}}};
    for (const auto& [file, expected] : cases) {
        const Bytes bytes = SerializeResourceFile(file);
        const ResourceFile parsed = ParseResourceFile(bytes);
        EXPECT_TRUE(Same(parsed, expected));
        EXPECT_EQ(SerializeResourceFile(parsed), bytes);
    }
    const ResourceFile sample = ParseResourceFile(SerializeResourceFile(SampleFile()));
    EXPECT_EQ(sample.Find(TypeCode("RING"), -5)->data, (Bytes{1, 2, 3}));
    EXPECT_EQ(sample.Find(TypeCode("RING"), 3), nullptr);
}

TEST(ResourceFile, WritesTheClassicLayout) {
    Bytes expected = {0, 0, 1, 0, 0, 0, 1, 6, 0, 0, 0, 6, 0, 0, 0, 52};
    expected.resize(256, 0);
    expected.insert(expected.end(), {
        0, 0, 0, 2, 'a', 'b',                                   // data: length, bytes
        0, 0, 1, 0, 0, 0, 1, 6, 0, 0, 0, 6, 0, 0, 0, 52,         // map: header copy,
        0, 0, 0, 0, 0, 0, 0, 0, 0, 28, 0, 50,                    // reserved, list offsets,
        0, 0, 'T', 'E', 'S', 'T', 0, 0, 0, 10,                   // one type of one resource,
        0, 128, 0, 0, 0x40, 0, 0, 0, 0, 0, 0, 0,                 // its reference,
        1, 'n'});                                                // names
    EXPECT_EQ(SerializeResourceFile({{Res("TEST", 128, {'a', 'b'}, "n", 0x40)}}), expected);
    EXPECT_EQ(GetBig(SerializeResourceFile({}), 256 + 28, 2), 0xFFFFu);   // no types: count - 1 = -1
}

TEST(ResourceFile, RejectsDamagedFilesSayingWhatIsWrong) {
    const Bytes good = SerializeResourceFile(SampleFile());   // types FLAR, RING (IDs 1, 2, -5), DLOG
    const size_t map = GetBig(good, 4, 4), mapLength = GetBig(good, 12, 4), dataLength = GetBig(good, 8, 4);
    const size_t types = map + GetBig(good, map + 24, 2), names = map + GetBig(good, map + 26, 2);
    const auto type = [&](size_t t) { return types + 2 + 8 * t; };
    const auto ref = [&](size_t t, size_t r) { return types + GetBig(good, type(t) + 6, 2) + 12 * r; };
    const std::vector<std::pair<std::function<void(Bytes&)>, std::vector<std::string>>> cases = {
        {[](Bytes& b) { b.resize(15); }, {"truncated header"}},
        {[](Bytes& b) { PutBig(b, 8, uint32_t(b.size()), 4); }, {"data area", "past the end of the file"}},
        {[](Bytes& b) { PutBig(b, 0, 0xFFFFFF00, 4), PutBig(b, 8, 0x200, 4); }, {"data area", "overflows"}},
        {[&](Bytes& b) { PutBig(b, 12, uint32_t(mapLength + 1), 4); }, {"map", "past the end of the file"}},
        {[](Bytes& b) { PutBig(b, 4, 0xFFFFFFF0, 4); }, {"map", "overflows"}},
        {[](Bytes& b) { PutBig(b, 12, 27, 4); }, {"28-byte fixed part"}},
        {[&](Bytes& b) { PutBig(b, map + 24, uint32_t(mapLength - 1), 2); }, {"type list offset", "outside the map"}},
        {[&](Bytes& b) { PutBig(b, map + 26, uint32_t(mapLength + 1), 2); }, {"name list offset", "outside the map"}},
        {[&](Bytes& b) { PutBig(b, types, 0xFFFE, 2); }, {"65535 types", "does not fit"}},
        {[&](Bytes& b) { PutBig(b, type(0) + 4, 0xFFFF, 2); }, {"'FLAR'", "65536 resources", "past the end of the map"}},
        {[&](Bytes& b) { PutBig(b, type(1) + 6, 0xFFF0, 2); }, {"'RING'", "past the end of the map"}},
        {[&](Bytes& b) { PutBig(b, type(2) + 6, 8, 2); }, {"'DLOG'", "overlaps the type list"}},
        {[&](Bytes& b) { PutBig(b, ref(1, 0) + 5, uint32_t(dataLength - 3), 3); }, {"'RING' 1:", "4-byte length", "past the data area"}},
        {[&](Bytes& b) { PutBig(b, 256 + GetBig(b, ref(1, 1) + 5, 3), 1000, 4); }, {"'RING' 2:", "past the data area"}},
        {[&](Bytes& b) { PutBig(b, ref(1, 0) + 5, 0, 3); }, {"'RING' 1:", "shared"}},
        {[&](Bytes& b) { PutBig(b, ref(1, 0) + 5, 4, 3); }, {"'RING' 1:", "overlaps", "'FLAR' 1001"}},
        {[&](Bytes& b) { PutBig(b, ref(0, 0) + 2, uint32_t(map + mapLength - names), 2); }, {"'FLAR' 1001:", "name offset", "past the name list"}},
        {[&](Bytes& b) { b[names + GetBig(b, ref(2, 0) + 2, 2)] = 200; }, {"'DLOG' 16001:", "name of 200 bytes", "past the name list"}},
        {[&](Bytes& b) { PutBig(b, ref(1, 1), 1, 2); }, {"duplicate", "'RING' 1"}},
        {[&](Bytes& b) { PutBig(b, type(2), TypeCode("RING"), 4); }, {"'RING'", "appears twice"}},
    };
    for (const auto& [damage, mentions] : cases) {
        Bytes bad = good;
        damage(bad);
        const std::string message = ParseError(bad);
        for (const std::string& part : mentions) EXPECT_NE(message.find(part), std::string::npos) << message;
    }
    for (size_t size = 0; size < good.size(); ++size)   // every truncation, checked by the sanitizers too
        EXPECT_NE(ParseError(Bytes(good.begin(), good.begin() + long(size))), "(parsed)") << size;
}

TEST(ResourceFile, RefusesToWriteWhatDoesNotFit) {
    ResourceFile crowded, wordy;   // references, or names, beyond 16-bit map offsets
    for (int i = 0; i < 5500; ++i) crowded.resources.push_back(Res("RING", int16_t(i), {}));
    for (int i = 0; i < 300; ++i) wordy.resources.push_back(Res("RING", int16_t(i), {}, std::string(255, 'n')));
    const std::pair<ResourceFile, std::string> cases[] = {
        {{{Res("RING", 7, {}), Res("FLAR", 7, {}), Res("RING", 7, {1})}}, "duplicate resource 'RING' 7"},
        {{{Res("RING", 1, {}, std::string(256, 'n'))}}, "256 bytes"},
        {{{Res("BIG ", 1, Bytes((1 << 24) - 4))}}, "16 MiB"},
        {crowded, "16-bit"},
        {wordy, "16-bit"},
    };
    for (const auto& [file, mention] : cases) {
        try {
            SerializeResourceFile(file);
            ADD_FAILURE() << "wrote a file that does not fit: " << mention;
        } catch (const ResourceFileError& error) {
            EXPECT_NE(std::string(error.what()).find(mention), std::string::npos) << error.what();
        }
    }
    EXPECT_THROW(TypeCode("RIN"), std::invalid_argument);
}

// ---- On disk ----

std::string ReadError(const std::filesystem::path& path) {
    try {
        ReadResourceFile(path);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "(read)";
}

class ResourceFileOnDisk : public ::testing::Test {
protected:
    void SetUp() override { WriteFileAtomically(target, old); }
    // A write that must fail naming the file, and leave the old file and nothing else.
    void ExpectWriteFailsCleanly(const std::function<void()>& before = {}, const std::function<void()>& after = {}) {
        if (before) before();
        std::string message;
        try {
            WriteFileAtomically(target, Bytes(4000, 0x55));
        } catch (const std::runtime_error& error) {
            message = error.what();
        }
        if (after) after();
        EXPECT_NE(message.find(target.string()), std::string::npos) << message;
        EXPECT_EQ(FileBytes(target), old);
        EXPECT_EQ(dir.Entries(), std::vector<std::string>{"table.rsc"});
    }
    ScratchDirectory dir;
    std::filesystem::path target = dir / "table.rsc";
    Bytes old = {'o', 'l', 'd'};
};

TEST_F(ResourceFileOnDisk, ReadsWhatItWroteAndNamesTheFileInErrors) {
    std::filesystem::permissions(target, std::filesystem::perms(0640));
    WriteResourceFile(target, SampleFile());
    EXPECT_TRUE(Same(ReadResourceFile(target), SampleFile()));
    EXPECT_EQ(dir.Entries(), std::vector<std::string>{"table.rsc"});
    EXPECT_EQ(std::filesystem::status(target).permissions(), std::filesystem::perms(0640));

    WriteFileAtomically(target, Bytes(10));
    EXPECT_NE(ReadError(target).find(target.string() + ": not a valid resource file: truncated header"), std::string::npos);
    EXPECT_NE(ReadError(dir / "missing.rsc").find((dir / "missing.rsc").string()), std::string::npos);
    EXPECT_NE(ReadError(dir.path).find("is a directory"), std::string::npos);
}

TEST_F(ResourceFileOnDisk, AFailedWriteLeavesTheOldFileAlone) {
    // The directory is read-only (permission bits do not bind the superuser: drop to nobody).
    const bool root = geteuid() == 0;
    ExpectWriteFailsCleanly(
        [&] {
            std::filesystem::permissions(dir.path, std::filesystem::perms(0555));
            if (root) { ASSERT_EQ(seteuid(65534), 0); }
        },
        [&] {
            if (root) { ASSERT_EQ(seteuid(0), 0); }
            std::filesystem::permissions(dir.path, std::filesystem::perms(0700));
        });

    // The write itself fails part way: a file size limit.
    rlimit saved{}, small{};
    getrlimit(RLIMIT_FSIZE, &saved);
    small = {1000, saved.rlim_max};
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    ExpectWriteFailsCleanly([&] { setrlimit(RLIMIT_FSIZE, &small); }, [&] { setrlimit(RLIMIT_FSIZE, &saved); });
    signal(SIGXFSZ, handler);

    // The rename fails: the target is a directory.
    std::filesystem::create_directory(dir / "busy");
    EXPECT_THROW(WriteFileAtomically(dir / "busy", Bytes{1}), std::runtime_error);
    EXPECT_EQ(dir.Entries(), (std::vector<std::string>{"busy", "table.rsc"}));
}

}  // namespace
