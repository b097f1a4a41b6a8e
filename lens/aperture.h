// The aperture: the opening the iris blades leave at the stop, the shape every ghost and the
// diffraction starburst take from it.
//
// Coordinates are in the stop's plane, in units of the aperture's radius (the radius of the circle
// through the polygon's corners, which the f-number sets: radius = focal length / (2 N)). Blade
// k's straight edge runs between corners at angles rotation + 2 pi k / blades and the next; a
// curved blade bows the edge outwards towards that circle, so curvature 1 is the round opening.
#ifndef VELLUX_LENS_APERTURE_H
#define VELLUX_LENS_APERTURE_H

#include <string>
#include <vector>

namespace vellux::lens {

struct Aperture {
    int blades = 0;            // 0: a round opening; else kMinBlades..kMaxBlades
    double curvature = 0.0;    // 0 straight blades .. 1 round
    double rotation = 0.0;     // radians, the first corner's angle from +x
};

inline constexpr int kMinBlades = 3;
inline constexpr int kMaxBlades = 32;

// Throws std::invalid_argument naming `what` and the value when the aperture cannot be made
// ("--blades: 100 is not a blade count (0 for round, 3 to 32)").
void CheckAperture(const Aperture& aperture, const std::string& what);

// Whether the point (x, y) of the unit aperture is open.
bool Inside(const Aperture& aperture, double x, double y);

// The opening's edge as `points` points around it, counter-clockwise, on the unit scale.
std::vector<std::pair<double, double>> Outline(const Aperture& aperture, int points);

// The open area on the unit scale (pi for a round opening).
double OpenArea(const Aperture& aperture);

}  // namespace vellux::lens

#endif  // VELLUX_LENS_APERTURE_H
