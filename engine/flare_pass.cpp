#include "engine/flare_pass.h"
#include "engine/frame_image.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>

#include "engine/pending_output.h"

namespace vellux::engine {

namespace {

namespace fs = std::filesystem;

std::string LowerExtension(const fs::path& file) {
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return extension;
}

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

void FillFlarePass(const PluginPixels& painted, float* rgba) {
    if (painted.depth != 48) throw std::logic_error("a flare pass is rendered in 48 bits");
    const size_t count = size_t(painted.width) * size_t(painted.height);
    for (size_t i = 0; i < count; ++i) {
        float* out = &rgba[i * 4];
        for (int c = 0; c < 3; ++c) out[c] = FromPluginScaleFloat(painted.Channel48(i, c));
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
    const std::string extension = LowerExtension(output);
    if (extension == ".exr") return halfFloat ? OIIO::TypeHalf : OIIO::TypeFloat;
    if (extension == ".png" || extension == ".tif" || extension == ".tiff") {
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

OIIO::ImageBuf CompositeFlarePass(const OIIO::ImageBuf& plate, const OIIO::ImageBuf& pass) {
    const OIIO::ImageSpec& in = plate.spec();
    if (in.width != pass.spec().width || in.height != pass.spec().height)
        throw std::runtime_error("the plate is " + std::to_string(in.width) + "x" + std::to_string(in.height) +
                                 " pixels, the flare pass " + std::to_string(pass.spec().width) + "x" +
                                 std::to_string(pass.spec().height));
    const std::vector<int> colour = ColourChannels(in);
    const bool alpha = in.alpha_channel >= 0;
    const size_t inChannels = size_t(in.nchannels), passChannels = size_t(pass.nchannels());
    const size_t outChannels = alpha ? 4 : 3;

    OIIO::ImageSpec layout(in.width, in.height, int(outChannels), OIIO::TypeFloat);
    layout.channelnames = {"R", "G", "B"};
    if (alpha) {
        layout.channelnames.push_back("A");
        layout.alpha_channel = 3;
    }
    const std::vector<float> plateValues = FloatValues(plate), passValues = FloatValues(pass);
    const size_t count = size_t(in.width) * size_t(in.height);
    std::vector<float> out(count * outChannels);
    for (size_t i = 0; i < count; ++i) {
        for (size_t c = 0; c < 3; ++c)
            out[i * outChannels + c] = plateValues[i * inChannels + size_t(colour[c])] + passValues[i * passChannels + c];
        if (alpha) out[i * outChannels + 3] = plateValues[i * inChannels + size_t(in.alpha_channel)];
    }
    OIIO::ImageBuf composite(layout, OIIO::InitializePixels::No);
    composite.set_pixels(composite.roi(), OIIO::TypeFloat, out.data());
    return composite;
}

}  // namespace vellux::engine
