// The file and resource services, called the way the plug-in calls them.
#include "host/resource_services.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>

#include "host/resource_services_pvt.h"
#include "host_test_support.h"

namespace {

using namespace vellux::host;
using host_test::Bytes;
using vellux::rsc::TypeCode;

const uint32_t kFLAR = TypeCode("FLAR"), kRING = TypeCode("RING");

// A home directory holding the sample table as "Vellux.rsc". Each test must release all it takes.
class ResourceServices : public ::testing::Test {
protected:
    void SetUp() override {
        vellux::rsc::WriteResourceFile(home / "Vellux.rsc", host_test::SampleFile());
        SetHomeDirectory(home.path);
    }
    void TearDown() override {
        SetHomeDirectory({});
        SetFileSubstitute("Vellux.rsc", {});
        const ServiceCounts now = LiveServiceObjects();
        EXPECT_EQ(std::tie(now.directoryRefs, now.fileRefs, now.openResourceFiles, now.resourceCopies),
                  std::tie(before.directoryRefs, before.fileRefs, before.openResourceFiles, before.resourceCopies));
    }
    // As the plug-in opens its table: home directory, file reference, open, references destroyed.
    static KV_ResourceFile* OpenTable(const char* name = "Vellux.rsc") {
        KV_DirectoryRef* directory = KV_GetHomeDirectory();
        KV_FileRef* file = KV_MakeFileRef(directory, name, TypeCode("rsrc"), "rsc");
        KV_ResourceFile* table = file != nullptr ? KV_OpenResourceFile(file) : nullptr;
        KV_DestroyFileRef(file);
        KV_DestroyDirectoryRef(directory);
        return table;
    }
    static int32_t FlareSize() {
        KV_ResourceFile* table = OpenTable();
        int32_t size = -1;
        KV_ReleaseResource(KV_GetResource(table, kFLAR, 1001, &size));
        KV_CloseResourceFile(table);
        return size;
    }
    host_test::ScratchDirectory home;
    ServiceCounts before = LiveServiceObjects();
};

TEST(ResourceServiceExports, AreFoundByNameInTheProcessWithTheirHomeDefault) {
#define VELLUX_EXPECT_EXPORTED(Name) EXPECT_EQ(dlsym(RTLD_DEFAULT, #Name), reinterpret_cast<void*>(&Name))
    VELLUX_EXPECT_EXPORTED(KV_GetHomeDirectory);
    VELLUX_EXPECT_EXPORTED(KV_MakeFileRef);
    VELLUX_EXPECT_EXPORTED(KV_DestroyFileRef);
    VELLUX_EXPECT_EXPORTED(KV_DestroyDirectoryRef);
    VELLUX_EXPECT_EXPORTED(KV_OpenResourceFile);
    VELLUX_EXPECT_EXPORTED(KV_CloseResourceFile);
    VELLUX_EXPECT_EXPORTED(KV_GetResource);
    VELLUX_EXPECT_EXPORTED(KV_ReleaseResource);
#undef VELLUX_EXPECT_EXPORTED
    EXPECT_EQ(HomeDirectory(), std::filesystem::read_symlink("/proc/self/exe").parent_path());
}

TEST_F(ResourceServices, EachGetHandsOutAPrivateWritableCopy) {
    KV_ResourceFile* table = OpenTable();
    ASSERT_NE(table, nullptr) << LastResourceFileError();
    const Bytes stored = host_test::SampleFile().resources[0].data;   // FLAR 1001
    int32_t size = -1;
    auto* first = static_cast<uint8_t*>(KV_GetResource(table, kFLAR, 1001, &size));
    ASSERT_EQ(Bytes(first, first + size), stored);
    std::memset(first, 0xEE, size_t(size));   // the plug-in converts in place
    auto* second = static_cast<uint8_t*>(KV_GetResource(table, kFLAR, 1001, &size));
    EXPECT_NE(second, first);
    EXPECT_EQ(Bytes(second, second + size), stored);
    EXPECT_EQ(LiveServiceObjects().resourceCopies, before.resourceCopies + 2);
    KV_ReleaseResource(first);
    KV_ReleaseResource(first);   // twice: ignored
    EXPECT_EQ(LiveServiceObjects().resourceCopies, before.resourceCopies + 1);
    KV_CloseResourceFile(table);
    second[0] = 1;               // a copy outlives its file
    KV_ReleaseResource(second);

    table = OpenTable();
    void* empty = KV_GetResource(table, kRING, 2, &size);
    EXPECT_TRUE(empty != nullptr && size == 0);
    KV_ReleaseResource(empty);
    const std::pair<uint32_t, int> absent[] = {{kRING, 3}, {TypeCode("rsrc"), 1001}, {kFLAR, 1001 + 65536}, {kRING, -5 - 65536}};
    for (const auto& [type, id] : absent) {
        size = 77;
        EXPECT_EQ(KV_GetResource(table, type, id, &size), nullptr) << id;
        EXPECT_EQ(size, 0) << id;
    }
    KV_CloseResourceFile(table);
}

TEST_F(ResourceServices, UnknownAndReleasedHandlesAreIgnored) {
    KV_DirectoryRef strayDirectory{};
    KV_FileRef strayFile{};
    KV_ResourceFile strayTable{};
    int32_t size = 77;
    EXPECT_EQ(KV_MakeFileRef(&strayDirectory, "Vellux.rsc", 0, "rsc"), nullptr);
    EXPECT_EQ(KV_OpenResourceFile(&strayFile), nullptr);
    EXPECT_EQ(KV_GetResource(&strayTable, kFLAR, 1001, &size), nullptr);
    EXPECT_EQ(size, 0);
    KV_DestroyDirectoryRef(&strayDirectory);
    KV_DestroyFileRef(nullptr);
    KV_CloseResourceFile(&strayTable);
    KV_ReleaseResource(&size);

    KV_ResourceFile* table = OpenTable();
    KV_CloseResourceFile(table);
    KV_CloseResourceFile(table);
    EXPECT_EQ(KV_GetResource(table, kFLAR, 1001, &size), nullptr);
    KV_DirectoryRef* directory = KV_GetHomeDirectory();
    for (const char* name : {static_cast<const char*>(nullptr), "", "..", "../Vellux.rsc"})
        EXPECT_EQ(KV_MakeFileRef(directory, name, 0, nullptr), nullptr);
    KV_FileRef* file = KV_MakeFileRef(directory, "Vellux.rsc", 0, nullptr);
    KV_DestroyDirectoryRef(directory);
    KV_DestroyDirectoryRef(directory);
    KV_DestroyFileRef(file);
    KV_DestroyFileRef(file);
    EXPECT_EQ(KV_OpenResourceFile(file), nullptr);
}

TEST_F(ResourceServices, HomeAndSubstituteChooseTheFileAndFailuresLeaveAMessage) {
    host_test::ScratchDirectory elsewhere;
    vellux::rsc::WriteResourceFile(elsewhere / "Other.rsc", {{host_test::Res("FLAR", 1001, Bytes(5))}});
    EXPECT_EQ(FlareSize(), 12);
    SetFileSubstitute("Vellux.rsc", elsewhere / "Other.rsc");   // the plug-in still asks for Vellux.rsc
    EXPECT_EQ(FlareSize(), 5);
    SetFileSubstitute("Vellux.rsc", {});
    EXPECT_EQ(FlareSize(), 12);

    SetHomeDirectory(elsewhere.path);
    EXPECT_EQ(OpenTable(), nullptr);
    EXPECT_NE(LastResourceFileError().find((elsewhere / "Vellux.rsc").string()), std::string::npos) << LastResourceFileError();
    vellux::rsc::WriteFileAtomically(elsewhere / "Vellux.rsc", Bytes(20, 0xFF));
    EXPECT_EQ(OpenTable(), nullptr);
    EXPECT_NE(LastResourceFileError().find("Vellux.rsc: not a valid resource file"), std::string::npos) << LastResourceFileError();
    std::filesystem::copy_file(elsewhere / "Other.rsc", elsewhere / "Vellux.rsc", std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(FlareSize(), 5);
    EXPECT_EQ(LastResourceFileError(), "");
}

}  // namespace
