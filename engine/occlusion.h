// Occlusion of the light by a mask image: how much of the light's disc is visible, by which the
// host scales the intensity it sends with SETF, so that a light passing behind something fades
// its flare instead of popping.
//
// The mask has the frame's size. Its coverage per pixel, 1 where the light is hidden, 0 where it
// is seen, is its alpha channel when it has one, otherwise its luminance (Rec. 709 weights on
// red, green, blue; a grey image's one channel as it is), clamped to 0..1.
//
// The visible fraction is 1 - the mean coverage over the pixels whose centres (x + 0.5, y + 0.5)
// lie inside the light's disc (on the boundary counts as inside), the disc clipped to the image.
// The disc's radius is the light's radius on the frame but at least kMinOcclusionRadius pixels,
// so that a point light still samples a few dozen pixels rather than one. A disc with no pixel
// centre inside the image (a light off the frame) has nothing to hide it: visible 1.
#ifndef VELLUX_ENGINE_OCCLUSION_H
#define VELLUX_ENGINE_OCCLUSION_H

#include <filesystem>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>

#include "engine/flare_instance.h"
#include "engine/option_values.h"

namespace vellux::engine {

inline constexpr double kMinOcclusionRadius = 3.0;   // pixels

class OcclusionMask {
public:
    // Reads the mask for a frame of `frame`'s size; throws std::runtime_error naming the file if
    // it cannot be read or has another size.
    static OcclusionMask Read(const std::filesystem::path& file, FrameSize frame);
    // The coverage of an image already in memory.
    static OcclusionMask FromImage(const OIIO::ImageBuf& image);

    int32_t width() const { return width_; }
    int32_t height() const { return height_; }
    float Coverage(int32_t x, int32_t y) const { return coverage_[size_t(y) * size_t(width_) + size_t(x)]; }

    // The visible fraction of the disc around (x, y), pixels from the top-left corner, y down.
    double VisibleFraction(double x, double y, double radius) const;

private:
    OcclusionMask(int32_t width, int32_t height, std::vector<float> coverage)
        : width_(width), height_(height), coverage_(std::move(coverage)) {}

    int32_t width_;
    int32_t height_;
    std::vector<float> coverage_;
};

// The light with its intensity scaled by the visible fraction of its disc (its own radius).
FlareLight OccludedLight(FlareLight light, const OcclusionMask& mask);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_OCCLUSION_H
