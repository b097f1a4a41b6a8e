#include "lens/paraxial.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "lens/glass.h"

namespace vellux::lens {

Matrix2 operator*(const Matrix2& m, const Matrix2& n) {
    return {m.a * n.a + m.b * n.c, m.a * n.b + m.b * n.d, m.c * n.a + m.d * n.c, m.c * n.b + m.d * n.d};
}

Matrix2 Translation(double distance) { return {1.0, distance, 0.0, 1.0}; }

Matrix2 Refraction(double n1, double n2, double radius) {
    const double curvature = radius == 0.0 ? 0.0 : 1.0 / radius;
    return {1.0, 0.0, -(n2 - n1) * curvature / n2, n1 / n2};
}

Matrix2 Reflection(double radius) {
    const double curvature = radius == 0.0 ? 0.0 : 1.0 / radius;
    return {1.0, 0.0, 2.0 * curvature, 1.0};
}

Path LightPath(const Prescription& lens) {
    Path path;
    for (size_t k = 0; k < lens.surfaces.size(); ++k) path.push_back({k, false, false});
    return path;
}

Path GhostPath(const Prescription& lens, size_t i, size_t j) {
    if (!(i < j && j < lens.surfaces.size())) throw std::logic_error("a ghost needs surfaces i < j");
    Path path;
    for (size_t k = 0; k < j; ++k) path.push_back({k, false, false});
    path.push_back({j, false, true});
    for (size_t k = j - 1; k > i; --k) path.push_back({k, true, false});
    path.push_back({i, true, true});
    for (size_t k = i + 1; k < lens.surfaces.size(); ++k) path.push_back({k, false, false});
    return path;
}

double MediumIndex(const Prescription& lens, long k, double wavelength) {
    if (k < 0) return 1.0;
    const Surface& surface = lens.surfaces[size_t(k)];
    return IndexAt(surface.n, surface.abbe, wavelength);
}

std::vector<double> VertexPositions(const Prescription& lens) {
    std::vector<double> z(lens.surfaces.size(), 0.0);
    for (size_t k = 1; k < z.size(); ++k) z[k] = z[k - 1] + lens.surfaces[k - 1].thickness;
    return z;
}

namespace {

// The matrix of one event, in the unfolded frame of the direction the ray arrives in.
Matrix2 EventMatrix(const Prescription& lens, const Event& event, double wavelength) {
    const Surface& surface = lens.surfaces[event.surface];
    const double radius = event.backward ? -surface.radius : surface.radius;
    if (event.reflect) return Reflection(radius);
    if (surface.stop) return {};
    const double before = MediumIndex(lens, long(event.surface) - 1, wavelength);
    const double after = MediumIndex(lens, long(event.surface), wavelength);
    return event.backward ? Refraction(after, before, radius) : Refraction(before, after, radius);
}

}  // namespace

Matrix2 PathMatrix(const Prescription& lens, const Path& path, double wavelength, size_t end, double sensorDistance) {
    const std::vector<double> z = VertexPositions(lens);
    Matrix2 m;
    for (size_t e = 0; e < std::min(end, path.size()); ++e) {
        if (e > 0) m = Translation(std::abs(z[path[e].surface] - z[path[e - 1].surface])) * m;
        m = EventMatrix(lens, path[e], wavelength) * m;
    }
    if (end >= path.size()) m = Translation(sensorDistance) * m;
    return m;
}

ParaxialData Paraxial(const Prescription& lens, double wavelength) {
    const Path path = LightPath(lens);
    const Matrix2 system = PathMatrix(lens, path, wavelength, path.size(), 0.0);
    if (system.c == 0.0) throw std::runtime_error(lens.name + ": the lens has no power (an afocal system)");
    ParaxialData data;
    data.focalLength = -1.0 / system.c;
    data.backFocus = -system.a / system.c;
    // The stop seen from the front: a ray parallel to the axis at height h meets it at a h.
    const Matrix2 front = PathMatrix(lens, path, wavelength, lens.stopIndex + 1, 0.0);
    data.pupilDiameter = lens.surfaces[lens.stopIndex].diameter / std::abs(front.a);
    // A ray through the stop's centre, traced back to object space: where it crosses the axis.
    const double det = front.a * front.d - front.b * front.c;
    const double y0 = -front.b / det, u0 = front.a / det;   // (y0, u0) = front^-1 (0, 1)
    data.pupilPosition = -y0 / u0;
    data.fNumber = data.focalLength / data.pupilDiameter;
    return data;
}

double StopRadius(const Prescription& lens, double fNumber) {
    const ParaxialData data = Paraxial(lens, kLineD);
    const Path path = LightPath(lens);
    const Matrix2 front = PathMatrix(lens, path, kLineD, lens.stopIndex + 1, 0.0);
    const double radius = data.focalLength / fNumber / 2.0 * std::abs(front.a);
    return std::min(radius, lens.surfaces[lens.stopIndex].diameter / 2.0);
}

}  // namespace vellux::lens
