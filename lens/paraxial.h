// Paraxial optics with ray-transfer matrices: a ray is (y, u), its height above the axis and its
// slope, and each surface, gap and mirror is a 2x2 matrix acting on it. Paths through the lens
// (the light's own, and each ghost's) are lists of events at surfaces, so that the paraxial model
// and the exact tracer (exact_trace.h) follow the very same path.
//
// Going backwards (after an odd number of reflections) the path is unfolded: the axis is turned
// round, so a surface's radius changes sign and its media swap.
#ifndef VELLUX_LENS_PARAXIAL_H
#define VELLUX_LENS_PARAXIAL_H

#include <vector>

#include "lens/prescription.h"

namespace vellux::lens {

struct Matrix2 {
    double a = 1.0, b = 0.0, c = 0.0, d = 1.0;   // y' = a y + b u, u' = c y + d u
};
Matrix2 operator*(const Matrix2& m, const Matrix2& n);   // n first, then m
Matrix2 Translation(double distance);
Matrix2 Refraction(double n1, double n2, double radius);   // radius 0: flat
Matrix2 Reflection(double radius);                         // as the ray arrives; 0: flat

// One event of a path: the ray meets `surface` going forward or backward, and passes it
// (refracting, or crossing the stop) or is reflected by it.
struct Event {
    size_t surface = 0;
    bool backward = false;   // the direction the ray arrives in
    bool reflect = false;
};
using Path = std::vector<Event>;

Path LightPath(const Prescription& lens);
// The ghost of surfaces i < j: forward to j, reflected, back to i, reflected, forward to the sensor.
Path GhostPath(const Prescription& lens, size_t i, size_t j);

// The index of the medium after surface k (before the first surface for k = -1) at a wavelength.
double MediumIndex(const Prescription& lens, long k, double wavelength);
// Axial position of each surface's vertex, mm from the first.
std::vector<double> VertexPositions(const Prescription& lens);

// The matrix of `path` from the plane of the first vertex (in object space) up to event `end`
// (exclusive; path.size(): through the last surface, then on to the sensor `sensorDistance`
// behind the last vertex).
Matrix2 PathMatrix(const Prescription& lens, const Path& path, double wavelength, size_t end, double sensorDistance);

struct ParaxialData {
    double focalLength = 0.0;           // effective, mm
    double backFocus = 0.0;             // from the last vertex to the focus of a subject at infinity, mm
    double pupilDiameter = 0.0;         // entrance pupil at full aperture, mm
    double pupilPosition = 0.0;         // entrance pupil, mm behind the first vertex
    double fNumber = 0.0;               // at full aperture
};
ParaxialData Paraxial(const Prescription& lens, double wavelength);

// The stop's radius that gives `fNumber` (never more than its clear aperture), mm.
double StopRadius(const Prescription& lens, double fNumber);

}  // namespace vellux::lens

#endif  // VELLUX_LENS_PARAXIAL_H
