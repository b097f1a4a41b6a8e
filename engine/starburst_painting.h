// Painting a light's diffraction starburst onto a frame: the computed pattern spread over the frame
// pixels it covers, and its rays carried on past the pattern's rim across the frame.
#ifndef VELLUX_ENGINE_STARBURST_PAINTING_H
#define VELLUX_ENGINE_STARBURST_PAINTING_H

#include <array>
#include <cstdint>
#include <vector>

#include "engine/flare_instance.h"
#include "lens/starburst.h"

namespace vellux::engine {

// One ray of the starburst past the computed pattern: its direction and the light it carries per
// mm of its length at `radius` mm from the light, falling as the inverse square of the distance
// (the far field of a straight blade edge), its colour what it is at the pattern's rim.
struct StarburstRay {
    double angle = 0.0;
    double radius = 0.0;
    std::array<double, 3> perMm{};
};

// The rays a pattern draws (none for a round aperture).
std::vector<StarburstRay> StarburstRays(const lens::Starburst& burst);

// Both painters write only the frame's rows `rows` (the whole frame by default): a frame painted in
// parts of its rows, one painter a part, gets exactly the values of one painting of the whole.
inline constexpr Band kEveryRow{0, INT32_MAX};

// Adds the rays, times `scale` per channel, from the pattern's rim at frame pixel coordinates
// (cx, cy) outwards until they fade below what a frame can show.
void AddRays(const std::vector<StarburstRay>& rays, double cx, double cy, const float scale[3], FrameSize frame,
             double frameMm, float* rgb, Band rows = kEveryRow);

// Adds `pattern` (a square of `size` pixels of `patternMm` mm, centred on its middle pixel, RGB
// floats) times `scale` (per channel) to `rgb` (a frame of `frame` pixels of `frameMm` mm) with its
// centre at frame pixel coordinates (cx, cy): each pattern pixel's value spread over the frame
// pixels it overlaps in proportion (energy kept, whichever pixels are larger).
void AddPattern(const float* pattern, int size, double patternMm, double cx, double cy, const float scale[3],
                FrameSize frame, double frameMm, float* rgb, Band rows = kEveryRow);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_STARBURST_PAINTING_H
