// A flare table made from a lens: its brightest ghosts as reflection elements, each a disc per
// colour channel (a focused ghost small and bright, a defocused one large and faint, with a soft
// edge and the slightly brighter rim of a real aperture image), after a glow and a halo suited to
// the lens, and the ghosts wider than the frame gathered into one grey veil over it. The result is
// table source (host/table_source.h), compiled like any other.
#ifndef VELLUX_LENS_LENS_TABLE_H
#define VELLUX_LENS_LENS_TABLE_H

#include <vector>

#include <nlohmann/json.hpp>

#include "lens/ghosts.h"
#include "lens/prescription.h"

namespace vellux::lens {

struct TableOptions {
    int ghosts = 24;          // the brightest this many
    double exposure = 1.0;    // multiplies every ghost's colour (1: one carrying 1e-3 on a disc of radius 0.1 peaks at 12000)
};

inline constexpr int kTableUnits = 10000;   // file units per flare unit

// FLAR 1001 named after the lens, RING 2001 on: the glow, the glow in the light's colour, the
// halo, then the ghosts, brightest first (those that can reach a frame: within 50 times the
// light's distance from the centre, at most 5 flare units across), and last the veil, when any
// ghost is wider than the frame.
nlohmann::ordered_json LensTableSource(const Prescription& lens, const std::vector<Ghost>& ghosts, double fNumber,
                                       const TableOptions& options);

}  // namespace vellux::lens

#endif  // VELLUX_LENS_LENS_TABLE_H
