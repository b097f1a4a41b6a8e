#include "lens/ghosts.h"

#include <algorithm>
#include <cmath>

#include "lens/glass.h"

namespace vellux::lens {

namespace {

// A disc smaller than this on the sensor (mm) is as bright as one of this size: the limit of a
// real lens's sharpness keeps a focused ghost finite.
constexpr double kSmallestDisc = 0.03;

size_t FirstStopCrossing(const Prescription& lens, const Path& path) {
    for (size_t e = 0; e < path.size(); ++e)
        if (path[e].surface == lens.stopIndex) return e;
    return path.size();
}

}  // namespace

double Ghost::Brightest() const { return std::max({brightness[0], brightness[1], brightness[2]}); }

namespace {

// Where a path's rays land on the sensor, in terms of the height at which they first cross the stop
// (per mm) and of the light's angle (per radian): the disc's scale and its centre.
struct Landing {
    double perHeight = 0.0;
    double perAngle = 0.0;
};

std::optional<Landing> LandingOf(const Prescription& lens, const Path& path, double wavelength, double sensorDistance) {
    const size_t crossing = FirstStopCrossing(lens, path);
    // Before: object space to the stop; whole: object space to the sensor. The ray at stop height ys
    // and angle t starts at y0 = (ys - b t) / a, and lands at whole.a y0 + whole.b t.
    const Matrix2 before = PathMatrix(lens, path, wavelength, crossing + 1, sensorDistance);
    const Matrix2 whole = PathMatrix(lens, path, wavelength, path.size(), sensorDistance);
    if (std::abs(before.a) < 1e-12) return std::nullopt;
    return Landing{whole.a / before.a, whole.b - whole.a * before.b / before.a};
}

}  // namespace

std::optional<GhostImage> ParaxialGhost(const Prescription& lens, size_t i, size_t j, double wavelength,
                                        double stopRadius, double sensorDistance) {
    // The centres are where the rays through the stop's centre land: the ghost's, and the light's
    // own image (its chief ray: the sensor is focused for the d line, so other colours blur round it).
    const std::optional<Landing> ghost = LandingOf(lens, GhostPath(lens, i, j), wavelength, sensorDistance);
    const std::optional<Landing> light = LandingOf(lens, LightPath(lens), wavelength, sensorDistance);
    if (!ghost || !light || light->perAngle == 0.0) return std::nullopt;
    return GhostImage{ghost->perAngle / light->perAngle, std::abs(ghost->perHeight) * stopRadius};
}

double UsedFNumber(const Prescription& lens, const GhostOptions& options) {
    if (options.fNumber > 0.0) return options.fNumber;
    return lens.fNumber.value_or(Paraxial(lens, kLineD).fNumber);
}

double ReflectanceOf(const Prescription& lens, size_t k, const std::optional<Coating>& coating, double wavelength) {
    return SurfaceReflectance(MediumIndex(lens, long(k) - 1, wavelength), MediumIndex(lens, long(k), wavelength),
                              coating.value_or(lens.surfaces[k].coating.value_or(lens.coating)), wavelength);
}

std::vector<Ghost> Ghosts(const Prescription& lens, const GhostOptions& options) {
    const ParaxialData data = Paraxial(lens, kLineD);
    const double fNumber = UsedFNumber(lens, options);
    const double stopRadius = StopRadius(lens, fNumber);
    const double pupilRadius = data.focalLength / fNumber / 2.0;
    const double flareUnit = std::min(options.sensorWidth, options.sensorHeight);
    const double pi = std::acos(-1.0);
    const double frameArea = pi * (data.focalLength / flareUnit) * (data.focalLength / flareUnit);
    std::vector<Ghost> ghosts;
    for (size_t i = 0; i < lens.surfaces.size(); ++i) {
        for (size_t j = i + 1; j < lens.surfaces.size(); ++j) {
            if (lens.surfaces[i].stop || lens.surfaces[j].stop) continue;
            Ghost ghost{i, j, {}, {}, {}, {}};
            bool seen = true;
            for (size_t w = 0; w < kWavelengths.size() && seen; ++w) {
                const double wavelength = kWavelengths[w];
                const std::optional<GhostImage> image = ParaxialGhost(lens, i, j, wavelength, stopRadius, data.backFocus);
                if (!image) {
                    seen = false;
                    break;
                }
                const double disc = std::max(image->radius, kSmallestDisc);
                ghost.position[w] = image->position;
                ghost.radius[w] = image->radius / flareUnit;
                const double reflected =
                    ReflectanceOf(lens, i, options.coating, wavelength) * ReflectanceOf(lens, j, options.coating, wavelength);
                ghost.brightness[w] = reflected * (pupilRadius / disc) * (pupilRadius / disc);
                ghost.light[w] = reflected * frameArea;
            }
            if (seen) ghosts.push_back(ghost);
        }
    }
    std::stable_sort(ghosts.begin(), ghosts.end(), [](const Ghost& a, const Ghost& b) { return a.Brightest() > b.Brightest(); });
    return ghosts;
}

}  // namespace vellux::lens
