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
    OIIO::ImageBuf pass(layout, OIIO::InitializePixels::No);
    const size_t count = size_t(painted.width) * size_t(painted.height);
    std::vector<float> values(count * 4);
    for (size_t i = 0; i < count; ++i) {
        float* out = &values[i * 4];
        for (int c = 0; c < 3; ++c) out[c] = FromPluginScaleFloat(painted.Channel48(i, c));
        out[3] = std::min(std::max({out[0], out[1], out[2]}), 1.0f);
    }
    pass.set_pixels(pass.roi(), OIIO::TypeFloat, values.data());
    return pass;
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

namespace {

// The writers' settings for a render: lossless and fast. Measured on a 1920x1080 frame, PNG at
// zlib level 1 writes in about a fifth of the time of its default level 6 for files about a
// quarter larger, and PIZ writes an EXR in about a third of the time of ZIP, and smaller.
OIIO::ImageSpec WritingSpec(const OIIO::ImageSpec& spec) {
    OIIO::ImageSpec writing = spec;
    if (spec.find_attribute("png:compressionLevel") == nullptr) writing.attribute("png:compressionLevel", 1);
    if (spec.find_attribute("compression") == nullptr) writing.attribute("compression", "piz");
    return writing;
}

}  // namespace

void WriteImageFile(const OIIO::ImageBuf& image, const fs::path& output, OIIO::TypeDesc type,
                    const std::atomic<bool>* cancel) {
    if (fs::is_directory(output)) throw std::runtime_error(output.string() + ": is a folder");
    PendingOutput pending(output);
    // The same pixels under the writing settings: a view of the image's memory where it has it.
    OIIO::ImageBuf view = image.localpixels() != nullptr
                              ? OIIO::ImageBuf(WritingSpec(image.spec()), const_cast<void*>(image.localpixels()))
                              : image;
    if (image.localpixels() == nullptr) view.specmod() = WritingSpec(image.spec());
    // The format comes from the target's name: the temporary one ends in random letters.
    if (!view.write(pending.temporary().string(), type, output.string()))
        throw std::runtime_error(output.string() + ": cannot write the image: " + view.geterror());
    if (cancel != nullptr && cancel->load()) throw std::runtime_error("interrupted; " + output.string() + " not written");
    pending.Commit();
}

// Float plates and the composite ---------------------------------------------------------------

bool IsFloatImage(const fs::path& file) {
    std::unique_ptr<OIIO::ImageInput> input = OIIO::ImageInput::open(file.string());
    if (input == nullptr) throw std::runtime_error(file.string() + ": cannot read the image: " + OIIO::geterror());
    const auto type = OIIO::TypeDesc::BASETYPE(input->spec().format.basetype);
    return type == OIIO::TypeDesc::HALF || type == OIIO::TypeDesc::FLOAT || type == OIIO::TypeDesc::DOUBLE;
}

OIIO::ImageBuf ReadFloatPlate(const fs::path& file) {
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    OIIO::ImageBuf plate(file.string(), 0, 0, nullptr, &config);
    if (!plate.init_spec(file.string(), 0, 0))
        throw std::runtime_error(file.string() + ": cannot read the image: " + plate.geterror());
    CheckFrameMemory({plate.spec().width, plate.spec().height}, 4.0 * plate.spec().nchannels * 3.0 + 40.0, file.string());
    if (!plate.read(0, 0, true, OIIO::TypeFloat))
        throw std::runtime_error(file.string() + ": cannot read the image: " + plate.geterror());
    return plate;
}

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
