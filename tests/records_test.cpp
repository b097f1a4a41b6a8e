// Validation and sizing of the persistent and working records, observed through Main and the
// host calls it makes.
#include <cmath>
#include <cstring>

#include "kit/byte_order.h"
#include "plugin/control_data.h"
#include "support/plugin_fixture.h"

namespace {

constexpr int32_t F = kPluginDataFixedSize;

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
    ControlDataRec defaults = Defaults();
    ASSERT_EQ(host.controlSize(), int32_t(sizeof(ControlDataRec)));
    EXPECT_TRUE(SameBytes(host.control(), &defaults, sizeof(defaults)));
    EXPECT_EQ(Fake().opens, 1);
    EXPECT_EQ(Fake().reads, 1);
    EXPECT_EQ(Fake().layouts, 1);
    EXPECT_EQ(data().flareElementSize, F);
    EXPECT_EQ(data().flareDataSize, F);
    EXPECT_EQ(data().flareReset, 0);
}

TEST_F(PluginTest, DefaultsAreTheDocumentedSettings) {
    ControlDataRec control = Defaults();
    EXPECT_EQ(control.ownerType, 0x564C5558u);  // 'VLUX'
    EXPECT_EQ(control.ownerVersion, 1);
    EXPECT_EQ(control.flareIntensity, 0.5);
    EXPECT_EQ(control.flareDissolve, 0.0);
    EXPECT_EQ(control.flareAnamorphicFactor, 1.77);
    EXPECT_EQ(control.flareRingSize, 0.22);
    EXPECT_EQ(control.flareStreakDensity, 50.0);
    EXPECT_EQ(control.flareStreakIntensity, 0.03);
    EXPECT_EQ(control.flareStreakSharpness, 6.0);
    EXPECT_EQ(uint16_t(control.flareRingColor.alpha), 0xFFFF);
    EXPECT_EQ(control.flareRingColor.red, 0x5050);
    EXPECT_EQ(control.flareRingColor.green, 0x1414);
    EXPECT_EQ(control.flareRingColor.blue, 0x0A0A);
    EXPECT_EQ(control.flareFlags, 0x7B000000u);
    EXPECT_EQ(control.flareStarFilter, 0);
}

TEST_F(PluginTest, SteadyStateMakesNoHostCall) {
    Fake().layoutBytes = 64;
    ASSERT_EQ(Init(), kNoError);
    EXPECT_EQ(host.pluginSize(), F + 64);
    host.ClearLog();
    ASSERT_EQ(InitChannels(), kNoError);
    ASSERT_EQ(LoadChannels(3), kNoError);
    EXPECT_TRUE(host.calls.empty());
    EXPECT_EQ(Fake().layouts, 1);
}

TEST_F(PluginTest, EmptyFlareIsCheckedAgainOnEveryCommand) {
    // With nothing laid out the record never grows past F, so it never counts as settled.
    ASSERT_EQ(Init(), kNoError);
    host.ClearLog();
    ASSERT_EQ(InitChannels(), kNoError);
    EXPECT_EQ(host.Selectors(), Seq({kHostFree, kHostAllocate, kHostAllocate}));
}

TEST_F(PluginTest, ForeignByteOrderIsConvertedInPlaceWithoutReset) {
    ControlDataRec settings = CustomSettings();
    ControlDataRec foreign = Foreign(settings);
    host.SetControl(&foreign, int32_t(sizeof(foreign)));
    ASSERT_EQ(Init(), kNoError);
    EXPECT_EQ(host.resets, 0);
    EXPECT_EQ(host.Selectors(), Seq({kHostFree, kHostAllocate, kHostAllocate}));
    EXPECT_TRUE(SameBytes(&control(), &settings, sizeof(settings)));
}

TEST_F(PluginTest, ForeignRecordTooShortIsReplaced) {
    ControlDataRec foreign = Foreign(CustomSettings());
    host.SetControl(&foreign, int32_t(sizeof(foreign)) - 8);
    ASSERT_EQ(Init(), kNoError);
    EXPECT_EQ(host.resets, 1);
    ControlDataRec defaults = Defaults();
    EXPECT_TRUE(SameBytes(&control(), &defaults, sizeof(defaults)));
}

TEST_F(PluginTest, WrongOwnerOrVersionIsReplacedByDefaults) {
    for (auto spoil : {+[](ControlDataRec& c) { c.ownerVersion = 2; },
                       +[](ControlDataRec& c) { c.ownerType = 0x41424344u; },
                       +[](ControlDataRec& c) { c.ownerVersion = 0x02000000; }}) {
        TestHost fresh;
        ControlDataRec control = CustomSettings();
        spoil(control);
        fresh.SetControl(&control, int32_t(sizeof(control)));
        PluginInitializeRec block{};
        ASSERT_EQ(fresh.Send(kCmdInitialize, block), kNoError);
        EXPECT_EQ(fresh.resets, 1);
        ControlDataRec defaults = Defaults();
        EXPECT_TRUE(SameBytes(fresh.control(), &defaults, sizeof(defaults)));
    }
}

TEST_F(PluginTest, ControlBlockIsSizedToExactlyOneRecord) {
    ControlDataRec settings = CustomSettings();
    std::vector<uint8_t> bytes(92, 0xEE);
    std::memcpy(bytes.data(), &settings, sizeof(settings));
    host.SetControl(bytes.data(), 92);   // rounds to 96: resized to 88, values kept
    ASSERT_EQ(Init(), kNoError);
    ASSERT_GE(host.calls.size(), 1u);
    EXPECT_EQ(host.calls[0].selector, kHostAllocate);
    EXPECT_EQ(host.calls[0].controlSize, int32_t(sizeof(ControlDataRec)));
    EXPECT_EQ(host.controlSize(), int32_t(sizeof(ControlDataRec)));
    EXPECT_TRUE(SameBytes(&control(), &settings, sizeof(settings)));
    EXPECT_EQ(host.resets, 0);

    TestHost exact;
    exact.SetControl(&settings, int32_t(sizeof(settings)));
    PluginInitializeRec block{};
    ASSERT_EQ(exact.Send(kCmdInitialize, block), kNoError);
    EXPECT_EQ(exact.calls[0].selector, kHostFree);   // the control block was left in place
}

TEST_F(PluginTest, ShortControlBlockIsNeverWrittenPast) {
    // 85 bytes round to 88, but defaults of 88 bytes must not land in an 85-byte block.
    host.SetControlSize(85);
    ASSERT_EQ(Init(), kNoError);
    EXPECT_EQ(host.controlSize(), int32_t(sizeof(ControlDataRec)));
    EXPECT_EQ(host.resets, 1);
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

TEST_F(PluginTest, FreeSizeMustExceedTheFixedPart) {
    host.freeSize = F;
    EXPECT_EQ(Init(), kMemoryError);
    EXPECT_EQ(host.Selectors(), Seq({kHostResetChannel, kHostAllocate, kHostFree}));
    EXPECT_EQ(Fake().reads, 0);

    TestHost more;
    more.freeSize = F + 1;
    PluginInitializeRec block{};
    ASSERT_EQ(more.Send(kCmdInitialize, block), kNoError);
    ASSERT_EQ(more.Count(kHostAllocate), 3);
    EXPECT_EQ(more.calls[3].pluginSize, F + 8);
}

TEST_F(PluginTest, ResetFlareColorsRelaysOutWithoutReloading) {
    Fake().layoutBytes = 40;
    ASSERT_EQ(Init(), kNoError);
    host.ClearLog();
    ResetFlareColors();   // the statics still describe the host's records after the last call
    ASSERT_EQ(InitChannels(), kNoError);
    EXPECT_EQ(host.Selectors(), Seq({kHostFree, kHostAllocate, kHostAllocate}));
    EXPECT_EQ(host.calls[2].pluginSize, RoundSize(F + 40));
    EXPECT_EQ(Fake().opens, 1);
    EXPECT_EQ(Fake().layouts, 2);
}

TEST_F(PluginTest, ResetFlareElementsReloadsTheTable) {
    Fake().ringCount = 3;
    ASSERT_EQ(Init(), kNoError);
    EXPECT_EQ(data().flareRingCount, 3);
    host.ClearLog();
    ResetFlareElements();
    EXPECT_EQ(data().flareRingCount, 0);
    ASSERT_EQ(Validate(), kNoError);
    EXPECT_EQ(Fake().opens, 2);
    EXPECT_EQ(Fake().reads, 2);
    EXPECT_EQ(data().flareRingCount, 3);
    EXPECT_EQ(data().flareElementSize, F + 3 * int32_t(sizeof(RingElement)));
    EXPECT_EQ(host.calls.front().selector, kHostFree);
    EXPECT_EQ(host.calls.back().pluginSize, RoundSize(data().flareDataSize));
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

TEST_F(PluginTest, InvalidWorkingRecordIsRebuilt) {
    Fake().layoutBytes = 16;
    ASSERT_EQ(Init(), kNoError);
    data().flareDataSize = data().flareElementSize - 8;   // inconsistent
    ASSERT_EQ(InitChannels(), kNoError);
    EXPECT_EQ(Fake().reads, 2);

    data().flareDataSize = host.pluginSize() + 64;          // claims more than the block holds
    ASSERT_EQ(InitChannels(), kNoError);
    EXPECT_EQ(Fake().reads, 3);
    EXPECT_EQ(data().flareDataSize, F + 16);

    // A block a few bytes short of the record rounds to the same size, but is still too small.
    PluginInitializeChannelRec block{};
    block.theInfo = host.Info();
    block.theInfo.thePluginDataSize -= 3;
    ASSERT_EQ(host.SendRaw(kCmdInitializeChannel, int32_t(sizeof(block)), &block), kNoError);
    EXPECT_EQ(Fake().reads, 4);
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

TEST_F(PluginTest, HostGivingLessThanAskedIsAMemoryError) {
    host.allocateShortfall = 8;
    EXPECT_EQ(Init(), kMemoryError);
    EXPECT_EQ(Fake().reads, 0);
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

TEST_F(PluginTest, LayoutWithoutRoomIsAMemoryError) {
    host.freeSize = F + 32;
    Fake().layoutBytes = 64;
    EXPECT_EQ(Init(), kMemoryError);
}

TEST_F(PluginTest, NoCallbackMeansNoHostCall) {
    host.withCallback = false;
    PluginInitializeChannelRec block{};
    EXPECT_EQ(host.Send(kCmdInitializeChannel, block), kIncompatibleRecord);
    EXPECT_TRUE(host.calls.empty());
    EXPECT_EQ(host.controlSize(), 0);
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

TEST_F(PluginTest, RebuiltRecordCarriesTheDocumentedDefaults) {
    ASSERT_EQ(Init(), kNoError);
    const PluginDataRec& d = data();
    EXPECT_EQ(d.flareXScale, 1.0f);
    EXPECT_EQ(d.flareYScale, 1.0f);
    EXPECT_EQ(d.flareLightIntensity, 1.0f);
    EXPECT_EQ(d.flareLightSize, 0.0f);
    EXPECT_EQ(d.flareHostReference, &host);
    EXPECT_NE(d.flareHostProc, nullptr);
    EXPECT_EQ(d.flareLightColor.a, 0xFF);
    EXPECT_EQ(d.flareLightColor.b, 0xFF);
    EXPECT_EQ(d.flareLabelChannel, nullptr);
    EXPECT_EQ(d.theInfo, nullptr);
    EXPECT_EQ(d.flareRingCount, 0);
    EXPECT_EQ(d.flareStreakCount, 0);
}

TEST(SizeRounding, RoundsUpToEightAndHoldsAtTheLimit) {
    EXPECT_EQ(RoundSize(0), 0);
    EXPECT_EQ(RoundSize(1), 8);
    EXPECT_EQ(RoundSize(88), 88);
    EXPECT_EQ(RoundSize(92), 96);
    EXPECT_EQ(RoundSize(INT32_MAX), INT32_MAX & ~7);
    EXPECT_EQ(RoundSize(INT32_MAX - 7), INT32_MAX & ~7);
}
