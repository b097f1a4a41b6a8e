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
#include "engine/row_parts.h"

namespace vellux::engine {

namespace {

namespace fs = std::filesystem;

// Rows a thread is started for: about a tenth of a millisecond of converting at 1920 wide.
constexpr int32_t kLeastPartRows = 32;

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

namespace {

// Whether a value is exactly one of the plug-in's levels, and which.
bool IsLevel(float value, uint16_t& level) {
    if (!(value >= 0.0f) || value > 65535.0f / float(kFullChannel)) return false;
    level = uint16_t(value * float(kFullChannel));
    return FromPluginScaleFloat(level) == value;
}

}  // namespace

void FillPassFromLevels(const float* levels, int32_t width, int32_t height, const std::string& space, float* rgba,
                        bool bottomUp, int32_t threads) {
    const LevelTables* tables = LevelTablesFor(space);
    const OIIO::ColorProcessorHandle processor = IsDisplaySpace(space) ? nullptr : ColourProcessor(kDisplaySpace, space);
    ForRowParts({0, height}, threads, kLeastPartRows, [&](Band part) {
        for (int32_t y = part.top; y < part.bottom; ++y) {
            const float* in = levels + size_t(y) * size_t(width) * 3;
            float* out = rgba + size_t(bottomUp ? height - 1 - y : y) * size_t(width) * 4;
            for (int32_t x = 0; x < width; ++x) {
                const float* level = &in[size_t(x) * 3];
                float* pixel = &out[size_t(x) * 4];
                uint16_t r = 0, g = 0, b = 0;
                const bool looked =
                    tables != nullptr && IsLevel(level[0], r) && IsLevel(level[1], g) && IsLevel(level[2], b);
                if (looked) {
                    pixel[0] = tables->channel[0][r], pixel[1] = tables->channel[1][g], pixel[2] = tables->channel[2][b];
                } else {
                    std::copy_n(level, 3, pixel);
                    if (processor) processor->apply(pixel, 1, 1, 3, sizeof(float), 4 * sizeof(float), 4 * sizeof(float));
                }
                pixel[3] = std::min(std::max({pixel[0], pixel[1], pixel[2]}), 1.0f);
            }
        }
    });
}

}  // namespace vellux::engine
