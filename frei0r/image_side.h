// The filter's work that needs the image library and OpenCV: a lens's own flare composited over a
// frame, the blends other than the plug-in's own add, and following the brightest light. It lives
// in a library of its own (libvellux_frei0r_images.so, beside the engine), loaded the first time an
// instance needs it. The image library brings some 260 libraries, which take a host about a third
// of a second to load; every host that loads the filter would pay that (MLT and so Kdenlive load
// every filter they find when they start), and painting the plug-in's flare needs none of it.
//
// The library hands over one table of functions (its only export, kImageSideEntry). Both sides
// share the engine's core library, loaded once, so they pass its objects to each other.
#ifndef VELLUX_FREI0R_IMAGE_SIDE_H
#define VELLUX_FREI0R_IMAGE_SIDE_H

#include <cstddef>
#include <cstdint>

#include "engine/blend.h"
#include "engine/flare.h"
#include "frei0r/light_follower.h"

namespace vellux::frei0r {

struct ImageSide {
    // A lens's flare composited over the 8-bit sRGB RGBA frame at `rgba` (Flare::Composite).
    void (*compositeOver)(engine::Flare& flare, int width, int height, uint8_t* rgba, const engine::FlareLight& light,
                          engine::Blend blend);
    // engine::BlendBytes.
    void (*blendBytes)(uint8_t* plate, size_t channels, const uint8_t* flareArgb, size_t count, engine::Blend blend);
    // One frame through the follower (light_follower.h: FollowFrame).
    FollowedPlace (*followFrame)(LightFollower& follower, const uint32_t* rgba, int width, int height);
};

inline constexpr const char* kImageSideLibrary = "libvellux_frei0r_images.so";
inline constexpr const char* kImageSideEntry = "vellux_frei0r_image_side";

// The table, the library loaded from the engine's folder on the first call. Throws
// std::runtime_error naming the library when it cannot be loaded; the next call tries again.
const ImageSide& TheImageSide();

}  // namespace vellux::frei0r

#endif  // VELLUX_FREI0R_IMAGE_SIDE_H
