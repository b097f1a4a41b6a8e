// libvellux_frei0r_images.so: the filter's image side (image_side.h), its one export the table.
#include <OpenImageIO/imagebuf.h>

#include "engine/blend.h"
#include "frei0r/image_side.h"
#include "frei0r/light_follower.h"

namespace vellux::frei0r {

namespace {

void CompositeOver(engine::Flare& flare, int width, int height, uint8_t* rgba, const engine::FlareLight& light,
                   engine::Blend blend) {
    const OIIO::ImageSpec spec(width, height, 4, OIIO::TypeUInt8);
    const OIIO::ImageBuf painted = flare.Composite(OIIO::ImageBuf(spec, rgba), light, {0, "", blend});
    if (painted.localpixels() != rgba) painted.get_pixels(painted.roi(), OIIO::TypeUInt8, rgba);
}

const ImageSide kImageSide{CompositeOver, engine::BlendBytes, FollowFrame};

}  // namespace

}  // namespace vellux::frei0r

extern "C" __attribute__((visibility("default"))) const vellux::frei0r::ImageSide* vellux_frei0r_image_side() {
    return &vellux::frei0r::kImageSide;
}
