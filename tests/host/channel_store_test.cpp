// The host's channel store, and the plug-in publishing, keying and loading its channels through
// the session's callback.
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "host/channel_store.h"
#include "host/host_session.h"
#include "host/plugin_library.h"
#include "host/resource_services.h"

namespace {

using vellux::host::Channel;
using vellux::host::ChannelBytes;
using vellux::host::ChannelStore;
using Rgb = std::array<int16_t, 3>;

double Real(const ChannelBytes& bytes) {
    EXPECT_EQ(bytes.size(), sizeof(double));
    double value = 0;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

Rgb Color(const ChannelBytes& bytes) {
    EXPECT_EQ(bytes.size(), sizeof(Rgb));
    Rgb value{};
    std::memcpy(value.data(), bytes.data(), sizeof value);
    return value;
}

TEST(ChannelStore, RealsInterpolateBetweenKeysAndHoldOutside) {
    ChannelStore store;
    const double fallback = 7.0;
    Channel* channel = store.Add(2, kChannelReal, "Intensity", &fallback);
    ASSERT_NE(channel, nullptr);
    EXPECT_EQ(Real(ChannelStore::ValueAt(*channel, 5)), 7.0);   // no keys: the default

    const double a = 1.0, b = 3.0, c = -1.0;
    ChannelStore::SetKey(*channel, 10, &a);
    ChannelStore::SetKey(*channel, 20, &b);
    ChannelStore::SetKey(*channel, 24, &c);
    EXPECT_EQ(Real(ChannelStore::ValueAt(*channel, -100)), 1.0);
    EXPECT_EQ(Real(ChannelStore::ValueAt(*channel, 10)), 1.0);
    EXPECT_EQ(Real(ChannelStore::ValueAt(*channel, 15)), 2.0);
    EXPECT_EQ(Real(ChannelStore::ValueAt(*channel, 20)), 3.0);
    EXPECT_EQ(Real(ChannelStore::ValueAt(*channel, 23)), 0.0);   // the second span
    EXPECT_EQ(Real(ChannelStore::ValueAt(*channel, 1000)), -1.0);
}

TEST(ChannelStore, ColorsInterpolatePerComponentRoundedToNearest) {
    ChannelStore store;
    Channel* channel = store.Add(6, kChannelColor, "Ring Color", nullptr);
    ASSERT_NE(channel, nullptr);
    EXPECT_EQ(Color(ChannelStore::ValueAt(*channel, 0)), (Rgb{0, 0, 0}));
    const Rgb from{0, 100, -32768}, to{3, -100, 32767};
    ChannelStore::SetKey(*channel, 0, from.data());
    ChannelStore::SetKey(*channel, 3, to.data());
    EXPECT_EQ(Color(ChannelStore::ValueAt(*channel, 1)), (Rgb{1, 33, -10923}));    // 1/3 of the way
    EXPECT_EQ(Color(ChannelStore::ValueAt(*channel, 2)), (Rgb{2, -33, 10922}));    // 2/3
    EXPECT_EQ(Color(ChannelStore::ValueAt(*channel, 9)), to);
}

TEST(ChannelStore, PublishingAgainKeepsTheChannelAndResetDropsAll) {
    ChannelStore store;
    const double one = 1.0, two = 2.0;
    Channel* first = store.Add(2, kChannelReal, "Intensity", &one);
    ChannelStore::SetKey(*first, 4, &two);
    EXPECT_EQ(store.Add(2, kChannelReal, "Intensity", &two), first);
    EXPECT_EQ(Real(first->defaultValue), 2.0);
    EXPECT_EQ(first->keys.size(), 1u);
    EXPECT_NE(store.Add(2, kChannelColor, "Other", nullptr), first);   // another type: another channel
    EXPECT_EQ(store.Add(3, MakeIFF("XXXX"), "Unknown", nullptr), nullptr);
    EXPECT_EQ(store.FindByName("Other")->type, kChannelColor);

    const Channel* stale = first;
    store.Reset();
    EXPECT_TRUE(store.All().empty());
    EXPECT_EQ(store.Find(stale), nullptr);
}

// Through the callback: the answers the plug-in relies on, and refusals of what does not match.
TEST(HostSessionChannels, CallbackAnswersAndRefusals) {
    vellux::host::HostSession host;
    PluginInfoRec info = host.Info();
    HostAddChannelRec add{};
    add.theReference = info.theHostReference;
    add.theChannelID = 2;
    add.theChannelType = kChannelReal;
    add.theChannelName[0] = 3;
    std::memcpy(add.theChannelName + 1, "Int", 3);
    const double fallback = 0.5;
    add.theChannelDefault = const_cast<double*>(&fallback);
    ASSERT_EQ(info.theHostProc(kHostAddChannel, int32_t(sizeof(add)), &add), kNoError);
    ASSERT_NE(add.theChannelReference, nullptr);
    EXPECT_EQ(host.Channels().FindByName("Int"), add.theChannelReference);

    HostSetChannelRec set{info.theHostReference, add.theChannelReference, 2, kChannelReal, 10, nullptr};
    const double keyed = 4.0;
    set.theChannelData = const_cast<double*>(&keyed);
    EXPECT_EQ(info.theHostProc(kHostSetChannel, int32_t(sizeof(set)), &set), kNoError);
    set.theChannelType = kChannelColor;
    EXPECT_EQ(info.theHostProc(kHostSetChannel, int32_t(sizeof(set)), &set), kIncompatibleRecord);

    HostGetChannelRec get{info.theHostReference, add.theChannelReference, 99, kChannelColor, 0, nullptr};
    ASSERT_EQ(info.theHostProc(kHostGetChannel, int32_t(sizeof(get)), &get), kNoError);
    EXPECT_EQ(get.theChannelID, 2);                  // what was found, not what was asked
    EXPECT_EQ(get.theChannelType, kChannelReal);
    ASSERT_NE(get.theChannelData, nullptr);
    EXPECT_EQ(*static_cast<const double*>(get.theChannelData), 4.0);

    HostResetChannelRec reset{info.theHostReference};
    EXPECT_EQ(info.theHostProc(kHostResetChannel, int32_t(sizeof(reset)), &reset), kNoError);
    EXPECT_EQ(info.theHostProc(kHostGetChannel, int32_t(sizeof(get)), &get), kIncompatibleRecord);
    EXPECT_EQ(info.theHostProc(kHostGetChannel, int32_t(sizeof(get)) - 4, &get), kIncompatibleRecord);
}

// The plug-in publishes its channels, keys a range with its settings, and loads a frame between
// keys added by the host into its settings record.
TEST(HostSessionChannels, PluginLoadsInterpolatedSettings) {
    vellux::host::SetHomeDirectory(VELLUX_TABLE_DIR);
    vellux::host::PluginLibrary plugin(VELLUX_PLUGIN_PATH);
    vellux::host::HostSession host;
    PluginInitializeRec init{host.Info()};
    ASSERT_EQ(plugin.Call(kCmdInitialize, int32_t(sizeof(init)), &init), kNoError);
    PluginInitializeChannelRec publish{host.Info(), 1, 1, 0.0, 0.0};
    ASSERT_EQ(plugin.Call(kCmdInitializeChannel, int32_t(sizeof(publish)), &publish), kNoError);
    ASSERT_EQ(host.Channels().All().size(), 11u);
    EXPECT_EQ(host.Channels().All().front().name, "Lens Flare");

    PluginUpdateChannelRec update{host.Info(), 1, 3, 0.0, 0.0};
    ASSERT_EQ(plugin.Call(kCmdUpdateChannel, int32_t(sizeof(update)), &update), kNoError);
    Channel* intensity = host.Channels().FindByName("Intensity");
    Channel* color = host.Channels().FindByName("Ring Color");
    ASSERT_NE(intensity, nullptr);
    ASSERT_NE(color, nullptr);
    EXPECT_EQ(intensity->keys.size(), 3u);
    const double high = 2.5;
    const Rgb red{1000, 0, 0};
    ChannelStore::SetKey(*intensity, 5, &high);
    color->keys.clear();
    ChannelStore::SetKey(*color, 0, Rgb{0, 0, 0}.data());
    ChannelStore::SetKey(*color, 8, red.data());
    intensity->keys.erase(1);
    intensity->keys.erase(2);

    const auto* settings = reinterpret_cast<const ControlDataRec*>(host.controlData().data());
    const double start = Real(intensity->keys.at(3));
    PluginLoadChannelRec load{host.Info(), 1, 5, 0.0, 0.0, 4};
    ASSERT_EQ(plugin.Call(kCmdLoadChannel, int32_t(sizeof(load)), &load), kNoError);
    EXPECT_DOUBLE_EQ(settings->flareIntensity, (start + high) / 2);
    EXPECT_EQ(settings->flareRingColor.red, 500);
}

}  // namespace
