// Colour spaces: a flare over black looks the same in an 8-bit render and in a linear float
// render viewed through an sRGB display transform; passes carry their colour space.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include "engine/engine.h"
#include "host/resource_services.h"

namespace {

using namespace vellux::engine;

class Colour : public testing::Test {
protected:
    static void SetUpTestSuite() { vellux::host::SetHomeDirectory(VELLUX_COMPILED_TABLES_DIR); }

    static FlareSetup FlareWithStars() {
        FlareSetup setup;
        setup.plugin = VELLUX_PLUGIN_PATH;
        setup.edits.starFilter = 4;
        return setup;
    }
    static FlareLight Light() {
        FlareLight light;
        light.x = 130.0;
        light.y = 70.0;
        light.color = {255, 210, 160};
        return light;
    }
    static std::vector<float> Values(const OIIO::ImageBuf& image) {
        std::vector<float> values(size_t(image.spec().image_pixels()) * 3);
        OIIO::ROI rgb = image.roi();
        rgb.chend = 3;
        image.get_pixels(rgb, OIIO::TypeFloat, values.data());
        return values;
    }
};

// The display render is a 16-bit one, so that both go through the plug-in's 48-bit painters (its
// 32-bit path dithers and uses its own falloff table, a few levels apart by design); the linear one,
// viewed, must land within one 8-bit level of it.
TEST_F(Colour, ALinearRenderViewedAsSrgbMatchesTheDisplayRenderWithinOneLevel) {
    Flare flare(FlareWithStars());
    const OIIO::ImageBuf blackDisplay(OIIO::ImageSpec(320, 180, 3, OIIO::TypeUInt16), OIIO::InitializePixels::Yes);
    const OIIO::ImageBuf blackLinear(OIIO::ImageSpec(320, 180, 3, OIIO::TypeFloat), OIIO::InitializePixels::Yes);
    const OIIO::ImageBuf display = flare.Composite(blackDisplay, Light(), {});
    const OIIO::ImageBuf linear = flare.Composite(blackLinear, Light(), {});
    EXPECT_EQ(linear.spec().get_string_attribute("oiio:ColorSpace"), "linear");
    const OIIO::ImageBuf viewed = OIIO::ImageBufAlgo::colorconvert(linear, "linear", "sRGB", false);
    const std::vector<float> a = Values(display), b = Values(viewed), raw = Values(linear);
    float worst = 0.0f, brightest = 0.0f;
    size_t changed = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        // As a display shows it: the linear render goes past white where the flare was recovered
        // above the plug-in's full level.
        worst = std::max(worst, std::abs(a[i] * 255.0f - std::min(b[i], 1.0f) * 255.0f));
        brightest = std::max(brightest, a[i]);
        changed += std::abs(raw[i] - a[i]) > 2.0f / 255.0f;
    }
    EXPECT_LE(worst, 1.0f);
    EXPECT_GT(brightest, 0.5f);   // a real flare was compared
    EXPECT_GT(changed, 1000u);    // and linear values really differ from the display ones
}

TEST_F(Colour, PassesAreConvertedTaggedAndKeepTheirAlphaRule) {
    Flare flare(FlareWithStars());
    const OIIO::ImageBuf pass = flare.Pass({160, 90}, Light(), 0, ChooseColorspace("--colorspace", "", true));
    const OIIO::ImageBuf display = flare.Pass({160, 90}, Light(), 0);
    EXPECT_EQ(pass.spec().get_string_attribute("oiio:ColorSpace"), "linear");
    for (OIIO::ImageBuf::ConstIterator<float> p(pass), d(display); !p.done(); ++p, ++d) {
        ASSERT_EQ(p[3], std::min(std::max({p[0], p[1], p[2]}), 1.0f));
        if (d[0] <= 1.0f) ASSERT_LE(p[0], d[0] + 1e-6f);   // linear is never brighter than sRGB below 1
    }
    EXPECT_EQ(ChooseColorspace("--colorspace", "", false), "sRGB");
    EXPECT_EQ(ChooseColorspace("--colorspace", "srgb", true), "sRGB");
    EXPECT_THROW(ChooseColorspace("--colorspace", "ACEScg-typo", true), std::invalid_argument);
}

// Every level in every channel, with other levels beside it: the tables a space's conversion is
// looked up in give bit for bit what converting the pass as an image gives.
TEST_F(Colour, LookedUpLevelsAreExactlyTheConvertedOnes) {
    PluginPixels levels(256, 256, 48);
    for (size_t i = 0; i < 65536; ++i) {
        levels.SetChannel48(i, 0, uint16_t(i));
        levels.SetChannel48(i, 1, uint16_t(i * 40503u));
        levels.SetChannel48(i, 2, uint16_t(65535u - i));
    }
    ASSERT_EQ(LevelTablesFor("sRGB"), nullptr);   // nothing to convert
    ASSERT_NE(LevelTablesFor("linear"), nullptr);
    OIIO::ImageBuf converted = FlarePassFromPlugin(levels);
    ConvertPass(converted, "linear");
    std::vector<float> values(65536 * 3), looked(65536 * 4);
    for (size_t i = 0; i < 65536; ++i)
        for (int c = 0; c < 3; ++c) values[i * 3 + size_t(c)] = FromPluginScaleFloat(levels.Channel48(i, c));
    FillPassFromLevels(values.data(), 256, 256, "linear", looked.data());
    EXPECT_EQ(std::memcmp(looked.data(), converted.localpixels(), converted.spec().image_bytes()), 0);
}

TEST_F(Colour, AnSrgbFloatPlateGetsTheFlareAsItIs) {
    Flare flare(FlareWithStars());
    const OIIO::ImageBuf black(OIIO::ImageSpec(160, 90, 3, OIIO::TypeFloat), OIIO::InitializePixels::Yes);
    const OIIO::ImageBuf plate = flare.Composite(black, Light(), {0, "sRGB"});
    const OIIO::ImageBuf pass = flare.Pass({160, 90}, Light(), 0);
    EXPECT_EQ(Values(plate), Values(pass));
}

}  // namespace
