// Pixels on their way into the plug-in's scale and back, through files of each kind.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include "engine/frame_image.h"
#include "engine/plugin_pixels.h"

namespace {

using namespace vellux::engine;
namespace fs = std::filesystem;

TEST(PluginScale, SixteenBitRoundTripsWithinHalfAStep) {
    EXPECT_EQ(ToPluginScale(uint16_t(0)), 0);
    EXPECT_EQ(ToPluginScale(uint16_t(65535)), kFullChannel);
    uint16_t previous = 0;
    for (uint32_t v = 0; v <= 65535; ++v) {
        const uint16_t p = ToPluginScale(uint16_t(v));
        ASSERT_GE(p, previous);
        ASSERT_LE(std::abs(int(FromPluginScale16(p)) - int(v)), 2) << v;   // a step is 257 / 64
        previous = p;
    }
    for (uint32_t p = 0; p <= kFullChannel; ++p) ASSERT_EQ(ToPluginScale(FromPluginScale16(uint16_t(p))), p);
    EXPECT_EQ(FromPluginScale16(uint16_t(kFullChannel)), 65535);
    EXPECT_EQ(FromPluginScale16(65535), 65535);   // beyond full intensity saturates
}

TEST(PluginScale, FloatIsClampedToTheUnitRange) {
    EXPECT_EQ(ToPluginScale(-0.5f), 0);
    EXPECT_EQ(ToPluginScale(std::nanf("")), 0);
    EXPECT_EQ(ToPluginScale(7.0f), kFullChannel);
    EXPECT_EQ(ToPluginScale(0.5f), kFullChannel / 2);
    for (uint32_t p = 0; p <= kFullChannel; ++p) ASSERT_EQ(ToPluginScale(FromPluginScaleFloat(uint16_t(p))), p);
}

class FrameImageFile : public testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("vellux_frame_" + std::to_string(getpid()));
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    // A w x h image of `channels` channels whose value at index i is values(i).
    template <typename Value, typename Make>
    fs::path Write(const std::string& name, int w, int h, int channels, Make values) {
        OIIO::ImageSpec spec(w, h, channels, OIIO::TypeDescFromC<Value>::value());
        if (channels == 4 || channels == 2) spec.alpha_channel = channels - 1;
        spec.attribute("oiio:UnassociatedAlpha", 1);   // store the values as given
        std::vector<Value> data(size_t(w * h * channels));
        for (size_t i = 0; i < data.size(); ++i) data[i] = values(i);
        OIIO::ImageBuf image(spec);
        image.set_pixels(image.roi(), spec.format, data.data());
        const fs::path path = dir_ / name;
        EXPECT_TRUE(image.write(path.string())) << image.geterror();
        return path;
    }

    template <typename Value>
    static std::vector<Value> Read(const fs::path& path, int& channels) {
        OIIO::ImageSpec config;
        config.attribute("oiio:UnassociatedAlpha", 1);
        OIIO::ImageBuf image(path.string(), 0, 0, nullptr, &config);
        image.read(0, 0, true, OIIO::TypeDescFromC<Value>::value());
        channels = image.nchannels();
        std::vector<Value> data(image.spec().image_pixels() * size_t(channels));
        image.get_pixels(image.roi(), OIIO::TypeDescFromC<Value>::value(), data.data());
        return data;
    }

    fs::path dir_;
};

TEST_F(FrameImageFile, UnreadableFilesNameTheFile) {
    const fs::path text = dir_ / "notes.png";
    std::ofstream(text) << "not an image";
    for (const fs::path& path : {dir_ / "missing.png", text, dir_}) {
        try {
            FrameImage::Read(path);
            ADD_FAILURE() << path;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(std::string(error.what()).rfind(path.string() + ": ", 0), 0u) << error.what();
        }
    }
    EXPECT_THROW(CheckOutputFormat(dir_ / "out.unknown"), std::runtime_error);
    EXPECT_NO_THROW(CheckOutputFormat(dir_ / "out.exr"));
}

// Damaged PNGs get one message naming the file, and nothing from the PNG library on stderr.
TEST_F(FrameImageFile, DamagedPngsAreNamedAndTheLibraryStaysQuiet) {
    OIIO::ImageBuf good(OIIO::ImageSpec(64, 32, 3, OIIO::TypeUInt8));
    const float grey[] = {0.3f, 0.5f, 0.7f};
    OIIO::ImageBufAlgo::fill(good, grey);
    ASSERT_TRUE(good.write((dir_ / "good.png").string()));
    const std::string bytes = [&] {
        std::ifstream in(dir_ / "good.png", std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }();
    const struct {
        const char* name;
        std::string content;
        const char* message;
    } cases[] = {
        {"header-only.png", bytes.substr(0, 8), "ends early (truncated)"},
        {"in-ihdr.png", bytes.substr(0, 20), "ends early (truncated)"},
        {"in-data.png", bytes.substr(0, bytes.size() - 30), "ends early (truncated)"},
        {"no-end.png", bytes.substr(0, bytes.size() - 12), "ends early (truncated)"},
        {"flipped.png", bytes.substr(0, 60) + char(bytes[60] ^ 0x5a) + bytes.substr(61), "a chunk's checksum is wrong"},
        {"huge.png", bytes.substr(0, 8) + std::string("\xff\xff\xff\xf0IHDR", 8), "a chunk claims"},
    };
    for (const auto& c : cases) {
        const fs::path file = dir_ / c.name;
        std::ofstream(file, std::ios::binary) << c.content;
        for (int way = 0; way < 2; ++way) {   // the header alone, and the whole image
            testing::internal::CaptureStderr();
            try {
                way == 0 ? void(ReadImageSize(file)) : void(FrameImage::Read(file));
                ADD_FAILURE() << c.name;
            } catch (const std::runtime_error& error) {
                const std::string what = error.what();
                EXPECT_EQ(what.rfind(file.string() + ": cannot read the image: the PNG file ", 0), 0u) << what;
                EXPECT_NE(what.find(c.message), std::string::npos) << what;
            }
            EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << c.name;
        }
    }
    EXPECT_NO_THROW(FrameImage::Read(dir_ / "good.png"));
}

}  // namespace
