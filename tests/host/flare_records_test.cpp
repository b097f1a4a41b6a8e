// The FLAR and RING byte layouts, against bytes worked out by hand.
#include <gtest/gtest.h>

#include <variant>

#include "host/flare_records.h"

namespace vellux::rsc {
namespace {

using Bytes = std::vector<uint8_t>;

FlareRecord TwoRunFlare() {
    return {{{kRingType, 2001, 2016}, {0x50494354 /* PICT */, -2, 300}}};
}

// name "Glow", type 1, hidden, 1000 units, offset -500, inside 0, outside 350, two stops
RingRecord GlowRing() {
    RingRecord ring;
    ring.name = "Glow";
    ring.type = 1;
    ring.mode = kRingHiddenBit;
    ring.units = 1000;
    ring.offset = -500;
    ring.inside = 0;
    ring.outside = 350;
    ring.stops = {{0, 0xFFFF, 0xFFFF, 0x8000, 0x0001}, {350, 0, 0x1234, 0, 0xABCD}};
    return ring;
}

Bytes GlowRingBytes() {
    Bytes bytes = {4, 'G', 'l', 'o', 'w'};
    bytes.resize(32, 0);
    const Bytes rest = {
        0x00, 0x00, 0x00, 0x01,  0x80, 0x00, 0x00, 0x00,  0x00, 0x00, 0x03, 0xE8,   // type, mode, units
        0xFF, 0xFF, 0xFE, 0x0C,  0x00, 0x00, 0x00, 0x00,  0x00, 0x00, 0x01, 0x5E,   // offset, inside, outside
        0x00, 0x00, 0x00, 0x02,                                                     // stop count
        0x00, 0x00, 0x00, 0x00,  0xFF, 0xFF, 0xFF, 0xFF, 0x80, 0x00, 0x00, 0x01,    // stop 0
        0x00, 0x00, 0x01, 0x5E,  0x00, 0x00, 0x12, 0x34, 0x00, 0x00, 0xAB, 0xCD,    // stop 1
    };
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

TEST(FlareRecords, FlareEncodesCountThenTypeFirstLastBigEndian) {
    const Bytes expected = {0x00, 0x00, 0x00, 0x02,
                            'R', 'I', 'N', 'G', 0x07, 0xD1, 0x07, 0xE0,
                            'P', 'I', 'C', 'T', 0xFF, 0xFE, 0x01, 0x2C};
    EXPECT_EQ(EncodeFlare(TwoRunFlare()), expected);
}

TEST(FlareRecords, RingEncodesPaddedNameHeaderAndTwelveByteStops) {
    const Bytes bytes = EncodeRing(GlowRing());
    ASSERT_EQ(bytes.size(), kRingHeaderSize + 2 * kColorStopSize);
    EXPECT_EQ(bytes, GlowRingBytes());
}

TEST(FlareRecords, DecodingGivesBackWhatWasEncoded) {
    const auto flare = DecodeFlare(EncodeFlare(TwoRunFlare()));
    ASSERT_TRUE(std::holds_alternative<FlareRecord>(flare)) << std::get<std::string>(flare);
    EXPECT_EQ(EncodeFlare(std::get<FlareRecord>(flare)), EncodeFlare(TwoRunFlare()));

    const auto ring = DecodeRing(GlowRingBytes());
    ASSERT_TRUE(std::holds_alternative<RingRecord>(ring)) << std::get<std::string>(ring);
    const RingRecord& decoded = std::get<RingRecord>(ring);
    EXPECT_EQ(decoded.name, "Glow");
    EXPECT_EQ(decoded.offset, -500);
    EXPECT_EQ(decoded.mode, kRingHiddenBit);
    ASSERT_EQ(decoded.stops.size(), 2u);
    EXPECT_EQ(decoded.stops[1].blue, 0xABCD);
    EXPECT_EQ(EncodeRing(decoded), GlowRingBytes());
}

// Decoding accepts only bytes that encode back identically; each reason is named.
TEST(FlareRecords, DecodingRefusesBytesThatWouldNotComeBackTheSame) {
    auto ringProblem = [](Bytes bytes) {
        const auto decoded = DecodeRing(bytes);
        return std::holds_alternative<std::string>(decoded) ? std::get<std::string>(decoded) : "";
    };
    Bytes shortRing = GlowRingBytes();
    shortRing.resize(59);
    EXPECT_NE(ringProblem(shortRing).find("shorter than the 60-byte"), std::string::npos);

    Bytes longName = GlowRingBytes();
    longName[0] = 32;
    EXPECT_NE(ringProblem(longName).find("length byte is 32"), std::string::npos);

    Bytes dirtyPadding = GlowRingBytes();
    dirtyPadding[20] = 'x';
    EXPECT_NE(ringProblem(dirtyPadding).find("not zero"), std::string::npos);

    Bytes extraByte = GlowRingBytes();
    extraByte.push_back(0);
    EXPECT_NE(ringProblem(extraByte).find("stop count 2"), std::string::npos);

    Bytes missingStop = GlowRingBytes();
    missingStop.resize(kRingHeaderSize + kColorStopSize);
    EXPECT_NE(ringProblem(missingStop).find("stop count 2"), std::string::npos);

    auto flareProblem = [](Bytes bytes) {
        const auto decoded = DecodeFlare(bytes);
        return std::holds_alternative<std::string>(decoded) ? std::get<std::string>(decoded) : "";
    };
    EXPECT_NE(flareProblem({0, 0, 0}).find("too short"), std::string::npos);
    EXPECT_NE(flareProblem({0xFF, 0xFF, 0xFF, 0xFF}).find("negative"), std::string::npos);
    EXPECT_NE(flareProblem({0, 0, 0, 2, 'R', 'I', 'N', 'G', 0, 1, 0, 2}).find("needs 20 bytes"), std::string::npos);
    EXPECT_NE(flareProblem({0, 0, 0, 0, 1}).find("1 byte follow"), std::string::npos);
}

}  // namespace
}  // namespace vellux::rsc
