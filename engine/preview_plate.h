// The settings dialog's preview on the artist's own plate.
//
// The plug-in paints its preview of the flare on a black synthetic frame, as it always does; the
// host shows that flare over the plate (host/image_backdrop.h: a PreviewPlate is the backdrop the
// host installs). The plate is scaled to the preview's size and the flare goes over it the way a
// render puts it over that plate (blend.h, colour.h):
//   - the plate's colour space is the render's: --colorspace when given, else linear for float
//     pixels and sRGB for integer ones;
//   - integer sRGB plates take the plug-in's 32-bit pixels through the render's own byte rules
//     (BlendBytes), on the scaled plate in 8 bits; on such a plate of the preview's own size the
//     preview is, pixel for pixel, what `vellux render` makes of it with the light at the same
//     place;
//   - every other plate takes the flare's levels through LevelBlender in the plate's space, and
//     the result is shown through the sRGB transform (values past display white show white). The
//     preview's flare has the 8 bits of the plug-in's preview, so a float plate's highlights get
//     what the flare adds to white, not the levels a float render recovers past it (hdr_pass.h).
//
// Scaling: the plate's frame (its display window, plate.h) is cut about its centre to the
// preview's shape, then resized in linear light; a frame already of the preview's size is used as
// it is. The scaled plate is kept for the next draws of the same size.
#ifndef VELLUX_ENGINE_PREVIEW_PLATE_H
#define VELLUX_ENGINE_PREVIEW_PLATE_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <OpenImageIO/color.h>
#include <OpenImageIO/imagebuf.h>

#include "engine/blend.h"
#include "engine/option_values.h"
#include "host/image_backdrop.h"

namespace vellux::engine {

struct PreviewPlateOptions {
    std::filesystem::path file;
    std::string colorspace;        // the plate's; empty: by pixel type, as a render chooses
    Blend blend = kDefaultBlend;
    // Threads composing a preview over a plate other than 8-bit sRGB (0: every core), a part of
    // its rows on each with a blender of its own: every pixel is composed alone, so the preview
    // is the same on any number.
    int32_t threads = 0;
};

class PreviewPlate final : public host::ImageBackdrop {
public:
    // Reads the plate. Throws std::runtime_error naming the file when it is missing or cannot be
    // read, std::invalid_argument naming --colorspace for a space the configuration lacks.
    explicit PreviewPlate(const PreviewPlateOptions& options);
    ~PreviewPlate() override;

    const std::string& colorspace() const { return space_; }

    // The plate's colour scaled to `size`, in its colour space: packed RGB floats.
    std::vector<float> Scaled(FrameSize size) const;

    // The flare in `pixels` (the plug-in's preview as drawn, alpha, red, green, blue) over the
    // plate scaled to width x height, as sRGB bytes in their place.
    void Compose(uint8_t* pixels, int width, int height) override;

private:
    void ScaleTo(FrameSize size);

    OIIO::ImageBuf colour_;        // the plate's frame, RGB floats in its own colour space
    std::string space_;
    Blend blend_;
    bool bytes_ = false;           // an integer sRGB plate: the render's byte route
    int32_t threads_;
    std::vector<std::unique_ptr<LevelBlender>> blenders_;   // the other plates' route, one a part
    OIIO::ColorProcessorHandle toDisplay_;    // the plate's space to sRGB; null when it is sRGB

    // The plate at the size last drawn, and the draw's working rows (kept from draw to draw).
    FrameSize scaledSize_{0, 0};
    std::vector<float> scaled_;
    std::vector<uint8_t> scaledBytes_;
    std::vector<float> values_, levels_;
    std::vector<uint8_t> shown_;
};

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_PREVIEW_PLATE_H
