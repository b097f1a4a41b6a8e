// Plates kept whole: a flare changes a plate's colour over its display window and nothing else;
// channels, parts, windows, pixel types, tiling, compression and metadata come through a render.
// Each whole plate is checked against the same plate stripped to plain RGB(A), whose render is the
// flare a plate without extras gets.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/imageio.h>

#include "engine/engine.h"
#include "host/resource_services.h"

namespace {

using namespace vellux::engine;
namespace fs = std::filesystem;

// Values that differ in every pixel and channel, below 1 so the flare can brighten them, in the
// spec's pixel type.
OIIO::ImageBuf Busy(const OIIO::ImageSpec& spec) {
    OIIO::ImageSpec floats = spec;
    floats.set_format(OIIO::TypeFloat);
    OIIO::ImageBuf image(floats);
    for (OIIO::ImageBuf::Iterator<float> p(image); !p.done(); ++p)
        for (int c = 0; c < spec.nchannels; ++c) p[c] = float((p.x() * 7 + p.y() * 13 + c * 29 + 64) % 97) / 200.0f;
    OIIO::ImageBuf typed;
    EXPECT_TRUE(OIIO::ImageBufAlgo::copy(typed, image, spec.format));
    return typed;
}

std::vector<float> Values(const OIIO::ImageBuf& image, OIIO::ROI roi) {
    std::vector<float> values(roi.npixels() * size_t(roi.nchannels()));
    EXPECT_TRUE(image.get_pixels(roi, OIIO::TypeFloat, values.data()));
    return values;
}

// A file's part, read whole (its stored layout stays in nativespec()).
OIIO::ImageBuf Read(const fs::path& file, int part = 0) {
    OIIO::ImageBuf image(file.string(), part, 0);
    EXPECT_TRUE(image.read(part, 0, true)) << image.geterror();
    return image;
}

OIIO::ROI Channels(OIIO::ROI roi, int begin, int end) {
    roi.chbegin = begin;
    roi.chend = end;
    return roi;
}

class Plate : public testing::Test {
protected:
    static void SetUpTestSuite() { vellux::host::SetHomeDirectory(VELLUX_COMPILED_TABLES_DIR); }
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("vellux_plate_" + std::to_string(getpid()));
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    // Renders `input` to `name` in the test folder with a starred flare; returns the output path.
    fs::path Render(const fs::path& input, const std::string& name) {
        RenderRequest request;
        request.input = input;
        request.output = dir_ / name;
        request.plugin = VELLUX_PLUGIN_PATH;
        request.settings.starFilter = 4;
        RenderFlareImage(request);
        return request.output;
    }

    static void Write(const OIIO::ImageBuf& image, const fs::path& file) {
        ASSERT_TRUE(image.write(file.string())) << image.geterror();
    }

    fs::path dir_;
};

// An EXR with overscan, depth and an AOV layer in mixed pixel types, tiled, compressed, with its
// own metadata: everything but the colour of the display window comes back as it was.
TEST_F(Plate, AnExrKeepsChannelsWindowsTypesTilesAndMetadata) {
    OIIO::ImageSpec spec(112, 72, 8, OIIO::TypeHalf);
    spec.x = -8, spec.y = -4;
    spec.full_x = 0, spec.full_y = 0, spec.full_width = 96, spec.full_height = 64;
    spec.channelnames = {"R", "G", "B", "A", "Z", "diffuse.R", "diffuse.G", "diffuse.B"};
    spec.alpha_channel = 3;
    spec.z_channel = 4;
    const OIIO::ImageBuf plate = Busy(spec);
    OIIO::ImageBuf stored = plate;
    stored.specmod().attribute("compression", "zip");
    stored.specmod().attribute("studio:shot", "sh010");
    stored.specmod().attribute("studio:take", 3);
    const std::vector<OIIO::TypeDesc> types{OIIO::TypeHalf, OIIO::TypeHalf, OIIO::TypeHalf, OIIO::TypeHalf,
                                            OIIO::TypeFloat, OIIO::TypeHalf, OIIO::TypeHalf, OIIO::TypeHalf};
    stored.set_write_format(types);
    stored.set_write_tiles(32, 32);
    Write(stored, dir_ / "whole.exr");
    // The same colour, alone, over the display window.
    OIIO::ImageBuf plain = OIIO::ImageBufAlgo::cut(OIIO::ImageBufAlgo::channels(plate, 4, {0, 1, 2, 3}),
                                                   OIIO::ROI(0, 96, 0, 64));
    Write(plain, dir_ / "plain.exr");

    const fs::path written = Render(dir_ / "whole.exr", "whole-out.exr");
    const OIIO::ImageBuf out = Read(written), flared = Read(Render(dir_ / "plain.exr", "plain-out.exr"));
    const OIIO::ImageSpec got = OIIO::ImageInput::open(written.string())->spec();   // as stored, uncached
    EXPECT_EQ(got.channelnames, spec.channelnames);
    EXPECT_EQ(got.channelformats, types);
    EXPECT_EQ(OIIO::get_roi(got), OIIO::get_roi(spec));
    EXPECT_EQ(OIIO::get_roi_full(got), OIIO::get_roi_full(spec));
    EXPECT_EQ(got.tile_width, 32);
    EXPECT_EQ(got.get_string_attribute("compression"), "zip");
    EXPECT_EQ(got.get_string_attribute("studio:shot"), "sh010");
    EXPECT_EQ(got.get_int_attribute("studio:take"), 3);
    EXPECT_EQ(std::string(got.get_string_attribute("Software")).rfind("Vellux ", 0), 0u);
    EXPECT_TRUE(ReadSettingsText(got.get_string_attribute("Vellux:Settings")).settings.has_value());
    EXPECT_NE(got.get_string_attribute("Vellux:Light").find("\"intensity\""), std::string::npos);

    const OIIO::ROI data = OIIO::get_roi(spec), display = OIIO::get_roi_full(spec);
    EXPECT_EQ(Values(out, Channels(data, 3, 8)), Values(plate, Channels(data, 3, 8)));   // A, Z, the AOV
    EXPECT_EQ(Values(out, Channels(display, 0, 3)), Values(flared, Channels(display, 0, 3)));
    EXPECT_NE(Values(out, Channels(display, 0, 3)), Values(plate, Channels(display, 0, 3)));
    for (const OIIO::ROI overscan : {OIIO::ROI(-8, 0, -4, 68), OIIO::ROI(96, 104, -4, 68), OIIO::ROI(0, 96, -4, 0)})
        EXPECT_EQ(Values(out, Channels(overscan, 0, 3)), Values(plate, Channels(overscan, 0, 3)));
}

// A multi-part EXR: the flare goes on the part with colour, the depth part comes back as it was.
TEST_F(Plate, AMultiPartExrKeepsEveryPart) {
    OIIO::ImageSpec beauty(80, 48, 4, OIIO::TypeHalf), depth(80, 48, 1, OIIO::TypeFloat);
    beauty.alpha_channel = 3;
    beauty.attribute("name", "beauty");
    depth.channelnames = {"Z"};
    depth.attribute("name", "depth");
    const OIIO::ImageBuf parts[] = {Busy(depth), Busy(beauty)};
    {
        const auto out = OIIO::ImageOutput::create("exr");
        const OIIO::ImageSpec specs[] = {depth, beauty};
        ASSERT_TRUE(out->open((dir_ / "parts.exr").string(), 2, specs));
        ASSERT_TRUE(parts[0].write(out.get()));
        ASSERT_TRUE(out->open((dir_ / "parts.exr").string(), beauty, OIIO::ImageOutput::AppendSubimage));
        ASSERT_TRUE(parts[1].write(out.get()));
        ASSERT_TRUE(out->close());
    }
    Write(parts[1], dir_ / "beauty.exr");

    const fs::path out = Render(dir_ / "parts.exr", "parts-out.exr");
    const OIIO::ImageBuf flared = Read(Render(dir_ / "beauty.exr", "beauty-out.exr"));
    const OIIO::ImageBuf outDepth = Read(out, 0), outBeauty = Read(out, 1);
    EXPECT_EQ(outBeauty.nsubimages(), 2);
    EXPECT_EQ(outDepth.spec().get_string_attribute("name"), "depth");
    EXPECT_EQ(Values(outDepth, outDepth.roi()), Values(parts[0], parts[0].roi()));
    EXPECT_EQ(Values(outBeauty, outBeauty.roi()), Values(flared, flared.roi()));
    EXPECT_NE(Values(outBeauty, outBeauty.roi()), Values(parts[1], parts[1].roi()));
}

// Integer plates keep their layout: RGB stays three channels; grey with alpha becomes RGB with the
// same alpha, flared as the RGB plate with the grey repeated is.
TEST_F(Plate, IntegerPlatesKeepTheirChannels) {
    struct Case {
        const char* name;
        int channels;
        OIIO::TypeDesc type;
        std::vector<int> asRgb;   // the plate's channels as R, G, B (, A)
        int outChannels;
    };
    const Case cases[] = {{"rgb8.png", 3, OIIO::TypeUInt8, {0, 1, 2}, 3},
                          {"rgb16.tif", 3, OIIO::TypeUInt16, {0, 1, 2}, 3},
                          {"grey-alpha.png", 2, OIIO::TypeUInt8, {0, 0, 0, 1}, 4}};
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        OIIO::ImageSpec spec(64, 40, test.channels, test.type);
        if (test.channels == 2) spec.channelnames = {"Y", "A"}, spec.alpha_channel = 1;
        const OIIO::ImageBuf plate = Busy(spec);
        Write(plate, dir_ / test.name);
        const OIIO::ImageBuf rgb = OIIO::ImageBufAlgo::channels(plate, int(test.asRgb.size()), test.asRgb);
        Write(rgb, dir_ / (std::string("rgb-") + test.name));

        const OIIO::ImageBuf out = Read(Render(dir_ / test.name, std::string("out-") + test.name));
        const OIIO::ImageBuf flared = Read(Render(dir_ / (std::string("rgb-") + test.name), std::string("rgb-out-") + test.name));
        EXPECT_EQ(out.spec().nchannels, test.outChannels);
        EXPECT_EQ(out.spec().format, test.type);
        EXPECT_EQ(Values(out, out.roi()), Values(flared, flared.roi()));
    }
}

// Where the flare goes in a part's buffer.
TEST(PlateLayout, FindsColourByNameThenByPositionAndTellsPlainBuffers) {
    struct Case {
        std::vector<std::string> names;
        int alpha;
        std::array<int, 3> colour;
        bool plain;
    };
    const Case cases[] = {
        {{"R", "G", "B"}, -1, {0, 1, 2}, true},
        {{"R", "G", "B", "A"}, 3, {0, 1, 2}, true},
        {{"A", "B", "G", "R"}, 0, {3, 2, 1}, false},
        {{"R", "G", "B", "A", "Z"}, 3, {0, 1, 2}, false},
        {{"Y"}, -1, {0, 0, 0}, false},
        {{"A", "X", "Y", "Z"}, 0, {1, 2, 3}, false},
    };
    for (const Case& test : cases) {
        OIIO::ImageSpec spec(8, 4, int(test.names.size()), OIIO::TypeFloat);
        spec.channelnames = test.names;
        spec.alpha_channel = test.alpha;
        const PlateLayout layout = LayoutOf(spec);
        EXPECT_EQ(layout.colour, test.colour) << test.names.size();
        EXPECT_EQ(layout.plain, test.plain) << test.names.size();
    }
    OIIO::ImageSpec cropped(4, 2, 3, OIIO::TypeFloat);   // stores only part of a 16x8 frame
    cropped.x = 6, cropped.y = 3, cropped.full_width = 16, cropped.full_height = 8;
    const PlateLayout layout = LayoutOf(cropped);
    EXPECT_FALSE(layout.plain);
    EXPECT_EQ(layout.painted, OIIO::ROI(6, 10, 3, 5, 0, 1, 0, 3));
    EXPECT_EQ(layout.frame.width(), 16);
}

}  // namespace

namespace {

struct CompressionCase {
    const char* text;
    const char* output;
    const char* header;   // the compression an EXR's header names (PNG headers do not keep the level)
};

}  // namespace

// A chosen compression reaches the file and loses nothing (the lossless ones): the pixels read
// back are the ones written with the default. The plate's own (zip) gives way to the choice.
TEST_F(Plate, ChosenCompressionReachesTheFileAndTheLosslessOnesKeepEveryPixel) {
    OIIO::ImageSpec spec(96, 64, 3, OIIO::TypeHalf);
    OIIO::ImageBuf exr = Busy(spec);
    exr.specmod().attribute("compression", "zip");
    Write(exr, dir_ / "plate.exr");
    Write(Busy(OIIO::ImageSpec(96, 64, 3, OIIO::TypeUInt16)), dir_ / "plate.png");
    const auto pixels = [](const OIIO::ImageBuf& image) { return Values(image, image.roi()); };
    const std::vector<float> exrDefault = pixels(Read(Render(dir_ / "plate.exr", "default.exr")));
    const std::vector<float> pngDefault = pixels(Read(Render(dir_ / "plate.png", "default.png")));
    const CompressionCase cases[] = {
        {"", "kept.exr", "zip"},      {"exr:piz", "piz.exr", "piz"}, {"EXR:none", "none.exr", "none"},
        {"exr:zip:4", "zip4.exr", "zip"}, {"png:9", "nine.png", ""},   {"png:0", "zero.png", ""},
    };
    for (const CompressionCase& c : cases) {
        RenderRequest request;
        request.input = dir_ / (fs::path(c.output).extension() == ".exr" ? "plate.exr" : "plate.png");
        request.output = dir_ / c.output;
        request.plugin = VELLUX_PLUGIN_PATH;
        request.settings.starFilter = 4;
        request.compression = ParseCompression("--compression", c.text);
        RenderFlareImage(request);
        const OIIO::ImageBuf got = Read(request.output);
        if (*c.header != 0) {
            EXPECT_EQ(got.spec().get_string_attribute("compression"), c.header) << c.text;
        }
        EXPECT_EQ(pixels(got), request.output.extension() == ".exr" ? exrDefault : pngDefault) << c.text;
    }
    EXPECT_LT(fs::file_size(dir_ / "nine.png"), fs::file_size(dir_ / "zero.png"));
}

// 8- and 16-bit images stored as half: every value, in packed and in strided (a crop's view of
// a wider image) memory, becomes exactly the half the image library's own conversion makes.
TEST_F(Plate, IntegerImagesBecomeTheLibrarysOwnHalvesInAnExr) {
    for (const OIIO::TypeDesc type : {OIIO::TypeUInt8, OIIO::TypeUInt16}) {
        for (const int channels : {3, 4}) {
            SCOPED_TRACE(std::string(type.c_str()) + " x" + std::to_string(channels));
            OIIO::ImageBuf wide(OIIO::ImageSpec(300, 80, channels, type));
            const size_t count = wide.spec().image_pixels() * size_t(channels);
            std::vector<uint16_t> values(count);
            for (size_t i = 0; i < count; ++i) values[i] = uint16_t(i * 40503u);   // every 16-bit value
            ASSERT_TRUE(wide.set_pixels(wide.roi(), OIIO::TypeUInt16, values.data()));
            for (const bool cropped : {false, true}) {
                const OIIO::ImageBuf image =
                    cropped ? OIIO::ImageBuf(OIIO::ImageSpec(257, 80, channels, type), wide.localpixels(),
                                             wide.pixel_stride(), wide.scanline_stride())
                            : wide;
                const fs::path file = dir_ / (std::string(type.c_str()) + std::to_string(channels) + (cropped ? "c.exr" : ".exr"));
                WriteImageFile(image, file, OIIO::TypeUnknown);
                std::vector<uint16_t> expected(image.spec().image_pixels() * size_t(channels)), got(expected.size());
                ASSERT_TRUE(image.get_pixels(image.roi(), OIIO::TypeHalf, expected.data()));
                const OIIO::ImageBuf read = Read(file);
                ASSERT_EQ(read.nativespec().format, OIIO::TypeHalf);
                ASSERT_TRUE(read.get_pixels(read.roi(), OIIO::TypeHalf, got.data()));
                EXPECT_EQ(got, expected) << "cropped " << cropped;
            }
        }
    }
}

TEST(Compression, NamesTheChoicesForABadOneAndTheFileForAMismatch) {
    const char* bad[] = {"png", "png:10", "png:x", "exr:lzw", "exr:zip:0", "exr:piz:3", "tif:piz", "jpg:90", "zip"};
    for (const char* text : bad) {
        try {
            ParseCompression("--compression", text);
            ADD_FAILURE() << text;
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find(std::string("'") + text + "' is not a compression; choose png:0"),
                      std::string::npos) << error.what();
        }
    }
    EXPECT_EQ(CompressionText(ParseCompression("-c", "TIFF:lzw")), "tif:lzw");
    EXPECT_EQ(CompressionText(ParseCompression("-c", "exr:dwaa:45")), "exr:dwaa:45");
    EXPECT_NO_THROW(CheckCompressionFor("-c", ParseCompression("-c", "tif:zip"), "a/b.TIFF"));
    EXPECT_NO_THROW(CheckCompressionFor("-c", ParseCompression("-c", ""), "b.jpg"));
    try {
        CheckCompressionFor("--compression", ParseCompression("-c", "exr:zip"), "out/frame.0001.png");
        ADD_FAILURE();
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "--compression exr:zip is for .exr files, and frame.0001.png is a .png file");
    }
}
