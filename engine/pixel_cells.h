// Where a pixel or cell of one raster falls on another's: shared by the painters of a lens's
// starburst and ghosts.
#ifndef VELLUX_ENGINE_PIXEL_CELLS_H
#define VELLUX_ENGINE_PIXEL_CELLS_H

#include <algorithm>
#include <cmath>

namespace vellux::engine {

// floor(v) held within [lo, hi], taken in double first: a ghost can lie far off the frame, or be
// focused to a point at one wavelength, and its coordinates then go past what an int holds.
inline int FloorWithin(double v, int lo, int hi) {
    if (!(v > double(lo))) return lo;   // NaN too
    if (v >= double(hi)) return hi;
    return int(std::floor(v));
}

// The overlap of [a0, a1) with the unit cell [k, k + 1).
inline double Overlap(double a0, double a1, int k) { return std::max(0.0, std::min(a1, k + 1.0) - std::max(a0, double(k))); }

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_PIXEL_CELLS_H
