// A frame as light: float RGB in scene-linear, read from a plate through the colour management,
// for the work that measures light in footage (light_finding.h, light_tracking.h). Plain data, so
// that the measuring needs neither the image library nor the file it came from.
#ifndef VELLUX_ENGINE_LINEAR_FRAME_H
#define VELLUX_ENGINE_LINEAR_FRAME_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vellux::engine {

struct LinearFrame {
    int32_t width = 0, height = 0;
    std::vector<float> rgb;   // row by row from the top, red, green and blue of each pixel
};

// The plate's frame (its display window, its colour channels as the flare finds them) converted
// from `colorspace` to scene-linear; an empty space: linear for float plates, sRGB for integer
// ones (colour.h). Throws std::runtime_error naming the file.
LinearFrame ReadLinearFrame(const std::filesystem::path& file, const std::string& colorspace = {});

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_LINEAR_FRAME_H
