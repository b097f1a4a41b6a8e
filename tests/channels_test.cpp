// Animation channels: publishing, keying and loading through the channel commands.
#include <cmath>
#include <cstring>
#include <tuple>

#include "support/plugin_fixture.h"

namespace {

template <typename T>
std::vector<uint8_t> Bytes(const T& value) {
    std::vector<uint8_t> out(sizeof(T));
    std::memcpy(out.data(), &value, sizeof(T));
    return out;
}

std::vector<uint8_t> ColorBytes(int16_t r, int16_t g, int16_t b) {
    const int16_t rgb[3] = {r, g, b};
    std::vector<uint8_t> out(sizeof(rgb));
    std::memcpy(out.data(), rgb, sizeof(rgb));
    return out;
}

class ChannelTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        Fake().ringCount = 2;
        Fake().layoutBytes = 24;   // a settled record: channel commands make no memory calls
        ASSERT_EQ(Init(), kNoError);
        host.ClearLog();
    }
};

}  // namespace

TEST_F(ChannelTest, PublishesTheElevenChannelsInOrder) {
    ASSERT_EQ(InitChannels(), kNoError);
    ASSERT_EQ(host.channels.size(), 11u);
    const char* names[] = {"Lens Flare", "Intensity", "Dissolve", "Anamorphic Factor", "Ring Size", "Ring Color",
                           "Star Rotation", "Streak Density", "Streak Intensity", "Streak Sharpness", ""};
    const IFFType types[] = {kChannelLabel, kChannelReal, kChannelReal, kChannelReal, kChannelReal, kChannelColor,
                             kChannelReal,  kChannelReal, kChannelReal, kChannelReal, kChannelEnd};
    for (int i = 0; i < 11; ++i) {
        EXPECT_EQ(host.channels[i]->id, i + 1);
        EXPECT_EQ(host.channels[i]->name, names[i]);
        EXPECT_EQ(host.channels[i]->type, types[i]);
    }
    // Each value channel starts from the current setting.
    EXPECT_EQ(host.FindChannel(2)->defaultValue, Bytes(control().flareIntensity));
    EXPECT_EQ(host.FindChannel(10)->defaultValue, Bytes(control().flareStreakSharpness));
    EXPECT_EQ(host.FindChannel(6)->defaultValue, ColorBytes(0x5050, 0x1414, 0x0A0A));
    EXPECT_TRUE(host.FindChannel(1)->defaultValue.empty());
    EXPECT_EQ(data().flareLabelChannel, host.FindChannel(1));
    EXPECT_EQ(data().flareStreakSharpnessChannel, host.FindChannel(10));
    EXPECT_EQ(data().flareEndChannel, host.FindChannel(11));
    EXPECT_EQ(data().flareRotationChannel, nullptr);
}

TEST_F(ChannelTest, FailedPublishingLeavesTheRestUnpublished) {
    host.FailCall(kHostAddChannel, 3, 9);
    EXPECT_EQ(InitChannels(), 9);
    EXPECT_EQ(host.Count(kHostAddChannel), 3);
    EXPECT_NE(data().flareIntensityChannel, nullptr);
    EXPECT_EQ(data().flareDissolveChannel, nullptr);
    EXPECT_EQ(data().flareEndChannel, nullptr);
}

// Nine value channels keyed on every frame of the range, in channel order; a range ending at the
// largest frame number ends.
TEST_F(ChannelTest, UpdateKeysNineChannelsOnEveryFrameOfTheRange) {
    ASSERT_EQ(InitChannels(), kNoError);
    for (auto [first, last] : {std::pair{10, 12}, {5, 4}, {INT32_MAX - 1, INT32_MAX}}) {
        SCOPED_TRACE(::testing::Message() << first << " to " << last);
        host.ClearLog();
        ASSERT_EQ(UpdateChannels(first, last), kNoError);
        const int frames = last >= first ? last - first + 1 : 0;
        ASSERT_EQ(host.Count(kHostSetChannel), 9 * frames);
        if (frames == 0) continue;
        EXPECT_EQ(std::pair(host.calls.front().channelID, host.calls.front().frame), std::pair(2, first));
        EXPECT_EQ(std::pair(host.calls.back().channelID, host.calls.back().frame), std::pair(10, last));
    }
    EXPECT_EQ(host.FindChannel(6)->keys.at(11), ColorBytes(0x5050, 0x1414, 0x0A0A));
    EXPECT_EQ(host.FindChannel(1)->keys.size(), 0u);
}

TEST_F(ChannelTest, LoadPullsTheFrameIntoTheSettings) {
    ASSERT_EQ(InitChannels(), kNoError);
    host.FindChannel(2)->keys[4] = Bytes(2.5);
    host.FindChannel(6)->keys[4] = ColorBytes(1, 2, 3);
    host.FindChannel(8)->keys[4] = Bytes(7.0);
    const int16_t alpha = control().flareRingColor.alpha;
    ASSERT_EQ(LoadChannels(4), kNoError);
    EXPECT_EQ(host.Count(kHostGetChannel), 9);
    EXPECT_EQ(std::pair(control().flareIntensity, control().flareStreakDensity), std::pair(2.5, 7.0));
    const ARGB_Color& ring = control().flareRingColor;
    EXPECT_EQ(std::tie(ring.alpha, ring.red, ring.green, ring.blue), std::make_tuple(alpha, 1, 2, 3));
}

TEST_F(ChannelTest, LoadClampsDissolve) {
    ASSERT_EQ(InitChannels(), kNoError);
    const std::pair<double, double> cases[] = {{1.5, 1.0}, {-0.2, 0.0}, {0.3, 0.3}, {std::nan(""), 0.0}};
    for (auto [keyed, expected] : cases) {
        host.FindChannel(3)->keys[1] = Bytes(keyed);
        ASSERT_EQ(LoadChannels(1), kNoError);
        EXPECT_EQ(control().flareDissolve, expected) << "keyed " << keyed;
    }
}

// An answer for another channel, of another type or without data fails the load there.
TEST_F(ChannelTest, WrongAnswerToARead) {
    ASSERT_EQ(InitChannels(), kNoError);
    const std::pair<void (*)(HostGetChannelRec&), int> spoilers[] = {
        {[](HostGetChannelRec& rec) { if (rec.theChannelID == 6) rec.theChannelType = kChannelReal; }, 5},
        {[](HostGetChannelRec& rec) { if (rec.theChannelID == 3) rec.theChannelData = nullptr; }, 2},
        {[](HostGetChannelRec& rec) { if (rec.theChannelID == 2) rec.theChannelID = 5; }, 1}};
    for (auto [spoil, reads] : spoilers) {
        host.onGetChannel = spoil;
        host.ClearLog();
        EXPECT_EQ(LoadChannels(0), kIncompatibleRecord);
        EXPECT_EQ(host.Count(kHostGetChannel), reads);   // nothing read after the failure
    }
}

TEST_F(ChannelTest, LoadBeforePublishingIsOutOfSequence) {
    EXPECT_EQ(LoadChannels(0), kOutOfSequence);
    ASSERT_EQ(InitChannels(), kNoError);
    ASSERT_EQ(LoadChannels(0), kNoError);
    ASSERT_EQ(Init(), kNoError);   // a rebuilt record forgets its channels
    EXPECT_EQ(LoadChannels(0), kOutOfSequence);
}

TEST_F(PluginTest, EmptyFlarePublishesAndLoadsNothing) {
    ASSERT_EQ(Init(), kNoError);
    ASSERT_EQ(InitChannels(), kNoError);
    EXPECT_EQ(host.Count(kHostAddChannel), 0);
    ASSERT_EQ(LoadChannels(0), kNoError);
    EXPECT_EQ(host.Count(kHostGetChannel), 0);
    ASSERT_EQ(UpdateChannels(0, 3), kNoError);
    EXPECT_EQ(host.Count(kHostSetChannel), 0);
}

TEST_F(PluginTest, HostWithoutChannelsIsNoError) {
    host.rchnAnswer = kUnsupportedCommand;
    EXPECT_EQ(Init(), kNoError);
    EXPECT_EQ(host.resets, 1);
    TestHost refusing;
    refusing.rchnAnswer = 7;
    PluginInitializeRec block{};
    EXPECT_EQ(refusing.Send(kCmdInitialize, block), 7);
    EXPECT_EQ(refusing.calls.size(), 1u);
}
