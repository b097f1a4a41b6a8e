// The settings dialog's preview on a plate: the plate cut to the preview's shape and scaled in
// linear light, and the flare shown over it by the render's blends in the plate's colour space.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <OpenImageIO/color.h>
#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include "engine/preview_plate.h"

namespace {

using namespace vellux::engine;
namespace fs = std::filesystem;

class PreviewPlateTest : public testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("vellux_preview_plate_" + std::to_string(getpid()));
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    // An RGB plate of `width` x `height` whose pixel (x, y) is value(x, y) in every channel.
    template <typename Value>
    fs::path Plate(const std::string& name, int width, int height, OIIO::TypeDesc type, Value value) {
        OIIO::ImageBuf image(OIIO::ImageSpec(width, height, 3, OIIO::TypeFloat));
        for (OIIO::ImageBuf::Iterator<float> p(image); !p.done(); ++p)
            for (int c = 0; c < 3; ++c) p[c] = value(p.x(), p.y());
        const fs::path file = dir_ / name;
        EXPECT_TRUE(image.write(file.string(), type)) << image.geterror();
        return file;
    }

    fs::path dir_;
};

TEST_F(PreviewPlateTest, ThePlateIsCutAboutItsCentreToThePreviewsShapeAndScaledInLinearLight) {
    // Thirds: black, then columns of black and white in turn, then white. The preview is square,
    // so only the middle third is kept; halved, each pair of columns averages in linear light.
    const fs::path file = Plate("thirds.png", 300, 100, OIIO::TypeUInt8, [](int x, int) {
        return x < 100 ? 0.0f : x >= 200 ? 1.0f : float(x % 2);
    });
    const PreviewPlate plate({file, "", Blend::display});
    EXPECT_EQ(plate.colorspace(), "sRGB");
    const std::vector<float> scaled = plate.Scaled({50, 50});
    ASSERT_EQ(scaled.size(), 50u * 50u * 3u);
    const float halfLight = OIIO::linear_to_sRGB(0.5f);   // 0.735; averaged in sRGB it would be 0.5
    // Within the filter's reach of the edges the pattern is not whole; inside, every pixel.
    for (int y = 3; y < 47; ++y)
        for (int x = 3; x < 47; ++x) ASSERT_NEAR(scaled[size_t(y * 50 + x) * 3], halfLight, 0.01f) << x << "," << y;

    // A plate of the preview's own size is taken as it is.
    const std::vector<float> same = plate.Scaled({300, 100});
    EXPECT_EQ(same[(10 * 300 + 150) * 3], 0.0f);
    EXPECT_EQ(same[(10 * 300 + 151) * 3], 1.0f);
}

TEST_F(PreviewPlateTest, TheFlareShowsOverThePlateAsTheRenderBlendsItInThePlatesSpace) {
    // A flat plate, and a flare of one pixel at level 100 in red; each plate in its own colour
    // space, shown in sRGB. Where the flare adds nothing the plate shows as it is.
    const fs::path linearExr = Plate("linear.exr", 8, 4, OIIO::TypeHalf, [](int, int) { return 0.2f; });
    const fs::path bytes = Plate("bytes.png", 8, 4, OIIO::TypeUInt8, [](int, int) { return 0.2f; });
    const auto shown = [](float linear) { return int(std::floor(OIIO::linear_to_sRGB(linear) * 255.0f + 0.5f)); };
    const int plate = shown(0.2f);                                   // 124
    const float flare = OIIO::sRGB_to_linear(100.0f / 255.0f);
    const struct {
        fs::path file;
        std::string colorspace;
        Blend blend;
        int unlit;   // the plate where the flare adds nothing
        int lit;     // the red under the flare
    } cases[] = {
        {linearExr, "", Blend::display, plate, plate + 100},         // display levels add
        {linearExr, "", Blend::add, plate, shown(0.2f + flare)},     // linear light adds
        {linearExr, "", Blend::screen, plate, int(std::floor((1.0f - (1.0f - plate / 255.0f) * (155.0f / 255.0f)) * 255.0f + 0.5f))},
        {bytes, "", Blend::display, 51, 151},                        // an sRGB PNG: its bytes, and the plug-in's add
        {bytes, "linear", Blend::display, plate, plate + 100},       // the same bytes taken as linear light
    };
    for (const auto& c : cases) {
        PreviewPlate preview({c.file, c.colorspace, c.blend});
        std::vector<uint8_t> pixels(6 * 3 * 4, 0);                   // a 6x3 preview: the plate is cut and scaled
        pixels[(1 * 6 + 2) * 4 + 1] = 100;
        preview.Compose(pixels.data(), 6, 3);
        const std::string what = c.file.filename().string() + " " + c.colorspace + " " + BlendName(c.blend);
        EXPECT_NEAR(pixels[(1 * 6 + 2) * 4 + 1], c.lit, 1) << what;
        EXPECT_EQ(pixels[(1 * 6 + 2) * 4 + 2], c.unlit) << what;
        for (int i = 0; i < 18; ++i) {
            if (i == 1 * 6 + 2) continue;
            for (int channel = 1; channel <= 3; ++channel) ASSERT_EQ(pixels[size_t(i) * 4 + size_t(channel)], c.unlit) << what;
        }
    }
}

// A float plate's preview is composed a part of its rows on each thread: the same bytes on any
// number of them, for every blend.
TEST_F(PreviewPlateTest, APreviewIsTheSameOnEveryThreadCount) {
    const fs::path exr = Plate("ramp.exr", 200, 120, OIIO::TypeHalf, [](int x, int y) { return 0.01f * float(x % 97) + 0.002f * float(y); });
    std::vector<uint8_t> flare(200 * 120 * 4);
    for (size_t i = 0; i < flare.size(); ++i) flare[i] = i % 4 == 0 ? 0 : uint8_t(i * 13 % 256);
    for (const Blend blend : {Blend::display, Blend::add, Blend::screen}) {
        SCOPED_TRACE(BlendName(blend));
        std::vector<uint8_t> one = flare;
        PreviewPlate({exr, "", blend, 1}).Compose(one.data(), 200, 120);
        ASSERT_NE(one, flare);
        for (const int32_t threads : {2, 3}) {
            std::vector<uint8_t> many = flare;
            PreviewPlate({exr, "", blend, threads}).Compose(many.data(), 200, 120);
            EXPECT_EQ(many, one) << threads << " threads";
        }
    }
}

}  // namespace
