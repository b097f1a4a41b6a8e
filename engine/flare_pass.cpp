#include "engine/flare_pass.h"
#include "engine/frame_image.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>

#include "engine/colour.h"
#include "engine/frame_memory.h"
#include "engine/pending_output.h"

namespace vellux::engine {

namespace {

namespace fs = std::filesystem;

std::vector<float> FloatValues(const OIIO::ImageBuf& image) {
    std::vector<float> values(image.spec().image_pixels() * size_t(image.nchannels()));
    image.get_pixels(image.roi(), OIIO::TypeFloat, values.data());
    return values;
}

// The plate's colour channels as red, green, blue (the first three that are not alpha, the first
// repeated when there are fewer), the order FrameImage uses.
std::vector<int> ColourChannels(const OIIO::ImageSpec& layout) {
    std::vector<int> colour;
    for (int c = 0; c < layout.nchannels && colour.size() < 3; ++c)
        if (c != layout.alpha_channel) colour.push_back(c);
    if (colour.empty()) throw std::runtime_error("the plate has no colour channel");
    while (colour.size() < 3) colour.push_back(colour[0]);
    return colour;
}

}  // namespace

// The pass ------------------------------------------------------------------------------------

OIIO::ImageBuf FlarePassFromPlugin(const PluginPixels& painted) {
    if (painted.depth != 48) throw std::logic_error("a flare pass is rendered in 48 bits");
    OIIO::ImageSpec layout(painted.width, painted.height, 4, OIIO::TypeFloat);
    layout.alpha_channel = 3;
    OIIO::ImageBuf pass(layout, OIIO::InitializePixels::No);   // packed float RGBA in its own memory
    FillFlarePass(painted, static_cast<float*>(pass.localpixels()));
    return pass;
}

void FillFlarePass(const PluginPixels& painted, float* rgba) { FillFlarePassRows(painted, 0, painted.height, rgba); }

void FillFlarePassRows(const PluginPixels& painted, int32_t y0, int32_t y1, float* rgba) {
    if (painted.depth != 48) throw std::logic_error("a flare pass is rendered in 48 bits");
    const size_t first = size_t(y0) * size_t(painted.width);
    const size_t count = size_t(y1 - y0) * size_t(painted.width);
    for (size_t i = 0; i < count; ++i) {
        float* out = &rgba[i * 4];
        for (int c = 0; c < 3; ++c) out[c] = FromPluginScaleFloat(painted.Channel48(first + i, c));
        out[3] = std::min(std::max({out[0], out[1], out[2]}), 1.0f);
    }
}

OIIO::ImageBuf RenderFlarePass(PluginInstance& instance, const FlareLight& light, FrameSize size, int32_t bandRows) {
    // The plug-in's pixels, the pass and its values unpacked.
    CheckFrameMemory(size, 6.0 + 16.0 * 2.0, "the flare pass");
    PluginPixels black(size.width, size.height, 48);
    RenderFrame(instance, light, black, bandRows);
    return FlarePassFromPlugin(black);
}

// Writing images ------------------------------------------------------------------------------

OIIO::TypeDesc PassFileType(const fs::path& output, bool halfFloat) {
    const std::string format = ImageFormatOf(output);
    if (format == "exr") return halfFloat ? OIIO::TypeHalf : OIIO::TypeFloat;
    if (format == "png" || format == "tif") {
        if (halfFloat) throw std::runtime_error(output.string() + ": half floats are written to OpenEXR (.exr) only");
        return OIIO::TypeUInt16;
    }
    throw std::runtime_error(output.string() + ": a flare pass is written as .exr, .png, .tif or .tiff, not '" +
                             output.extension().string() + "'");
}

void WriteFlarePass(const OIIO::ImageBuf& pass, const fs::path& output, bool halfFloat) {
    WriteImageFile(pass, output, PassFileType(output, halfFloat));
}

// Float plates and the composite ---------------------------------------------------------------

namespace {

// Where a plate's channels go in a composite: its colour as R, G, B and its alpha, if any, as A.
struct CompositeLayout {
    std::vector<int> colour;
    int alpha = -1;
    size_t inChannels = 0;
    size_t outChannels = 3;
    OIIO::ImageSpec spec;   // the composite's, float
};

CompositeLayout CompositeLayoutOf(const OIIO::ImageSpec& in) {
    CompositeLayout layout;
    layout.colour = ColourChannels(in);
    layout.alpha = in.alpha_channel;
    layout.inChannels = size_t(in.nchannels);
    layout.outChannels = layout.alpha >= 0 ? 4 : 3;
    layout.spec = OIIO::ImageSpec(in.width, in.height, int(layout.outChannels), OIIO::TypeFloat);
    layout.spec.channelnames = {"R", "G", "B"};
    if (layout.alpha >= 0) {
        layout.spec.channelnames.push_back("A");
        layout.spec.alpha_channel = 3;
    }
    return layout;
}

void CheckSameSize(const OIIO::ImageSpec& in, int32_t width, int32_t height) {
    if (in.width != width || in.height != height)
        throw std::runtime_error("the plate is " + std::to_string(in.width) + "x" + std::to_string(in.height) +
                                 " pixels, the flare pass " + std::to_string(width) + "x" + std::to_string(height));
}

// Rows [y0, y1) of the composite: the plate's rows (read as float into `plateRows`) plus the
// pass's rows `pass` (packed RGBA, `passChannels` a pixel), written into `composite`.
void CompositeRows(const OIIO::ImageBuf& plate, const float* pass, size_t passChannels, int32_t y0, int32_t y1,
                   const CompositeLayout& layout, std::vector<float>& plateRows, OIIO::ImageBuf& composite) {
    const OIIO::ROI plateRoi(plate.xbegin(), plate.xend(), plate.ybegin() + y0, plate.ybegin() + y1);
    const size_t count = size_t(plate.spec().width) * size_t(y1 - y0);
    plateRows.resize(count * layout.inChannels);
    plate.get_pixels(plateRoi, OIIO::TypeFloat, plateRows.data());
    float* out = static_cast<float*>(composite.localpixels()) + size_t(y0) * size_t(plate.spec().width) * layout.outChannels;
    for (size_t i = 0; i < count; ++i) {
        const float* in = &plateRows[i * layout.inChannels];
        for (size_t c = 0; c < 3; ++c) out[i * layout.outChannels + c] = in[size_t(layout.colour[c])] + pass[i * passChannels + c];
        if (layout.alpha >= 0) out[i * layout.outChannels + 3] = in[size_t(layout.alpha)];
    }
}

// Whether the plate itself can take the composite: float R, G, B (, A) in memory of its own.
bool HoldsComposite(const OIIO::ImageBuf& plate, const CompositeLayout& layout) {
    const OIIO::ImageSpec& in = plate.spec();
    const auto pixel = OIIO::stride_t(layout.outChannels * sizeof(float));
    return plate.storage() == OIIO::ImageBuf::LOCALBUFFER && in.format == OIIO::TypeFloat && in.channelformats.empty() &&
           in.depth == 1 && layout.inChannels == layout.outChannels && layout.colour == std::vector<int>{0, 1, 2} &&
           (layout.alpha < 0 || layout.alpha == 3) && plate.pixel_stride() == pixel &&
           plate.scanline_stride() == pixel * in.width;
}

OIIO::ImageBuf NewComposite(const CompositeLayout& layout) {
    OIIO::ImageBuf composite(layout.spec, OIIO::InitializePixels::No);
    AdviseFrameMemory(composite.localpixels(), layout.spec.image_bytes());
    return composite;
}

// Rows handled at once by CompositePainted: a few hundred kilobytes of pass, reused band by band.
constexpr int32_t kCompositeRows = 32;

// Rows y0..y1-1 of the pass, converted to `space`, into `rgba`: each level looked up in the
// space's `tables` where it has them (LevelTablesFor), else the rows converted as an image.
void FillConvertedPassRows(const PluginPixels& painted, int32_t y0, int32_t y1, const std::string& space,
                           const LevelTables* tables, float* rgba) {
    if (tables != nullptr) {
        const size_t first = size_t(y0) * size_t(painted.width);
        const size_t count = size_t(y1 - y0) * size_t(painted.width);
        for (size_t i = 0; i < count; ++i) {
            float* out = &rgba[i * 4];
            for (size_t c = 0; c < 3; ++c) out[c] = tables->channel[c][painted.Channel48(first + i, int(c))];
            out[3] = std::min(std::max({out[0], out[1], out[2]}), 1.0f);
        }
        return;
    }
    FillFlarePassRows(painted, y0, y1, rgba);
    OIIO::ImageSpec bandLayout(painted.width, y1 - y0, 4, OIIO::TypeFloat);
    bandLayout.alpha_channel = 3;
    OIIO::ImageBuf bandPass(bandLayout, rgba);
    ConvertPass(bandPass, space);
}

}  // namespace


OIIO::ImageBuf CompositeFlarePass(const OIIO::ImageBuf& plate, const OIIO::ImageBuf& pass) {
    CheckSameSize(plate.spec(), pass.spec().width, pass.spec().height);
    const CompositeLayout layout = CompositeLayoutOf(plate.spec());
    const std::vector<float> passValues = FloatValues(pass);
    std::vector<float> plateRows;
    OIIO::ImageBuf composite = NewComposite(layout);
    CompositeRows(plate, passValues.data(), size_t(pass.nchannels()), 0, plate.spec().height, layout, plateRows, composite);
    return composite;
}

// Band by band, so that each band is converted while it is still in the cache.
void FillConvertedPass(const PluginPixels& painted, const std::string& space, float* rgba, bool bottomUp) {
    const size_t row = size_t(painted.width) * 4;
    const LevelTables* tables = LevelTablesFor(space);
    if (bottomUp) {
        for (int32_t y = 0; y < painted.height; ++y)
            FillConvertedPassRows(painted, y, y + 1, space, tables, rgba + size_t(painted.height - 1 - y) * row);
        return;
    }
    for (int32_t y0 = 0; y0 < painted.height; y0 += kCompositeRows) {
        const int32_t y1 = std::min(y0 + kCompositeRows, painted.height);
        FillConvertedPassRows(painted, y0, y1, space, tables, rgba + size_t(y0) * row);
    }
}

namespace {

// Whether a value is exactly one of the plug-in's levels, and which.
bool IsLevel(float value, uint16_t& level) {
    if (!(value >= 0.0f) || value > 65535.0f / float(kFullChannel)) return false;
    level = uint16_t(value * float(kFullChannel));
    return FromPluginScaleFloat(level) == value;
}

}  // namespace

void FillPassFromLevels(const float* levels, int32_t width, int32_t height, const std::string& space, float* rgba,
                        bool bottomUp) {
    const LevelTables* tables = LevelTablesFor(space);
    const OIIO::ColorProcessorHandle processor = IsDisplaySpace(space) ? nullptr : ColourProcessor(kDisplaySpace, space);
    for (int32_t y = 0; y < height; ++y) {
        const float* in = levels + size_t(y) * size_t(width) * 3;
        float* out = rgba + size_t(bottomUp ? height - 1 - y : y) * size_t(width) * 4;
        for (int32_t x = 0; x < width; ++x) {
            const float* level = &in[size_t(x) * 3];
            float* pixel = &out[size_t(x) * 4];
            uint16_t r = 0, g = 0, b = 0;
            const bool looked = tables != nullptr && IsLevel(level[0], r) && IsLevel(level[1], g) && IsLevel(level[2], b);
            if (looked) {
                pixel[0] = tables->channel[0][r], pixel[1] = tables->channel[1][g], pixel[2] = tables->channel[2][b];
            } else {
                std::copy_n(level, 3, pixel);
                if (processor) processor->apply(pixel, 1, 1, 3, sizeof(float), 4 * sizeof(float), 4 * sizeof(float));
            }
            pixel[3] = std::min(std::max({pixel[0], pixel[1], pixel[2]}), 1.0f);
        }
    }
}

OIIO::ImageBuf ConvertedFlarePass(const PluginPixels& painted, const std::string& space) {
    OIIO::ImageSpec layout(painted.width, painted.height, 4, OIIO::TypeFloat);
    layout.alpha_channel = 3;
    OIIO::ImageBuf pass(layout, OIIO::InitializePixels::No);   // packed float RGBA in its own memory
    AdviseFrameMemory(pass.localpixels(), layout.image_bytes());
    FillConvertedPass(painted, space, static_cast<float*>(pass.localpixels()));
    pass.specmod().attribute("oiio:ColorSpace", space);
    return pass;
}

// The pass is made, converted and added a band of rows at a time: the colour conversion works on
// each pixel alone, so a band converts exactly as the whole pass would, and the pass never
// exists whole. A float RGB(A) plate of its own takes the sums in place (each band is read
// before it is written).
OIIO::ImageBuf CompositePainted(OIIO::ImageBuf plate, const PluginPixels& painted, const std::string& space) {
    CheckSameSize(plate.spec(), painted.width, painted.height);
    const CompositeLayout layout = CompositeLayoutOf(plate.spec());
    const bool inPlace = HoldsComposite(plate, layout);
    OIIO::ImageBuf composite = inPlace ? std::move(plate) : NewComposite(layout);
    const OIIO::ImageBuf& source = inPlace ? composite : plate;
    const int32_t width = painted.width;
    std::vector<float> band(size_t(width) * size_t(kCompositeRows) * 4), plateRows;
    const LevelTables* tables = LevelTablesFor(space);
    for (int32_t y0 = 0; y0 < painted.height; y0 += kCompositeRows) {
        const int32_t y1 = std::min(y0 + kCompositeRows, painted.height);
        FillConvertedPassRows(painted, y0, y1, space, tables, band.data());
        CompositeRows(source, band.data(), 4, y0, y1, layout, plateRows, composite);
    }
    return composite;
}

}  // namespace vellux::engine
