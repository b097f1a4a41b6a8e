// The plug-in driven in this process the way the render command drives it: bands, progress
// across bands, and a render stopped from the host's side.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <vector>

#include "host/host_session.h"
#include "host/plugin_library.h"
#include "host/resource_services.h"
#include "engine/flare_instance.h"

namespace {

using namespace vellux::engine;
using vellux::host::HostSession;
using vellux::host::PluginLibrary;
using vellux::host::ProgressReport;

TEST(FlareBands, CoverEveryRowOnceFromTheTop) {
    for (int32_t height = 1; height <= 40; ++height) {
        for (int32_t rows = 0; rows <= height + 2; ++rows) {
            const std::vector<Band> bands = SplitIntoBands(height, rows);
            int32_t next = 0;
            for (const Band& band : bands) {
                ASSERT_EQ(band.top, next);
                ASSERT_GT(band.bottom, band.top);
                ASSERT_LE(band.bottom - band.top, rows == 0 ? height : rows);
                next = band.bottom;
            }
            ASSERT_EQ(next, height) << height << " " << rows;
        }
    }
}

TEST(FlareSetup, FrameScaleIsTheSmallerSideAndTheCentreItsMiddle) {
    const PluginFlareSetupRec setup = MakeFrameSetup(300, 101, FlareLight{10.0, 20.0, {255, 0, 0}, 2.0, 3.0});
    // Copies: gtest binds references, and the record's doubles are not 8-byte aligned.
    EXPECT_EQ(double(setup.theFrameXScale), 101.0);
    EXPECT_EQ(double(setup.theFrameYScale), 101.0);
    EXPECT_EQ(double(setup.theFrameXCenter), 150.0);
    EXPECT_EQ(double(setup.theFrameYCenter), 50.5);
    const L_Rect frame = setup.theFrameRect;
    EXPECT_EQ(frame.right, 300);
    EXPECT_EQ(frame.height, 101u);
    EXPECT_EQ(setup.theLightColor.r, 255);
    EXPECT_EQ(setup.theLightColor.g, 0);
    FlareLight wide{10.0, 20.0, {255, 0, 0}, 2.0, 3.0};
    wide.pixelAspect = 2.0;   // pixels twice as wide as tall: half as many per unit across
    EXPECT_EQ(double(MakeFrameSetup(300, 101, wide).theFrameXScale), 50.5);
    EXPECT_EQ(double(MakeFrameSetup(300, 101, wide).theFrameYScale), 101.0);
}

class PluginInProcess : public testing::Test {
protected:
    static void SetUpTestSuite() { vellux::host::SetHomeDirectory(VELLUX_COMPILED_TABLES_DIR); }

    PluginLibrary plugin_{VELLUX_PLUGIN_PATH};
    HostSession host_;
    std::vector<ProgressReport> reports_;
};

constexpr FlareLight kCentredLight{48.0, 32.0, {255, 255, 255}, 1.0, 0.0};

TEST_F(PluginInProcess, ProgressContinuesOneCountAcrossBands) {
    host_.SetReportTicks(0);
    host_.SetProgressSink([this](const ProgressReport& report) { reports_.push_back(report); });
    PluginPixels pixels(96, 64, 48);
    PluginInstance instance(plugin_, host_);
    RenderFrame(instance, kCentredLight, pixels, 20);
    instance.Finish();

    ASSERT_FALSE(reports_.empty());
    EXPECT_EQ(reports_.front().value, 0);
    EXPECT_EQ(reports_.back().value, 64);
    EXPECT_EQ(reports_.back().position, 1.0f);
    for (size_t i = 1; i < reports_.size(); ++i) ASSERT_GE(reports_[i].value, reports_[i - 1].value);
    for (int32_t top : {20, 40, 60})   // each band opens with a report at its first row
        EXPECT_TRUE(std::any_of(reports_.begin(), reports_.end(), [&](const auto& r) { return r.value == top; })) << top;
}

TEST_F(PluginInProcess, AnInterruptStopsTheRenderWithTheCancelCode) {
    PluginPixels whole(96, 64, 48);
    {
        PluginInstance instance(plugin_, host_);
        RenderFrame(instance, kCentredLight, whole, 0);
    }
    std::atomic<bool> interrupt{false};
    host_.SetInterruptFlag(&interrupt);
    host_.SetReportTicks(0);
    host_.SetProgressSink([&](const ProgressReport& report) { interrupt = report.value >= 10; });
    PluginPixels stopped(96, 64, 48);
    PluginInstance instance(plugin_, host_);
    try {
        RenderFrame(instance, kCentredLight, stopped, 0);
        FAIL() << "the render was not stopped";
    } catch (const PluginError& error) {
        EXPECT_EQ(error.code, kUserCanceled);
        EXPECT_NE(std::string(error.what()).find("GENF: The user canceled the plug-in operation (4)"), std::string::npos)
            << error.what();
    }
    // Rows after the stop are as they came; the complete render painted there.
    const auto blank = [](const PluginPixels& p, int32_t y) {
        const uint8_t* row = p.Row(y);
        return std::all_of(row, row + p.RowBytes(), [](uint8_t b) { return b == 0; });
    };
    EXPECT_TRUE(blank(stopped, 40));
    EXPECT_FALSE(blank(whole, 40));
}

}  // namespace
