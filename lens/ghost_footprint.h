// Ghosts as images of the aperture, traced: for a light at infinity, a grid of parallel rays over
// the entrance is followed along each ghost's path (skew_trace.h), and where they land on the
// sensor gives the ghost's shape (the blades' polygon, cut to a cat's eye off axis by the lens's
// rims), its centre, its area, the light it carries and how that light is spread (bunched into a
// bright rim where the rays crowd). The rays are traced as if the iris and the surfaces' clear
// apertures stopped nothing, so that they land as a smooth mesh; between four of them, where the
// blades or a rim would cut, each point of the cell is blended from its corners and asked whether
// the iris and the rims let it through. The edges come out sharp within a cell, and a coarse grid
// holds the shape a far finer clipped one would.
//
// Light is counted in the light's own units: 1 is what crosses 1 mm^2 square to the beam. A ghost
// carries R_i R_j (the two reflections) times the transmittance of the path's other surfaces times
// what its path lets in; when the first stop crossing comes before both reflections that is the
// light's own flux through the aperture.
#ifndef VELLUX_LENS_GHOST_FOOTPRINT_H
#define VELLUX_LENS_GHOST_FOOTPRINT_H

#include <cstddef>
#include <optional>
#include <vector>

#include "lens/aperture.h"
#include "lens/coating.h"
#include "lens/glass.h"
#include "lens/prescription.h"

namespace vellux::lens {

struct FootprintSettings {
    double fNumber = 0.0;                   // 0: the lens's stated f-number (UsedFNumber)
    Aperture aperture;
    double angleX = 0.0, angleY = 0.0;      // the light's direction, radians: rays run along (tan angleX, tan angleY, 1)
    std::vector<double> wavelengths{kRed, kGreen, kBlue};   // nm
    std::optional<Coating> coating;         // every surface's, over the prescription's own
    double sensorDistance = 0.0;            // mm behind the last vertex; 0: the back focus at the d line
    int grid = 32;                          // rays across the region of the entrance a path lets through
    int raster = 64;                        // density pixels across the footprint
    bool clearApertures = true;             // false: surfaces never clip (the iris still does)
};

struct GhostFootprint {
    size_t first = 0, second = 0;           // surfaces, 0-based in the file's order (the stop counted)
    double wavelength = 0.0;
    double centroidX = 0.0, centroidY = 0.0;   // mm on the sensor: where its light is centred
    double area = 0.0;                      // mm^2 on the sensor
    double energy = 0.0;                    // light units (above)
    double reflectance = 0.0;               // R_i R_j at the wavelength
    double transmittance = 0.0;             // of the path's refractions, at normal incidence
    size_t rays = 0;                        // grid rays the iris and the rims let through to the sensor
    // The density raster: size x size pixels of `pixel` mm, the first at (left, bottom) on the
    // sensor, row by row from the bottom (smallest y); light per mm^2. Empty when no ray landed.
    double left = 0.0, bottom = 0.0, pixel = 0.0;
    int size = 0;
    std::vector<float> density;
};

struct GhostFootprints {
    std::vector<double> wavelengths;
    std::vector<double> lightFlux;          // per wavelength: the light's own flux through the aperture
    std::vector<GhostFootprint> ghosts;     // every ghost (i < j, the stop excluded), each at every wavelength in turn
};

GhostFootprints TraceGhostFootprints(const Prescription& lens, const FootprintSettings& settings);

// One ghost at one wavelength.
GhostFootprint TraceGhostFootprint(const Prescription& lens, size_t i, size_t j, double wavelength,
                                   const FootprintSettings& settings);

// The footprints of the last few (lens, f-number, aperture, field angle) asked for, with the other
// settings that shape them, kept by whoever owns the cache.
class FootprintCache {
public:
    explicit FootprintCache(size_t capacity = 4) : capacity_(capacity) {}
    const GhostFootprints& Get(const Prescription& lens, const FootprintSettings& settings);
    size_t Traced() const { return traced_; }   // how many times Get had to trace

private:
    struct Entry {
        Prescription lens;
        FootprintSettings settings;
        GhostFootprints footprints;
    };
    size_t capacity_;
    size_t traced_ = 0;
    std::vector<Entry> entries_;   // the most recently used last
};

}  // namespace vellux::lens

#endif  // VELLUX_LENS_GHOST_FOOTPRINT_H
