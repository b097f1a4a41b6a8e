#include "engine/flare.h"

#include <algorithm>

#include <stdexcept>

#include <OpenImageIO/imagebufalgo.h>

#include "engine/colour.h"
#include "engine/flare_pass.h"
#include "engine/plate.h"

namespace vellux::engine {

namespace {

bool IsFloat(const OIIO::ImageSpec& spec) {
    const auto type = OIIO::TypeDesc::BASETYPE(spec.format.basetype);
    return type == OIIO::TypeDesc::HALF || type == OIIO::TypeDesc::FLOAT || type == OIIO::TypeDesc::DOUBLE;
}

}  // namespace

void Flare::Paint(FrameImage& image, const FlareLight& light, int32_t bandRows) {
    PluginPixels pixels = image.ToPlugin();
    RenderFrame(*instance_, light, pixels, bandRows);
    image.TakeFromPlugin(pixels);
}

OIIO::ImageBuf Flare::Pass(FrameSize size, const FlareLight& light, int32_t bandRows, const std::string& space) {
    CheckFrameMemory(size, 6.0 + 16.0, "the flare pass");
    return ConvertedFlarePass(PaintBlack(size, light, bandRows), space);
}

void Flare::PassInto(FrameSize size, const FlareLight& light, const std::string& space, float* rgba, bool bottomUp) {
    if (!black_ || black_->width != size.width || black_->height != size.height) {
        CheckFrameMemory(size, 6.0, "the flare pass");
        black_.emplace(size.width, size.height, 48);
    } else {
        std::fill(black_->bytes.begin(), black_->bytes.end(), uint8_t(0));
    }
    RenderFrame(*instance_, light, *black_, 0);
    FillConvertedPass(*black_, space, rgba, bottomUp);
}

PluginPixels Flare::PaintBlack(FrameSize size, const FlareLight& light, int32_t bandRows) {
    CheckFrameMemory(size, 6.0, "the flare");
    PluginPixels black(size.width, size.height, 48);
    RenderFrame(*instance_, light, black, bandRows);
    return black;
}

// The flare over an image of R, G, B (, A) exactly the frame's size, returned in the image's
// pixel type with its attributes.
OIIO::ImageBuf Flare::CompositeColour(OIIO::ImageBuf plate, const FlareLight& light, const FrameOptions& options,
                                      const std::string& space) {
    if (!IsFloat(plate.spec()) && IsDisplaySpace(space)) {
        FrameImage image = FrameImage::FromImage(std::move(plate));
        Paint(image, light, options.bandRows);
        return std::move(image).image();
    }
    OIIO::ImageSpec kept = plate.spec();   // names, windows and attributes, in the composite's layout
    OIIO::ImageBuf composite;
    {
        const PluginPixels painted = PaintBlack({kept.width, kept.height}, light, options.bandRows);
        composite = CompositePainted(std::move(plate), painted, space);
    }
    if (kept.format != OIIO::TypeFloat) {
        OIIO::ImageBuf typed;
        if (!OIIO::ImageBufAlgo::copy(typed, composite, kept.format))
            throw std::runtime_error("cannot convert the composite back: " + typed.geterror());
        composite = std::move(typed);
    }
    kept.set_format(composite.spec().format);
    kept.channelformats.clear();
    composite.specmod() = kept;
    return composite;
}

OIIO::ImageBuf Flare::Composite(OIIO::ImageBuf plate, const FlareLight& light, const FrameOptions& options) {
    const std::string space = ChooseColorspace("colorspace", options.colorspace, IsFloat(plate.spec()));
    const PlateLayout layout = LayoutOf(plate.spec());
    OIIO::ImageBuf painted = layout.plain ? CompositeColour(std::move(plate), light, options, space)
                                          : WithFrameColour(plate, layout, CompositeColour(FrameColour(plate, layout), light, options, space));
    painted.specmod().attribute("oiio:ColorSpace", space);
    return painted;
}

OIIO::ImageBuf Flare::CompositeBlack(FrameSize size, const FlareLight& light, const FrameOptions& options) {
    const std::string space = ChooseColorspace("colorspace", options.colorspace, false);
    if (!IsDisplaySpace(space)) return Composite(FrameImage::Black(size).image(), light, options);
    // Painted straight into the plug-in's black frame: what the plate's values would have been
    // (all 0) need not be read, converted or compared.
    CheckFrameMemory(size, 6.0 * 2.0, "--size");
    OIIO::ImageBuf painted = Image16FromPlugin(PaintBlack(size, light, options.bandRows));
    painted.specmod().attribute("oiio:ColorSpace", space);
    return painted;
}

}  // namespace vellux::engine
