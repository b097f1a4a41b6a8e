// Painting a lens's traced ghosts onto a frame: each ghost's wavelengths folded into one RGB image
// on the sensor, then added to the frame's linear light.
//
// A large ghost is a smooth image spread over many frame pixels: it is gathered at a resolution
// no finer than its own pixels (a half, quarter or eighth of the frame's) and the coarse images are
// brought up to the frame's size once, after every ghost is in. A small one is spread straight onto
// the frame's pixels so that its light stays where it falls. Either way a ghost's light is kept.
#ifndef VELLUX_ENGINE_GHOST_CANVAS_H
#define VELLUX_ENGINE_GHOST_CANVAS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "engine/flare_instance.h"
#include "lens/ghost_footprint.h"

namespace vellux::engine {

// A ghost's light on the sensor with every wavelength folded into linear RGB: size x size pixels
// of `pixel` mm, the first at (left, bottom), rows from the bottom; light per mm^2.
struct GhostImage {
    double left = 0.0, bottom = 0.0, pixel = 0.0;
    int size = 0;
    std::vector<float> rgb;
    float densest = 0.0f;   // its largest value, found once (a faint ghost is left out every frame)
};

// One ghost's footprints at `count` wavelengths, each weighted by its `scales` (per channel: the
// light per unit of flux times the wavelength's share of each colour), on one raster over all of
// them.
GhostImage FoldGhost(const lens::GhostFootprint* footprints, const std::array<float, 3>* scales, size_t count);

// The two source samples a resampled column or row takes, and their weights (a canvas's scratch).
struct ResampleTaps {
    int first = 0, second = 0;
    float w0 = 0.0f, w1 = 0.0f;
};

// What resampling works in, kept by a canvas from ghost to ghost: the taps of the destination's
// columns, two source rows interpolated across (and which rows they are), each column's channel
// multipliers, and one row combined down.
struct ResampleScratch {
    std::vector<ResampleTaps> columns;
    std::array<std::vector<float>, 2> rows;
    std::array<int, 2> index{-1, -1};
    std::vector<float> muls, down;
};

// Ghosts added to a frame of `frame` pixels of `frameMm` mm whose centre is the sensor's centre,
// y down. The canvas keeps its coarse images between frames (allocated once for a frame size).
class GhostCanvas {
public:
    static constexpr int kLevels = 4;   // the frame's resolution, a half, a quarter, an eighth

    // Starts a frame: nothing gathered yet. Only the frame's rows `rows` are painted (all of them by
    // default), each with the very values a canvas of the whole frame gives it, so a frame can be
    // painted a part of its rows on each thread, a canvas a part. Each coarse level keeps only the
    // rows that bringing it up into the painted rows reads.
    void Begin(FrameSize frame, double frameMm, Band rows = {0, INT32_MAX});
    // Adds `ghost` times `scale` (per channel). A ghost too faint to move a pixel is left out.
    void Add(const GhostImage& ghost, const float scale[3], float* rgb);
    // Brings what was gathered coarsely up to the frame and adds it to `rgb`.
    void Finish(float* rgb);

private:
    struct Level {
        int width = 0, height = 0;
        bool used = false;
        Band rows;                // the rows kept
        std::vector<float> rgb;   // light per mm^2, those rows
    };
    FrameSize frame_{0, 0};
    Band rows_;                   // the frame's rows painted
    double frameMm_ = 0.0;
    std::array<Level, kLevels> levels_;
    ResampleScratch scratch_;
};

// A single ghost through a canvas of its own: Begin, Add, Finish.
void AddGhost(const GhostImage& ghost, FrameSize frame, double frameMm, float* rgb);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_GHOST_CANVAS_H
