// The visible fraction of the light's disc under a mask: coverage from alpha or luminance, the
// disc's minimum size, clipping at the frame's edges, and masks read from files.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <numbers>
#include <vector>

#include <OpenImageIO/imagebuf.h>

#include "engine/occlusion.h"

namespace {

using namespace vellux::engine;
namespace fs = std::filesystem;

// A w x h mask of `channels` channels (the last one alpha when there are 2 or 4) whose channel c
// at pixel (x, y) is value(x, y, c).
OIIO::ImageBuf Mask(int w, int h, int channels, const std::function<float(int, int, int)>& value) {
    OIIO::ImageSpec layout(w, h, channels, OIIO::TypeFloat);
    if (channels == 2 || channels == 4) layout.alpha_channel = channels - 1;
    std::vector<float> data(size_t(w * h * channels));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < channels; ++c) data[size_t((y * w + x) * channels + c)] = value(x, y, c);
    OIIO::ImageBuf image(layout);
    image.set_pixels(image.roi(), OIIO::TypeFloat, data.data());
    return image;
}

// One pixel's share of a disc of this radius.
double PixelOf(double radius) { return 1.0 / (std::numbers::pi * radius * radius); }

TEST(Occlusion, VisibleFractionFollowsTheCoveredShareOfTheDisc) {
    const double r = 8.0;
    for (float grey : {0.0f, 0.5f, 1.0f}) {
        const OcclusionMask mask = OcclusionMask::FromImage(Mask(40, 30, 1, [&](int, int, int) { return grey; }));
        EXPECT_NEAR(mask.VisibleFraction(20.3, 14.6, r), 1.0 - grey, 1e-12) << grey;
    }
    // Everything left of x = 20 hidden: half of a disc centred on that line, all or nothing of
    // one well to either side.
    const OcclusionMask left = OcclusionMask::FromImage(Mask(40, 30, 1, [](int x, int, int) { return x < 20 ? 1.0f : 0.0f; }));
    EXPECT_NEAR(left.VisibleFraction(20.0, 15.2, r), 0.5, PixelOf(r));
    EXPECT_EQ(left.VisibleFraction(8.5, 15.0, 6.0), 0.0);
    EXPECT_EQ(left.VisibleFraction(31.5, 15.0, 6.0), 1.0);
    // A quarter hidden: the disc centred on the corner of a covered block.
    const OcclusionMask corner =
        OcclusionMask::FromImage(Mask(40, 30, 1, [](int x, int y, int) { return x < 20 && y < 15 ? 1.0f : 0.0f; }));
    EXPECT_NEAR(corner.VisibleFraction(20.0, 15.0, r), 0.75, PixelOf(r));
}

TEST(Occlusion, CoverageIsAlphaWhenThereIsOneElseLuminance) {
    // White colour, clear alpha: the alpha decides.
    const OcclusionMask alpha = OcclusionMask::FromImage(Mask(16, 16, 4, [](int, int, int c) { return c == 3 ? 0.25f : 1.0f; }));
    EXPECT_NEAR(alpha.VisibleFraction(8, 8, 4), 0.75, 1e-6);
    // No alpha: Rec. 709 luminance, each primary alone.
    const double weights[3] = {0.2126, 0.7152, 0.0722};
    for (int primary = 0; primary < 3; ++primary) {
        const OcclusionMask rgb =
            OcclusionMask::FromImage(Mask(16, 16, 3, [&](int, int, int c) { return c == primary ? 1.0f : 0.0f; }));
        EXPECT_NEAR(rgb.VisibleFraction(8, 8, 4), 1.0 - weights[primary], 1e-6) << primary;
    }
    // Values outside 0..1 (a float mask) count as fully hidden or fully seen.
    const OcclusionMask bright = OcclusionMask::FromImage(Mask(16, 16, 1, [](int x, int, int) { return x < 8 ? 4.0f : -3.0f; }));
    EXPECT_NEAR(bright.VisibleFraction(8, 8, 4), 0.5, PixelOf(4));
}

TEST(Occlusion, TheDiscIsAtLeastThreePixelsAndClippedToTheFrame) {
    // Only the pixel under the light hidden: a point light still samples the whole 3-pixel disc.
    const OcclusionMask dot = OcclusionMask::FromImage(Mask(20, 20, 1, [](int x, int y, int) { return x == 10 && y == 10 ? 1.0f : 0.0f; }));
    const double point = dot.VisibleFraction(10.5, 10.5, 0.0);
    EXPECT_EQ(point, dot.VisibleFraction(10.5, 10.5, kMinOcclusionRadius));
    EXPECT_NEAR(point, 1.0 - PixelOf(3.0), 0.01);

    // Fully hidden frame: a disc half off the edge sees only the hidden pixels inside; one wholly
    // off the frame is not hidden at all.
    const OcclusionMask hidden = OcclusionMask::FromImage(Mask(20, 20, 1, [](int, int, int) { return 1.0f; }));
    EXPECT_EQ(hidden.VisibleFraction(0.0, 0.0, 6.0), 0.0);
    EXPECT_EQ(hidden.VisibleFraction(-2.0, 10.0, 6.0), 0.0);
    EXPECT_EQ(hidden.VisibleFraction(-10.0, 10.0, 6.0), 1.0);

    FlareLight light{10.5, 10.5, {}, 2.0, 0.0};
    EXPECT_DOUBLE_EQ(OccludedLight(light, dot).intensity, 2.0 * point);
}

TEST(Occlusion, MasksFromFilesMustHaveTheFrameSize) {
    const fs::path dir = fs::temp_directory_path() / ("vellux_occlusion_" + std::to_string(getpid()));
    fs::create_directories(dir);
    const fs::path file = dir / "mask.png";
    ASSERT_TRUE(Mask(12, 8, 4, [](int x, int, int c) { return c == 3 && x < 6 ? 1.0f : 0.0f; }).write(file.string(), OIIO::TypeUInt8));

    const OcclusionMask mask = OcclusionMask::Read(file, {12, 8});
    EXPECT_NEAR(mask.VisibleFraction(6.0, 4.0, 3.0), 0.5, PixelOf(3.0));
    for (const auto& [path, size] : {std::pair{file, FrameSize{12, 9}}, std::pair{dir / "missing.png", FrameSize{12, 8}}}) {
        try {
            OcclusionMask::Read(path, size);
            ADD_FAILURE() << path;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(std::string(error.what()).rfind(path.string() + ": ", 0), 0u) << error.what();
        }
    }
    fs::remove_all(dir);
}

}  // namespace
