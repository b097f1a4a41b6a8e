// Reading the flare table into the working record, with resources served by the fake host.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <tuple>
#include <vector>

#include "fake_services/fake_dialog_host.h"
#include "plugin/flare_table.h"
#include "plugin/globals.h"
#include "support/table_bytes.h"
#include "support/test_host.h"

namespace {

constexpr int32_t F = kPluginDataFixedSize;
constexpr uint32_t kFlar = MakeIFF("FLAR");
constexpr uint32_t kRing = MakeIFF("RING");

// A working record with `tail` bytes of room after the fixed part, read by ReadFlareElements.
class TableTest : public ::testing::Test {
protected:
    void SetUp() override {
        fake_host::Reset();
        resourceFile = fake_host::TheResourceFile();
    }
    void TearDown() override {
        resourceFile = nullptr;
        EXPECT_EQ(fake_host::LiveResourceCopies(), 0) << "every resource is released";
        EXPECT_EQ(fake_host::Log().strayCalls, 0);
    }

    int32_t Read(int32_t tail = 4096) {
        block.assign(size_t(F + tail), 0xCD);
        data = reinterpret_cast<PluginDataRec*>(block.data());
        std::memset(static_cast<void*>(data), 0, sizeof(PluginDataRec));
        data->flareElementSize = F;
        data->flareDataSize = F + tail;
        return ReadFlareElements(data, resourceFile);
    }
    const RingElement& Element(int index) {
        int32_t offset = data->flareRingFirst;
        for (int i = 0; i < index; ++i) offset = TailRecord<RingElement>(data, offset)->ringNext;
        return *TailRecord<RingElement>(data, offset);
    }
    const ElementColor* Stops(const RingElement& element) { return reinterpret_cast<const ElementColor*>(&element + 1); }
    void Ring(int id, const RingBytes& ring) { fake_host::AddResource(kRing, id, RingResourceBytes(ring)); }
    void Flare(const std::vector<RunBytes>& runs, int32_t count = -1) {
        fake_host::AddResource(kFlar, 1001, FlareBytes(runs, count));
    }

    std::vector<uint8_t> block;
    PluginDataRec* data = nullptr;
};

RingBytes WithStops(int n) {
    RingBytes ring;
    for (int i = 0; i < n; ++i) ring.stops.push_back({i * 10, 0xFFFF, 65535, 257, 256});
    return ring;
}

}  // namespace

TEST_F(TableTest, RunsOfRingsAreChainedInOrder) {
    Flare({{"RING", 10, 12}, {"GLOW", 1, 5}, {"RING", 20, 19}, {"RING", 30, 30}});
    for (int id : {10, 11, 12, 30}) {
        RingBytes ring = WithStops(id == 30 ? 0 : 2);
        ring.name = "E" + std::to_string(id);
        Ring(id, ring);
    }
    ASSERT_EQ(Read(), kNoError);
    ASSERT_EQ(data->flareRingCount, 4);
    EXPECT_EQ(data->flareRingFirst, F);
    const char* names[] = {"E10", "E11", "E12", "E30"};
    int32_t expected = F;
    for (int i = 0; i < 4; ++i) {
        const RingElement& e = Element(i);
        EXPECT_EQ(PStrText(e.ringName), names[i]);
        EXPECT_EQ(reinterpret_cast<const uint8_t*>(&e) - block.data(), expected);
        expected += int32_t(sizeof(RingElement)) + (i < 3 ? 24 : 0);   // two stops take 24 bytes, none 0
    }
    EXPECT_EQ(Element(3).ringNext, 0);
    EXPECT_EQ(data->flareElementSize, expected);
    EXPECT_EQ(data->flareDataSize, expected);
}

TEST_F(TableTest, ElementFieldsAreScaledFromFileUnits) {
    Flare({{"RING", 5, 5}});
    RingBytes ring;
    ring.type = 3;
    ring.mode = 0x80000001u;
    ring.units = 100;
    ring.offset = -50;
    ring.inside = 10;
    ring.outside = 40;
    ring.stops = {{40, 0x1234, 65535, 257, 256}, {0, 7, 0, 0, 0}};
    Ring(5, ring);
    ASSERT_EQ(Read(), kNoError);
    const RingElement& e = Element(0);
    const float f = float(1.0 / 100);                       // file units to flare units, in float
    EXPECT_EQ(std::tie(e.ringPosition, e.ringInner, e.ringOuter, e.ringScale, e.ringIntensity),
              std::make_tuple(-0.5f, 10.0f * f, 40.0f * f, 1.0f, 1.0f));
    EXPECT_EQ(std::tie(e.ringType, e.ringMode, e.ringElementColors, e.ringFlareColors),
              std::make_tuple(3, 0x80000001u, 2, 0));
    EXPECT_EQ(std::pair(e.ringColor.alpha, e.ringColor.blue), std::pair(int16_t(-1), int16_t(-1)));   // 0xFFFF
    EXPECT_EQ(e.ringLabelChannel, nullptr);
    // Sorted by radius; the outer stop's radius is exactly 1; colours to the 16320 scale.
    const auto& inner = Stops(e)[0].rgb;
    const auto& outer = Stops(e)[1].rgb;
    EXPECT_EQ(std::tie(inner.radius, inner.alpha), std::make_tuple(0.0f, 7));
    EXPECT_EQ(std::tie(outer.radius, outer.alpha, outer.red, outer.green, outer.blue),
              std::make_tuple(1.0f, 0x1234, 16320, 64, 63));
}

TEST_F(TableTest, StopCountComesFromTheSmallerOfCountAndData) {
    Flare({{"RING", 1, 3}});
    RingBytes more = WithStops(5);
    more.colors = 3;                         // five in the data, three declared
    Ring(1, more);
    std::vector<uint8_t> partial = RingResourceBytes(WithStops(2));
    partial.resize(partial.size() - 4);      // the second stop cut short
    fake_host::AddResource(kRing, 2, partial);
    RingBytes fewer = WithStops(5);
    fewer.colors = 9;
    Ring(3, fewer);
    ASSERT_EQ(Read(), kNoError);
    EXPECT_EQ(Element(0).ringElementColors, 3);
    EXPECT_EQ(Element(1).ringElementColors, 1);
    EXPECT_EQ(Element(2).ringElementColors, 5);
    EXPECT_EQ(Element(2).ringNext, 0);
    // 3 stops: 36 bytes made 40; 1 stop: 16; 5 stops: 64.
    EXPECT_EQ(data->flareElementSize, F + 3 * int32_t(sizeof(RingElement)) + 40 + 16 + 64);

    RingBytes negative = WithStops(2);
    negative.colors = -4;
    Ring(1, negative);
    ASSERT_EQ(Read(), kNoError);
    EXPECT_EQ(Element(0).ringElementColors, 0);
}

TEST_F(TableTest, MissingOrShortResourcesAreResultSix) {
    EXPECT_EQ(Read(), kMissingResource);                       // no FLAR at all
    EXPECT_EQ(data->flareElementSize, F);
    fake_host::AddResource(kFlar, 1001, {0, 0, 0, 0, 'R', 'I', 'N', 'G', 0, 1, 0});   // 11 bytes
    EXPECT_EQ(Read(), kMissingResource);
    // A count asking for a run the flare lacks, a negative one, a huge one.
    for (int32_t count : {2, -1 * 0x40000000, 0x7FFFFFFF}) {
        Flare({{"RING", 1, 1}}, count);
        EXPECT_EQ(Read(), kMissingResource) << count;
    }

    Flare({{"RING", 1, 3}});                                   // RING 2 missing: 1 stays loaded
    Ring(1, WithStops(1));
    Ring(3, WithStops(1));
    EXPECT_EQ(Read(), kMissingResource);
    EXPECT_EQ(data->flareRingCount, 1);
    EXPECT_EQ(data->flareElementSize, F + int32_t(sizeof(RingElement)) + 16);

    fake_host::AddResource(kRing, 2, std::vector<uint8_t>(59, 0));   // shorter than a header
    EXPECT_EQ(Read(), kMissingResource);
    EXPECT_EQ(data->flareRingCount, 1);
}

TEST_F(TableTest, NoRoomIsResultOne) {
    Flare({{"RING", 1, 2}});
    Ring(1, WithStops(2));
    Ring(2, WithStops(5));
    const int32_t element = int32_t(sizeof(RingElement));
    EXPECT_EQ(Read(element - 1), kMemoryError);                // not even one element
    EXPECT_EQ(data->flareRingCount, 0);
    EXPECT_EQ(Read(element + 24 + element + 8), kMemoryError);  // the second element's stops don't fit
    EXPECT_EQ(data->flareRingCount, 2);
    EXPECT_EQ(Element(1).ringElementColors, 0);                // linked and counted, with no stops
    EXPECT_EQ(data->flareElementSize, F + 2 * element + 24);
    EXPECT_EQ(Read(0), kNoError);                              // no room at all: nothing is asked
    EXPECT_EQ(data->flareRingCount, 0);
}

TEST_F(TableTest, UnscalableElementsLoadButAreNeverDrawn) {
    Flare({{"RING", 1, 2}});
    RingBytes noUnits = WithStops(2);
    noUnits.units = 0;
    RingBytes noOutside = WithStops(2);
    noOutside.outside = 0;
    Ring(1, noUnits);
    Ring(2, noOutside);
    ASSERT_EQ(Read(), kNoError);
    for (int i = 0; i < 2; ++i) {
        const RingElement& e = Element(i);
        EXPECT_NE(e.ringMode & 0x80000000u, 0u);
        EXPECT_TRUE(std::isfinite(e.ringPosition) && std::isfinite(e.ringOuter) && std::isfinite(e.ringInner));
        for (int k = 0; k < e.ringElementColors; ++k) EXPECT_TRUE(std::isfinite(Stops(e)[k].rgb.radius));
    }
}

TEST_F(TableTest, LongNamesAreCutTo31Bytes) {
    Flare({{"RING", 1, 1}});
    RingBytes ring = WithStops(1);
    ring.name = std::string(31, 'n');
    ring.nameLength = 200;
    Ring(1, ring);
    ASSERT_EQ(Read(), kNoError);
    EXPECT_EQ(Element(0).ringName[0], 31);
    EXPECT_EQ(PStrText(Element(0).ringName), std::string(31, 'n'));
}

TEST_F(TableTest, EveryRequestConvertsAFreshCopy) {
    Flare({{"RING", 7, 7}});
    Ring(7, WithStops(3));
    ASSERT_EQ(Read(), kNoError);
    const float outer = Element(0).ringOuter;
    ASSERT_EQ(Read(), kNoError);                               // read again: same values
    EXPECT_EQ(Element(0).ringOuter, outer);
    EXPECT_EQ(Stops(Element(0))[2].rgb.radius, 0.2f);
}

TEST(OpenTheTable, OpensVelluxRscInTheHomeDirectory) {
    fake_host::Reset();
    resourceFile = nullptr;
    int32_t result = kNoError;
    OpenTheResource(&result);
    EXPECT_EQ(result, kNoError);
    EXPECT_EQ(resourceFile, fake_host::TheResourceFile());
    EXPECT_EQ(fake_host::Log().fileName, "Vellux.rsc");
    EXPECT_EQ(fake_host::Log().fileType, MakeIFF("rsrc"));
    EXPECT_EQ(fake_host::Log().fileExtension, "rsc");
    EXPECT_EQ(fake_host::Log().liveFileRefs, 0);
    EXPECT_EQ(fake_host::Log().liveDirectoryRefs, 0);
    OpenTheResource(&result);                                  // already open: nothing more
    EXPECT_EQ(fake_host::Log().resourceFilesOpened, 1);
    CloseTheResource();

    fake_host::SetResourceFileAvailable(false);
    OpenTheResource(&result);
    EXPECT_EQ(result, kMemoryError);
    EXPECT_EQ(resourceFile, nullptr);
    result = 9;
    OpenTheResource(&result);                                  // an error pending: not even tried
    EXPECT_EQ(result, 9);
}

// The whole path: INIT through Main opens the table with the host's services and loads it.
TEST(LoadThroughMain, InitLoadsTheTable) {
    fake_host::Reset();
    fake_host::AddResource(kFlar, 1001, FlareBytes({{"RING", 1, 2}}));
    fake_host::AddResource(kRing, 1, RingResourceBytes(WithStops(2)));
    fake_host::AddResource(kRing, 2, RingResourceBytes(WithStops(3)));
    TestHost host;
    PluginInitializeRec init{};
    ASSERT_EQ(host.Send(kCmdInitialize, init), kNoError);
    const auto* d = reinterpret_cast<const PluginDataRec*>(host.plugin());
    EXPECT_EQ(d->flareRingCount, 2);
    EXPECT_EQ(d->flareElementSize, F + 2 * int32_t(sizeof(RingElement)) + 24 + 40);
    EXPECT_EQ(host.pluginSize(), d->flareDataSize);
    EXPECT_EQ(fake_host::Log().resourceFilesClosed, 1);
    EXPECT_EQ(fake_host::LiveResourceCopies(), 0);

    fake_host::SetResourceFileAvailable(false);                // no table file: result 1
    EXPECT_EQ(host.Send(kCmdInitialize, init), kMemoryError);
    fake_host::SetResourceFileAvailable(true);
    fake_host::RemoveResources();                              // a file without the flare: 6
    EXPECT_EQ(host.Send(kCmdInitialize, init), kMissingResource);
}
