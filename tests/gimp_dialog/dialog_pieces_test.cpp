// The GIMP dialog's GTK-free pieces: where the preview is on the drawable, the preview's picture
// against the run's own painting of the scaled frame, and the settings as the dialog keeps them.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include <OpenImageIO/imagebufalgo.h>

#include "engine/frame_render.h"
#include "engine/plugin_settings.h"
#include "gimp/dialog_settings.h"
#include "gimp/preview_flare.h"
#include "gimp/preview_geometry.h"
#include "host/resource_services.h"

namespace vellux::gimp {
namespace {

// ---- Geometry ----

struct ViewCase {
    PreviewView view;
    Point preview, drawable;   // one preview point and where it is on the drawable
};

TEST(PreviewGeometry, PreviewPointsLieOnTheDrawableThroughZoomBoundsAndScroll) {
    const ViewCase cases[] = {
        {{0.5, 0.5, 0, 0, 0, 0, 480, 270}, {330.0, 190.0}, {660.0, 380.0}},            // fitted, as the dialog opens
        {{1.0, 1.0, 0, 0, 560, 315, 800, 450}, {0.0, 0.0}, {560.0, 315.0}},            // 1:1, scrolled
        {{2.0, 2.0, 100, 40, 10, 6, 300, 200}, {0.5, 0.5}, {105.25, 43.25}},           // zoomed on a selection
        {{0.25, 0.2, 0, 0, 0, 0, 240, 108}, {240.0, 108.0}, {960.0, 540.0}},           // not quite the drawable's shape
    };
    for (const ViewCase& c : cases) {
        const Point on = DrawablePointOf(c.view, c.preview);
        EXPECT_DOUBLE_EQ(on.x, c.drawable.x);
        EXPECT_DOUBLE_EQ(on.y, c.drawable.y);
        const Point back = PreviewPointOf(c.view, on);
        EXPECT_DOUBLE_EQ(back.x, c.preview.x);
        EXPECT_DOUBLE_EQ(back.y, c.preview.y);
    }
}

TEST(PreviewGeometry, ScaledFrameHoldsTheWholeDrawableWithThePreviewAtItsPlace) {
    const PreviewView zoomed{2.0, 2.0, 100, 40, 10, 6, 300, 200};
    const ScaledFrame frame = ScaledFrameOf(zoomed, 960, 540);
    EXPECT_EQ(frame.width, 1920);
    EXPECT_EQ(frame.height, 1080);
    // the preview's pixel (i, j) is the frame's (visible + i, visible + j): the same drawable point
    EXPECT_EQ(frame.visibleX, 210);
    EXPECT_EQ(frame.visibleY, 86);
    const Point corner = DrawablePointOf(zoomed, {0.0, 0.0});
    EXPECT_DOUBLE_EQ(corner.x * zoomed.factorX, frame.visibleX);
    EXPECT_DOUBLE_EQ(corner.y * zoomed.factorY, frame.visibleY);
    EXPECT_DOUBLE_EQ(frame.pixelAspect, 1.0);

    const ScaledFrame squeezed = ScaledFrameOf({0.25, 0.2, 0, 0, 0, 0, 240, 108}, 960, 540);
    EXPECT_EQ(squeezed.width, 240);
    EXPECT_EQ(squeezed.height, 108);
    EXPECT_DOUBLE_EQ(squeezed.pixelAspect, 0.8);
    // a tiny drawable far out still makes a frame
    const ScaledFrame tiny = ScaledFrameOf({0.01, 0.01, 0, 0, 0, 0, 1, 1}, 3, 3);
    EXPECT_EQ(tiny.width, 1);
    EXPECT_EQ(tiny.height, 1);
}

// ---- The preview's picture ----

class PreviewPicture : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        setenv("VELLUX_TABLE_PATH", VELLUX_COMPILED_TABLES_DIR, 1);
        host::SetHomeDirectory(VELLUX_COMPILED_TABLES_DIR);
    }

    // A plate of the scaled frame's size: RGBA bytes in a gradient, alpha not all opaque.
    static OIIO::ImageBuf Plate(int width, int height) {
        OIIO::ImageBuf plate(OIIO::ImageSpec(width, height, 4, OIIO::TypeUInt8));
        const float a[4] = {0.1f, 0.2f, 0.3f, 1.0f}, b[4] = {0.8f, 0.3f, 0.1f, 0.5f};
        const float c[4] = {0.0f, 0.6f, 0.4f, 1.0f}, d[4] = {0.9f, 0.9f, 0.2f, 0.8f};
        OIIO::ImageBufAlgo::fill(plate, a, b, c, d);
        plate.specmod().alpha_channel = 3;
        return plate;
    }
};

// The preview shows exactly what the flare laid out on the whole scaled drawable gives in its
// part: a run's painting of that frame, cut to the preview.
TEST_F(PreviewPicture, IsTheScaledFramesPaintingCutToThePreview) {
    engine::RenderRequest request;
    request.plugin = VELLUX_PLUGIN_PATH;
    request.table = "CleanPrime";
    engine::SettingEdits settings = engine::DefaultSettingEdits();
    settings.ringSize = 0.4;
    settings.starFilter = 6;
    const struct {
        PreviewView view;
        engine::Blend blend;
    } cases[] = {
        {{0.25, 0.25, 0, 0, 40, 30, 120, 60}, engine::Blend::display},   // 960x540 at a quarter, scrolled
        {{0.5, 0.5, 200, 100, 8, 4, 100, 80}, engine::Blend::screen},     // a selection's part, zoomed
    };
    PreviewFlare preview;
    preview.Prepare(request);
    engine::FlareLight light;   // on the drawable
    light.x = 700.0, light.y = 200.0, light.intensity = 0.8;
    for (const auto& c : cases) {
        const ScaledFrame frame = ScaledFrameOf(c.view, 960, 540);
        engine::RenderRequest whole = request;
        whole.settings = settings;
        engine::Flare flare(engine::RequestSetup(whole));
        engine::FlareLight scaled = light;
        scaled.x *= c.view.factorX, scaled.y *= c.view.factorY;
        const OIIO::ImageBuf plate = Plate(frame.width, frame.height);
        const OIIO::ImageBuf painted = flare.Composite(plate, scaled, {0, "", c.blend});

        const OIIO::ROI shown(frame.visibleX, frame.visibleX + c.view.width, frame.visibleY,
                              frame.visibleY + c.view.height, 0, 1, 0, 4);
        std::vector<uint8_t> pixels(size_t(c.view.width) * size_t(c.view.height) * 4), expected(pixels.size()),
            before(pixels.size());
        ASSERT_TRUE(plate.get_pixels(shown, OIIO::TypeUInt8, pixels.data()));
        before = pixels;
        ASSERT_TRUE(painted.get_pixels(shown, OIIO::TypeUInt8, expected.data()));
        preview.Paint(pixels.data(), c.view.width, c.view.height, 4, c.view, frame, light, settings, c.blend);
        EXPECT_NE(expected, before) << "the flare reaches the preview's part";
        EXPECT_EQ(pixels, expected);
    }
}

TEST_F(PreviewPicture, RefusesAnUnknownTableWithTheEnginesWords) {
    engine::RenderRequest request;
    request.plugin = VELLUX_PLUGIN_PATH;
    request.table = "NoSuchTable";
    PreviewFlare preview;
    EXPECT_THROW(preview.Prepare(request), std::runtime_error);
    std::vector<uint8_t> pixels(16 * 9 * 3);
    EXPECT_THROW(preview.Paint(pixels.data(), 16, 9, 3, {}, {16, 9}, {}, {}, engine::Blend::display),
                 std::logic_error);
}

// ---- Settings ----

TEST(DialogSettings, ShowsEverySettingAndHandsBackOnlyWhatDiffers) {
    const ControlDataRec base = BaseSettings("");
    const struct {
        const char* given;
        const char* handedBack;
    } cases[] = {
        {"", ""},
        {"ring-size=0.5 halo=off", "ring-size=0.5 halo=off"},
        {"halo=off, ring-color=#102030 star-filter=6", "ring-color=#102030 star-filter=6 halo=off"},
        {"dissolve=0 glow=on", ""},   // the defaults themselves: nothing changed
    };
    for (const auto& c : cases) {
        const engine::SettingEdits full = FullSettings(base, c.given);
        EXPECT_TRUE(full.flareIntensity && full.ringColor && full.starFilter && full.halo && full.streaksOffFrame)
            << c.given;
        EXPECT_EQ(ChangedSettingsText(base, full), c.handedBack) << c.given;
    }
    EXPECT_THROW(FullSettings(base, "ring-size=big"), std::invalid_argument);
    EXPECT_THROW(BaseSettings("/nonexistent/look.json"), std::exception);
}

}  // namespace
}  // namespace vellux::gimp
