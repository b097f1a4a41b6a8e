// The plug-in, loaded as a host loads it, reads the shipped default table through the host
// library's real file and resource services.
#include <gtest/gtest.h>

#include <vector>

#include "host/host_session.h"
#include "host/plugin_library.h"
#include "host/resource_file.h"
#include "host/resource_services.h"
#include "plugin/plugin_data.h"

namespace {

// The RING IDs the flare names, in order, read independently from the file.
std::vector<int> RingsOfTheFlare(const vellux::rsc::ResourceFile& file) {
    const vellux::rsc::Resource* flare = file.Find(vellux::rsc::TypeCode("FLAR"), 1001);
    EXPECT_NE(flare, nullptr);
    std::vector<int> ids;
    if (flare == nullptr) return ids;
    auto big = [&](size_t at, int bytes) {
        uint32_t value = 0;
        for (int i = 0; i < bytes; ++i) value = value << 8 | flare->data.at(at + i);
        return value;
    };
    const int32_t count = int32_t(big(0, 4));
    for (int32_t i = 0; i < count; ++i) {
        if (big(4 + 8 * i, 4) != vellux::rsc::TypeCode("RING")) continue;
        for (int id = int16_t(big(8 + 8 * i, 2)); id <= int16_t(big(10 + 8 * i, 2)); ++id) ids.push_back(id);
    }
    return ids;
}

}  // namespace

TEST(PlugInWithRealServices, InitLoadsTheDefaultTable) {
    vellux::host::SetHomeDirectory(VELLUX_TABLE_DIR);
    const auto table = vellux::rsc::ReadResourceFile(std::filesystem::path(VELLUX_TABLE_DIR) / "Vellux.rsc");
    const std::vector<int> rings = RingsOfTheFlare(table);
    ASSERT_GE(rings.size(), 15u);

    vellux::host::PluginLibrary plugin(VELLUX_PLUGIN_PATH);
    vellux::host::HostSession host;
    PluginInitializeRec init{host.Info()};
    ASSERT_EQ(plugin.Call(kCmdInitialize, int32_t(sizeof(init)), &init), kNoError);
    // Read the working record as the plug-in laid it out: one element per RING of the flare.
    const auto* data = reinterpret_cast<const PluginDataRec*>(host.pluginData().data());
    ASSERT_GE(host.pluginData().size(), sizeof(PluginDataRec));
    EXPECT_EQ(data->flareRingCount, int32_t(rings.size()));
    EXPECT_GT(data->flareElementSize, int32_t(sizeof(PluginDataRec) + rings.size() * sizeof(RingElement)));
    int32_t offset = data->flareRingFirst;
    for (size_t i = 0; i < rings.size(); ++i) {
        ASSERT_GE(offset, int32_t(sizeof(PluginDataRec)));
        const auto* ring = reinterpret_cast<const RingElement*>(host.pluginData().data() + offset);
        EXPECT_GT(ring->ringOuter, 0.0f);
        EXPECT_GT(ring->ringElementColors, 0);
        offset = ring->ringNext;
    }
    EXPECT_EQ(offset, 0);
    const auto live = vellux::host::LiveServiceObjects();
    EXPECT_EQ(live.openResourceFiles, 0);
    EXPECT_EQ(live.resourceCopies, 0);
    EXPECT_EQ(live.fileRefs, 0);
    EXPECT_EQ(live.directoryRefs, 0);

    vellux::host::SetFileSubstitute("Vellux.rsc", std::filesystem::path(VELLUX_TABLE_DIR) / "missing.rsc");
    EXPECT_EQ(plugin.Call(kCmdInitialize, int32_t(sizeof(init)), &init), kMemoryError);
    vellux::host::SetFileSubstitute("Vellux.rsc", {});
    vellux::host::SetHomeDirectory({});
}

// A frame as a host sends it: the default table and settings at 1920x1080 lay out every element
// that the switches show and that meets the frame, the 50 random streaks, and nothing more.
TEST(PlugInWithRealServices, SetupLaysTheDefaultFlareOut) {
    vellux::host::SetHomeDirectory(VELLUX_TABLE_DIR);
    vellux::host::PluginLibrary plugin(VELLUX_PLUGIN_PATH);
    vellux::host::HostSession host;
    PluginInitializeRec init{host.Info()};
    ASSERT_EQ(plugin.Call(kCmdInitialize, int32_t(sizeof(init)), &init), kNoError);
    PluginFlareSetupRec setup{};
    setup.theInfo = host.Info();
    setup.theFrameRect = L_Rect{0, 0, 1080, 1920, 1920, 1080};
    setup.theFrameXScale = setup.theFrameYScale = 1080.0;
    setup.theFrameXCenter = 960.0;
    setup.theFrameYCenter = 540.0;
    setup.theLightFramePosition = DCoordinate{0.3 * 1920, 0.35 * 1080, 0.0};
    setup.theLightColor = ARGB{255, 255, 255, 255};
    setup.theLightIntensity = 1.0;
    ASSERT_EQ(plugin.Call(kCmdSetup, int32_t(sizeof(setup)), &setup), kNoError);

    const auto block = host.pluginData();
    const auto* data = reinterpret_cast<const PluginDataRec*>(block.data());
    EXPECT_EQ(int32_t(block.size()), (data->flareDataSize + 7) & ~7);   // shrunk to what is used
    EXPECT_EQ(data->flareStreakCount, 50);
    int drawn = 0;
    int32_t offset = data->flareRingFirst;
    for (int32_t i = 0; i < data->flareRingCount; ++i) {
        const auto* ring = reinterpret_cast<const RingElement*>(block.data() + offset);
        const bool hiddenBySwitches = ring->ringType == 1;   // the default shows the glow in the light's colour
        const bool onFrame = ring->ringXPos + ring->ringXRadius > 0 && ring->ringXPos - ring->ringXRadius < 1920 &&
                             ring->ringYPos + ring->ringYRadius > 0 && ring->ringYPos - ring->ringYRadius < 1080;
        if (!hiddenBySwitches && onFrame) {
            EXPECT_GT(ring->ringFlareColors, 0) << "element " << i;
            EXPECT_LE(ring->ringFlareColorBase + 6 * (ring->ringFlareColors + 1), data->flareDataSize);
            ++drawn;
        } else {
            EXPECT_EQ(ring->ringFlareColors, 0) << "element " << i;
        }
        offset = ring->ringNext;
    }
    EXPECT_GE(drawn, 15);
    vellux::host::SetHomeDirectory({});
}
