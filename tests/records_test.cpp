// Validation and sizing of the persistent and working records, observed through Main and the
// host calls it makes.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <tuple>

#include "kit/byte_order.h"
#include "plugin/control_data.h"
#include "support/plugin_fixture.h"

namespace {

constexpr int32_t F = kPluginDataFixedSize;

// The documented defaults, written out here rather than taken from DefaultControl.
const ControlDataRec kDefaults{0x564C5558u /* 'VLUX' */, 1, 0.5, 0.0, 1.77, 0.22, 0.0, 50.0, 0.03, 6.0,
                               ARGB_Color{int16_t(-1), 0x5050, 0x1414, 0x0A0A}, 0x7B000000u, 0};

ControlDataRec Defaults() {
    ControlDataRec control;
    DefaultControl(&control);
    return control;
}

ControlDataRec CustomSettings() {
    ControlDataRec control = Defaults();
    control.flareIntensity = 0.75;
    control.flareDissolve = 0.25;
    control.flareRingSize = 0.4;
    control.flareStreakDensity = 12.5;
    control.flareRingColor = ARGB_Color{0x1234, 0x5678, int16_t(0x9ABC), 0x0DEF};
    control.flareFlags = 0x80C00005u;
    control.flareStarFilter = 7;
    return control;
}

// The record as a machine of the other byte order writes it.
ControlDataRec Foreign(ControlDataRec control) {
    ReverseField(&control.ownerType, 4);
    ReverseField(&control.ownerVersion, 4);
    for (double* field : {&control.flareIntensity, &control.flareDissolve, &control.flareAnamorphicFactor,
                          &control.flareRingSize, &control.flareStarRotation, &control.flareStreakDensity,
                          &control.flareStreakIntensity, &control.flareStreakSharpness})
        ReverseField(field, 8);
    for (int16_t* c : {&control.flareRingColor.alpha, &control.flareRingColor.red, &control.flareRingColor.green,
                       &control.flareRingColor.blue})
        ReverseField(c, 2);
    ReverseField(&control.flareFlags, 4);
    ReverseField(&control.flareStarFilter, 4);
    return control;
}

bool SameBytes(const void* a, const void* b, size_t n) { return std::memcmp(a, b, n) == 0; }

}  // namespace

TEST_F(PluginTest, EmptyHostGetsDefaultsChannelResetAndFullRebuild) {
    ASSERT_EQ(Init(), kNoError);
    EXPECT_EQ(host.Selectors(), Seq({kHostResetChannel, kHostAllocate, kHostFree, kHostAllocate, kHostAllocate}));
    EXPECT_EQ(host.calls[1].controlSize, int32_t(sizeof(ControlDataRec)));
    EXPECT_EQ(host.calls[3].pluginSize, RoundSize(host.freeSize));   // grown to all there is
    EXPECT_EQ(host.calls[4].pluginSize, F);                            // shrunk to what was used
    ASSERT_EQ(host.controlSize(), int32_t(sizeof(ControlDataRec)));
    EXPECT_TRUE(SameBytes(host.control(), &kDefaults, sizeof(kDefaults)));
    EXPECT_EQ(std::tie(Fake().opens, Fake().reads, Fake().layouts), std::make_tuple(1, 1, 1));
    // The rebuilt working record: empty, settled, unit scales, a white light of intensity 1, this host.
    const PluginDataRec& d = data();
    EXPECT_EQ(std::tie(d.flareElementSize, d.flareDataSize, d.flareReset, d.flareRingCount, d.flareStreakCount),
              std::make_tuple(F, F, 0, 0, 0));
    EXPECT_EQ(std::tie(d.flareXScale, d.flareYScale, d.flareLightIntensity, d.flareLightSize),
              std::make_tuple(1.0f, 1.0f, 1.0f, 0.0f));
    EXPECT_EQ(std::tie(d.flareLightColor.a, d.flareLightColor.r, d.flareLightColor.g, d.flareLightColor.b),
              std::make_tuple(0xFF, 0xFF, 0xFF, 0xFF));
    EXPECT_TRUE(d.flareHostReference == &host && d.flareHostProc != nullptr && d.flareLabelChannel == nullptr &&
                d.theInfo == nullptr);
}

TEST(ControlDefaults, AreTheDocumentedSettings) {
    const ControlDataRec defaults = Defaults();
    EXPECT_TRUE(SameBytes(&defaults, &kDefaults, sizeof(defaults)));
}

// The settings block as the host hands it over: kept (converted from the other byte order when
// need be) or replaced by the defaults with a channel reset; either way the block ends exactly one
// record long, and a block of another rounded size is resized before anything is written to it.
TEST(SettingsBlock, IsKeptConvertedOrReplacedAndSizedToOneRecord) {
    const ControlDataRec settings = CustomSettings();
    auto spoiled = [&](void (*spoil)(ControlDataRec&)) {
        ControlDataRec c = settings;
        spoil(c);
        return c;
    };
    const int32_t n = int32_t(sizeof(ControlDataRec));
    const struct {
        const char* what;
        ControlDataRec record;
        int32_t size;
        bool kept;
        IFFType first;   // the first host call
    } cases[] = {
        {"exact", settings, n, true, kHostFree},
        {"other byte order", Foreign(settings), n, true, kHostFree},
        {"92 bytes, rounding to 96", settings, 92, true, kHostAllocate},
        {"other byte order, too short", Foreign(settings), n - 8, false, kHostResetChannel},
        {"85 bytes, rounding to 88", settings, 85, false, kHostResetChannel},
        {"other version", spoiled([](ControlDataRec& c) { c.ownerVersion = 2; }), n, false, kHostResetChannel},
        {"other owner", spoiled([](ControlDataRec& c) { c.ownerType = 0x41424344u; }), n, false, kHostResetChannel},
        {"other version, other byte order", spoiled([](ControlDataRec& c) { c.ownerVersion = 0x02000000; }), n,
         false, kHostResetChannel}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ResetFake();
        TestHost host;
        std::vector<uint8_t> bytes(size_t(std::max(c.size, n)), 0xEE);
        std::memcpy(bytes.data(), &c.record, sizeof(c.record));
        host.SetControl(bytes.data(), c.size);
        PluginInitializeRec block{};
        ASSERT_EQ(host.Send(kCmdInitialize, block), kNoError);
        ASSERT_FALSE(host.calls.empty());
        EXPECT_EQ(host.calls[0].selector, c.first);
        EXPECT_EQ(host.resets, c.kept ? 0 : 1);
        ASSERT_EQ(host.controlSize(), n);
        EXPECT_TRUE(SameBytes(host.control(), c.kept ? &settings : &kDefaults, sizeof(settings)));
    }
}

TEST_F(PluginTest, HeaderClaimingSizesForNullRecords) {
    PluginInitializeRec block{};
    block.theInfo = host.Info();
    block.theInfo.theControlDataSize = int32_t(sizeof(ControlDataRec));
    block.theInfo.thePluginDataSize = 1 << 20;
    ASSERT_EQ(host.SendRaw(kCmdInitialize, int32_t(sizeof(block)), &block), kNoError);
    EXPECT_EQ(host.Selectors(), Seq({kHostResetChannel, kHostAllocate, kHostFree, kHostAllocate, kHostAllocate}));
    EXPECT_EQ(host.controlSize(), int32_t(sizeof(ControlDataRec)));
}

// Less free memory than the fixed part needs, or than the layout needs, and an allocation the host
// answers short: result 1, nothing asked after the failing step (RCHN, ALOC of the settings, FREE,
// then the working record's ALOC), and the table is not read without room for it.
TEST(WorkingRecord, TooLittleMemoryIsAMemoryError) {
    const struct {
        const char* what;
        int32_t freeSize, shortfall, layoutBytes, reads;
        size_t calls;
    } cases[] = {{"free size of the fixed part", F, 0, 0, 0, 3},
                 {"allocation 8 bytes short", 1 << 20, 8, 0, 0, 4},
                 {"no room for the layout", F + 32, 0, 64, 1, 4}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ResetFake();
        Fake().layoutBytes = c.layoutBytes;
        TestHost host;
        host.freeSize = c.freeSize;
        host.allocateShortfall = c.shortfall;
        PluginInitializeRec block{};
        EXPECT_EQ(host.Send(kCmdInitialize, block), kMemoryError);
        EXPECT_EQ(Fake().reads, c.reads);
        EXPECT_EQ(host.calls.size(), c.calls);
    }
    // One byte more than the fixed part is enough; the block is rounded up to eight.
    ResetFake();
    TestHost more;
    more.freeSize = F + 1;
    PluginInitializeRec block{};
    ASSERT_EQ(more.Send(kCmdInitialize, block), kNoError);
    ASSERT_EQ(more.Count(kHostAllocate), 3);
    EXPECT_EQ(more.calls[3].pluginSize, F + 8);
}

// The next command after the working record was left in some state: nothing at all when a
// flare is laid out and settled; otherwise a new layout (FREE, then ALOC to all there is and
// back to what was used), with the table read again when the elements were reset or the record
// does not fit its block. Either way the block ends the size of the record.
TEST(WorkingRecord, NextCommandRedoesOnlyWhatIsStale) {
    const struct {
        const char* what;
        int32_t rings, layoutBytes;
        void (*leave)(PluginDataRec&, int32_t blockSize);
        int32_t reportedShortfall;   // the next header reports the block this much smaller
        bool settled;
        int reads;
    } cases[] = {
        {"settled", 3, 64, [](PluginDataRec&, int32_t) {}, 0, true, 1},
        {"nothing laid out", 0, 0, [](PluginDataRec&, int32_t) {}, 0, false, 1},
        {"colours reset", 3, 40, [](PluginDataRec&, int32_t) { ResetFlareColors(); }, 0, false, 1},
        {"elements reset", 3, 40, [](PluginDataRec&, int32_t) { ResetFlareElements(); }, 0, false, 2},
        {"data size below the elements", 3, 16,
         [](PluginDataRec& d, int32_t) { d.flareDataSize = d.flareElementSize - 8; }, 0, false, 2},
        {"data size past the block", 3, 16, [](PluginDataRec& d, int32_t size) { d.flareDataSize = size + 64; }, 0,
         false, 2},
        {"block 3 bytes short, same rounded size", 0, 16, [](PluginDataRec&, int32_t) {}, 3, false, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ResetFake();
        Fake().ringCount = c.rings;
        Fake().layoutBytes = c.layoutBytes;
        TestHost host;
        PluginInitializeRec init{};
        ASSERT_EQ(host.Send(kCmdInitialize, init), kNoError);
        host.ClearLog();
        c.leave(*reinterpret_cast<PluginDataRec*>(host.plugin()), host.pluginSize());
        PluginFlareGenerateRec block{};   // an empty buffer: the command only checks the records
        block.theInfo = host.Info();
        block.theInfo.thePluginDataSize -= c.reportedShortfall;
        ASSERT_EQ(RoundSize(block.theInfo.thePluginDataSize), host.pluginSize());
        block.theFlareBuffer.bufferDepth = 48;
        ASSERT_EQ(host.SendRaw(kCmdGenerate, int32_t(sizeof(block)), &block), kNoError);
        EXPECT_EQ(host.Selectors(), c.settled ? Seq({}) : Seq({kHostFree, kHostAllocate, kHostAllocate}));
        EXPECT_EQ(std::tie(Fake().reads, Fake().layouts), std::make_tuple(c.reads, c.settled ? 1 : 2));
        const auto& d = *reinterpret_cast<const PluginDataRec*>(host.plugin());
        EXPECT_EQ(d.flareRingCount, c.rings);
        EXPECT_EQ(d.flareDataSize, F + c.rings * int32_t(sizeof(RingElement)) + c.layoutBytes);
        EXPECT_EQ(host.pluginSize(), RoundSize(d.flareDataSize));
    }
}

TEST_F(PluginTest, ResetRequestsIgnoreAMissingOrShortRecord) {
    ASSERT_EQ(Init(), kNoError);
    std::vector<uint8_t> small(64, 0x11);
    PluginInfoRec info = host.Info();
    info.thePluginData = small.data();
    info.thePluginDataSize = int32_t(small.size());
    PluginFinishChannelRec block{};
    block.theInfo = info;
    ASSERT_EQ(Main(kCmdFinishChannel, int32_t(sizeof(block)), &block), kNoError);  // statics -> small block
    ResetFlareElements();
    ResetFlareColors();
    EXPECT_EQ(small, std::vector<uint8_t>(64, 0x11));
}

TEST_F(PluginTest, EveryFailingHostCallStopsTheCheckAndIsReturned) {
    // The full rebuild makes five calls; fail each in turn with a distinct code.
    for (int n = 1; n <= 5; ++n) {
        TestHost failing;
        ResetFake();
        const IFFType order[] = {kHostResetChannel, kHostAllocate, kHostFree, kHostAllocate, kHostAllocate};
        const int nth = n <= 3 ? 1 : n - 2;
        failing.FailCall(order[n - 1], nth, 40 + n);
        PluginInitializeRec block{};
        EXPECT_EQ(failing.Send(kCmdInitialize, block), 40 + n) << "failing call " << n;
        EXPECT_EQ(int(failing.calls.size()), n) << "nothing is sent after the failure";
        // The next command repairs what was left.
        ResetFake();
        EXPECT_EQ(failing.Send(kCmdInitialize, block), kNoError);
    }
}

TEST_F(PluginTest, TableFailuresLeaveTheRecordUnsettled) {
    Fake().openResult = kMemoryError;
    EXPECT_EQ(Init(), kMemoryError);
    EXPECT_EQ(Fake().reads, 0);
    Fake().openResult = kNoError;
    Fake().readResult = kMissingResource;
    EXPECT_EQ(InitChannels(), kMissingResource);
    EXPECT_EQ(Fake().layouts, 0);
    Fake().readResult = kNoError;
    EXPECT_EQ(InitChannels(), kNoError);   // tried again, now it loads
    EXPECT_EQ(Fake().layouts, 1);
}

TEST_F(PluginTest, FalloffTableFollowsExpOfMinusDToTheOnePointFive) {
    ASSERT_EQ(Init(), kNoError);
    const LookupElement* table = data().flareLookup;
    EXPECT_EQ(table[0].value, 1.0f);
    EXPECT_NEAR(table[341].value, std::exp(-1.0), 2e-3);
    EXPECT_NEAR(table[1023].value, 0.0056, 1e-4);
    for (int i = 0; i < kLookupEntries; ++i) {
        EXPECT_EQ(table[i].index, float(i));
        const double d = 3.0 * i / 1024.0;
        EXPECT_NEAR(table[i].value, std::exp(-std::pow(d, 1.5)), 1e-6);
        if (i > 0) {
            EXPECT_LT(table[i].value, table[i - 1].value);
        }
    }
}

TEST(SizeRounding, RoundsUpToEightAndHoldsAtTheLimit) {
    for (auto [size, rounded] : {std::pair{0, 0}, {1, 8}, {88, 88}, {92, 96}, {INT32_MAX, INT32_MAX & ~7},
                                 {INT32_MAX - 7, INT32_MAX & ~7}})
        EXPECT_EQ(RoundSize(size), rounded) << size;
}
