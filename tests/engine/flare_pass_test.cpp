// Flare passes: the plug-in's render on black as float RGBA, added to plates, written to files.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <vector>

#include <OpenImageIO/imagebuf.h>

#include "host/host_session.h"
#include "host/plugin_library.h"
#include "host/resource_services.h"
#include "engine/flare.h"
#include "engine/flare_pass.h"
#include "engine/frame_image.h"

namespace {

using namespace vellux::engine;
namespace fs = std::filesystem;

std::vector<float> Floats(const OIIO::ImageBuf& image) {
    std::vector<float> values(image.spec().image_pixels() * size_t(image.nchannels()));
    image.get_pixels(image.roi(), OIIO::TypeFloat, values.data());
    return values;
}

OIIO::ImageBuf FloatImage(int w, int h, int channels, const std::vector<float>& values) {
    OIIO::ImageSpec layout(w, h, channels, OIIO::TypeFloat);
    if (channels == 4) layout.alpha_channel = 3;
    OIIO::ImageBuf image(layout);
    image.set_pixels(image.roi(), OIIO::TypeFloat, values.data());
    return image;
}

// A file's pixels as float, as a float plate is composited.
OIIO::ImageBuf Float(const fs::path& file) {
    OIIO::ImageBuf image(file.string());
    image.read(0, 0, true, OIIO::TypeFloat);
    return image;
}

class FlarePass : public testing::Test {
protected:
    static void SetUpTestSuite() { vellux::host::SetHomeDirectory(VELLUX_COMPILED_TABLES_DIR); }
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("vellux_pass_" + std::to_string(getpid()));
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    // Two pixels painted: one saturating red, one faint and coloured.
    static OIIO::ImageBuf SyntheticPass() {
        PluginPixels painted(3, 1, 48);
        const uint16_t values[2][3] = {{uint16_t(kFullChannel), 8160, 0}, {40, 1632, 816}};
        for (size_t i = 0; i < 2; ++i)
            for (int c = 0; c < 3; ++c) painted.SetChannel48(i, c, values[i][c]);
        return FlarePassFromPlugin(painted);
    }

    fs::path dir_;
};

TEST_F(FlarePass, ChannelsAreOnTheUnitScaleAndAlphaIsTheBrightest) {
    const std::vector<float> v = Floats(SyntheticPass());
    const std::vector<float> expected = {1.0f, 0.5f, 0.0f, 1.0f, 40 / 16320.0f, 0.1f, 0.05f, 0.1f, 0, 0, 0, 0};
    ASSERT_EQ(v.size(), expected.size());
    for (size_t i = 0; i < v.size(); ++i) EXPECT_FLOAT_EQ(v[i], expected[i]) << i;
}

TEST_F(FlarePass, FloatPlatesKeepValuesBeyondTheUnitRangeAndTheirAlpha) {
    const std::vector<float> plate = {3.5f, -0.25f, 0.5f, 0.3f, 12.0f, 1.0f, 0.0f, 0.7f, 0.0f, 0.0f, 0.0f, 0.0f};
    const fs::path file = dir_ / "plate.exr";
    ASSERT_TRUE(FloatImage(3, 1, 4, plate).write(file.string(), OIIO::TypeHalf));
    ASSERT_TRUE(FloatImage(3, 1, 4, plate).write((dir_ / "plate.png").string(), OIIO::TypeUInt16));
    // Float files are read as float and remember their type; integer ones stay integers.
    const PlateFile plateFile = ReadPlateFile(file);
    const OIIO::ImageBuf& read = plateFile.parts[0];
    EXPECT_EQ(read.spec().format, OIIO::TypeFloat);
    EXPECT_EQ(plateFile.stored[0].format, OIIO::TypeHalf);
    EXPECT_EQ(ReadPlateFile(dir_ / "plate.png").parts[0].spec().format, OIIO::TypeUInt16);
    // Added in linear light, a linear plate is plate + pass, its alpha kept and its values outside
    // 0..1 with it.
    FlareSetup setup;
    setup.plugin = VELLUX_PLUGIN_PATH;
    Flare flare(setup);
    const FlareLight light{1.0, 0.0, {255, 255, 255}, 1.0, 0.0};
    const std::vector<float> pass = Floats(flare.Pass({3, 1}, light, 0, "linear"));
    const std::vector<float> out = Floats(flare.Composite(read, light, {0, "", Blend::add}));
    ASSERT_EQ(out.size(), plate.size());
    for (size_t i = 0; i < out.size(); ++i) {
        const float expected = i % 4 == 3 ? plate[i] : plate[i] + pass[i];
        EXPECT_NEAR(out[i], expected, std::abs(expected) * 1e-3f) << i;
    }
    EXPECT_GT(pass[4], 0.0f);   // the light's own pixel has a flare to add
}

TEST_F(FlarePass, FilesReadBackWithAlphaAndTheirValues) {
    const OIIO::ImageBuf pass = SyntheticPass();
    const std::vector<float> expected = Floats(pass);
    struct Case {
        const char* name;
        bool half;
        OIIO::TypeDesc type;
        float tolerance;   // relative to 1
    };
    for (const Case& c : {Case{"pass.exr", false, OIIO::TypeFloat, 0.0f}, Case{"half.exr", true, OIIO::TypeHalf, 1e-3f},
                          Case{"pass.png", false, OIIO::TypeUInt16, 4e-5f}, Case{"pass.tif", false, OIIO::TypeUInt16, 2e-5f}}) {
        const fs::path file = dir_ / c.name;
        WriteFlarePass(pass, file, c.half);
        OIIO::ImageBuf back(file.string());
        ASSERT_TRUE(back.read(0, 0, true, OIIO::TypeFloat)) << back.geterror();
        EXPECT_EQ(back.nativespec().format, c.type) << c.name;
        ASSERT_EQ(back.nchannels(), 4) << c.name;
        EXPECT_EQ(back.spec().alpha_channel, 3) << c.name;
        const std::vector<float> values = Floats(back);
        for (size_t i = 0; i < values.size(); ++i)
            EXPECT_NEAR(values[i], expected[i], c.tolerance) << c.name << " " << i;
    }
}

TEST_F(FlarePass, FailedWritesLeaveNothing) {
    const OIIO::ImageBuf pass = SyntheticPass();
    const fs::path existing = dir_ / "kept.exr";
    std::ofstream(existing) << "before";
    EXPECT_THROW(WriteFlarePass(pass, dir_ / "pass.jpg"), std::runtime_error);        // not a pass format
    EXPECT_THROW(WriteFlarePass(pass, dir_ / "pass.png", true), std::runtime_error);  // half outside EXR
    EXPECT_THROW(WriteFlarePass(pass, existing / "pass.exr"), std::runtime_error);   // a folder that cannot be made
    EXPECT_THROW(WriteImageFile(OIIO::ImageBuf(), existing, OIIO::TypeFloat), std::runtime_error);

    std::vector<fs::path> left;
    for (const auto& entry : fs::directory_iterator(dir_)) left.push_back(entry.path());
    ASSERT_EQ(left, std::vector<fs::path>{existing});
    std::ifstream in(existing);
    std::string text;
    in >> text;
    EXPECT_EQ(text, "before");
}

}  // namespace
