// A lens prescription: the surfaces of a published lens design, front (object side) to back, read
// from its JSON file (lenses/README.md has the format).
//
// Errors throw std::runtime_error naming the file and the JSON path of the value concerned
// ("double-gauss.json: /surfaces/3/thickness: must not be negative").
#ifndef VELLUX_LENS_PRESCRIPTION_H
#define VELLUX_LENS_PRESCRIPTION_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "lens/coating.h"

namespace vellux::lens {

struct Surface {
    double radius = 0.0;            // mm; positive: centre of curvature behind (towards the image); 0 flat
    double thickness = 0.0;         // mm along the axis to the next surface
    double n = 1.0;                 // index at the d line of the medium after the surface
    std::optional<double> abbe;     // of that medium, where known
    double diameter = 0.0;          // clear aperture, mm
    bool stop = false;              // the aperture stop: a flat plane in air
    std::optional<Coating> coating; // this surface's own; none: the lens's
};

struct Prescription {
    std::string name;
    std::string source;
    double focalLength = 0.0;       // stated, mm
    std::optional<double> fNumber;  // stated
    Coating coating = Coating::singleLayer;   // the surfaces' default
    std::vector<Surface> surfaces;
    size_t stopIndex = 0;           // index of the stop in `surfaces`
};

// Checks everything an optical computation would trip on: a negative thickness, a missing or
// second stop, a clear aperture that is not positive, numbers that are not finite.
Prescription ParsePrescription(const std::string& text, const std::string& name);
Prescription ReadPrescription(const std::filesystem::path& file);

// The index of the medium before surface `k` (air before the first).
double IndexBefore(const Prescription& lens, size_t k);

}  // namespace vellux::lens

#endif  // VELLUX_LENS_PRESCRIPTION_H
