// The dialog's preview: the flare painted on a small copy of the image (8-bit, as GIMP draws its
// previews), laid out as on the whole image, so that it looks as the image will.
#ifndef VELLUX_GIMP_FLARE_PREVIEW_H
#define VELLUX_GIMP_FLARE_PREVIEW_H

#include <cstdint>
#include <vector>

#include "gimp/flare_arguments.h"

namespace vellux::gimp {

struct PreviewPlate {
    int width = 0, height = 0, channels = 3;   // RGB or RGBA, 8 bits, rows packed
    std::vector<uint8_t> pixels;
    int imageWidth = 0, imageHeight = 0;       // what it is a copy of: the light's pixels are the image's
};

// The plate with the flare into `painted` (resized to the plate's pixels). Throws the engine's
// message when the arguments cannot be rendered.
void PaintPreview(const PreviewPlate& plate, const FlareArguments& arguments, std::vector<uint8_t>& painted);

}  // namespace vellux::gimp

#endif  // VELLUX_GIMP_FLARE_PREVIEW_H
