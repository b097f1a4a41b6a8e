#include "lens/exact_trace.h"

#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <vector>

namespace vellux::lens {

namespace {

struct Vec {
    double z, y;
};
Vec operator+(Vec a, Vec b) { return {a.z + b.z, a.y + b.y}; }
Vec operator-(Vec a, Vec b) { return {a.z - b.z, a.y - b.y}; }
Vec operator*(double s, Vec a) { return {s * a.z, s * a.y}; }
double DotYZ(Vec a, Vec b) { return a.z * b.z + a.y * b.y; }

struct Ray {
    Vec at, direction;   // direction of unit length
};

// Where the ray meets the surface with its vertex at `vertex`: the sphere's point nearer the vertex.
std::optional<Vec> Meet(const Ray& ray, double vertex, double radius) {
    if (radius == 0.0) {
        if (ray.direction.z == 0.0) return std::nullopt;
        return ray.at + ((vertex - ray.at.z) / ray.direction.z) * ray.direction;
    }
    const Vec centre{vertex + radius, 0.0};
    const Vec o = ray.at - centre;
    const double half = DotYZ(o, ray.direction), rest = DotYZ(o, o) - radius * radius;
    const double disc = half * half - rest;
    if (disc < 0.0) return std::nullopt;
    const double root = std::sqrt(disc);
    const Vec a = ray.at + (-half - root) * ray.direction, b = ray.at + (-half + root) * ray.direction;
    return std::abs(a.z - vertex) < std::abs(b.z - vertex) ? a : b;
}

Vec NormalAt(Vec point, double vertex, double radius, Vec direction) {
    Vec normal = radius == 0.0 ? Vec{-1.0, 0.0} : (1.0 / radius) * (point - Vec{vertex + radius, 0.0});
    if (DotYZ(normal, direction) > 0.0) normal = -1.0 * normal;   // facing the arriving ray
    return normal;
}

std::optional<Vec> Refract(Vec d, Vec normal, double n1, double n2) {
    const double eta = n1 / n2, cosi = -DotYZ(normal, d);
    const double k = 1.0 - eta * eta * (1.0 - cosi * cosi);
    if (k < 0.0) return std::nullopt;
    return eta * d + (eta * cosi - std::sqrt(k)) * normal;
}

Vec Reflect(Vec d, Vec normal) { return d + (2.0 * -DotYZ(normal, d)) * normal; }

// The height at which a ray crosses the plane z.
double HeightAt(const Ray& ray, double z) { return ray.at.y + (z - ray.at.z) / ray.direction.z * ray.direction.y; }

// Solves f(y0) = target for y0 by the secant method (f is nearly linear near the axis).
std::optional<double> Solve(const std::function<std::optional<double>(double)>& f, double target, double scale) {
    double x0 = 0.0, x1 = scale;
    std::optional<double> f0 = f(x0), f1 = f(x1);
    for (int step = 0; step < 50 && f0 && f1; ++step) {
        if (*f1 == *f0) break;
        const double x2 = x1 - (*f1 - target) * (x1 - x0) / (*f1 - *f0);
        x0 = x1, f0 = f1;
        x1 = x2, f1 = f(x2);
        if (f1 && std::abs(*f1 - target) < 1e-13 * (1.0 + std::abs(target))) return x1;
    }
    if (f1 && std::abs(*f1 - target) < 1e-9) return x1;
    return std::nullopt;
}

}  // namespace

std::optional<TracedRay> TraceRay(const Prescription& lens, const Path& path, double wavelength, double sensorDistance,
                                  double y0, double angle) {
    const std::vector<double> z = VertexPositions(lens);
    Ray ray{{-1.0, y0 - std::tan(angle)}, {std::cos(angle), std::sin(angle)}};   // crosses z = 0 at y0
    TracedRay traced;
    bool crossedStop = false;
    for (const Event& event : path) {
        const Surface& surface = lens.surfaces[event.surface];
        const std::optional<Vec> point = Meet(ray, z[event.surface], surface.radius);
        if (!point) return std::nullopt;
        ray.at = *point;
        if (surface.stop) {
            if (!crossedStop) traced.stopHeight = point->y;
            crossedStop = true;
            if (!event.reflect) continue;
        }
        const Vec normal = NormalAt(*point, z[event.surface], surface.radius, ray.direction);
        if (event.reflect) {
            ray.direction = Reflect(ray.direction, normal);
            continue;
        }
        const double before = MediumIndex(lens, long(event.surface) - 1, wavelength);
        const double after = MediumIndex(lens, long(event.surface), wavelength);
        const std::optional<Vec> bent = event.backward ? Refract(ray.direction, normal, after, before)
                                                       : Refract(ray.direction, normal, before, after);
        if (!bent) return std::nullopt;
        ray.direction = *bent;
    }
    if (ray.direction.z <= 0.0) return std::nullopt;
    traced.sensorHeight = HeightAt(ray, z.back() + sensorDistance);
    return traced;
}

double ExactFocalLength(const Prescription& lens, double wavelength, double height) {
    const std::vector<double> z = VertexPositions(lens);
    const Path path = LightPath(lens);
    // The final ray from two sensor planes gives its slope.
    const std::optional<TracedRay> near = TraceRay(lens, path, wavelength, 0.0, height, 0.0);
    const std::optional<TracedRay> far = TraceRay(lens, path, wavelength, 1.0, height, 0.0);
    if (!near || !far) return NAN;
    const double slope = far->sensorHeight - near->sensorHeight;
    return -height / std::sin(std::atan(slope));
}

std::optional<double> ChiefRayHeight(const Prescription& lens, double wavelength, double sensorDistance, double angle) {
    const Path light = LightPath(lens);
    const auto stopHeight = [&](double y0) -> std::optional<double> {
        const std::optional<TracedRay> ray = TraceRay(lens, light, wavelength, sensorDistance, y0, angle);
        if (!ray) return std::nullopt;
        return ray->stopHeight;
    };
    // Far off the axis the rays that get through to the stop at all make a narrow band of the
    // front surface, well away from its centre (a fisheye's at 70 degrees, a few mm wide): the
    // band is found across the whole surface and beyond, then halved down to the stop's centre.
    constexpr int kSamples = 160;
    const double reach = lens.surfaces.front().diameter + 2.0 * std::abs(std::tan(angle));
    double lastY = 0.0;
    std::optional<double> last;
    for (int k = 0; k <= kSamples; ++k) {
        const double y = -reach + 2.0 * reach * k / kSamples;
        const std::optional<double> here = stopHeight(y);
        if (here && last && (*here <= 0.0) != (*last <= 0.0)) {
            double lo = lastY, hi = y;
            const bool rising = *here > *last;
            for (int step = 0; step < 60; ++step) {
                const double mid = 0.5 * (lo + hi);
                const std::optional<double> at = stopHeight(mid);
                if (!at) break;
                ((*at < 0.0) == rising ? lo : hi) = mid;
            }
            const std::optional<TracedRay> chief = TraceRay(lens, light, wavelength, sensorDistance, 0.5 * (lo + hi), angle);
            if (chief) return chief->sensorHeight;
        }
        if (here) lastY = y;
        last = here;
    }
    return std::nullopt;
}

namespace {

constexpr double kFieldStep = 2.0 * std::numbers::pi / 180.0, kWidestField = 89.0 * std::numbers::pi / 180.0;

// The chief rays out from the axis kFieldStep at a time, to the first whose image lies `target`
// or further out (its angle), or to the end of the lens's field (nothing): where a ray is lost or
// the images turn back. `below`, `reached` and `rate` say where the last one before landed and how
// fast the heights grew there.
struct FieldScan {
    double below = 0.0, reached = 0.0, rate = 0.0;
};
std::optional<double> ScanField(const Prescription& lens, double target, double wavelength, double sensorDistance,
                                FieldScan& scan) {
    for (double angle = kFieldStep; angle <= kWidestField; angle += kFieldStep) {
        const std::optional<double> h = ChiefRayHeight(lens, wavelength, sensorDistance, angle);
        if (!h || *h <= scan.reached) return std::nullopt;
        if (*h >= target) return angle;
        scan.rate = (*h - scan.reached) / kFieldStep;
        scan.below = angle, scan.reached = *h;
    }
    return std::nullopt;
}

}  // namespace

double FieldAngle(const Prescription& lens, double height, double wavelength, double sensorDistance) {
    if (height == 0.0) return 0.0;
    const double sign = height < 0.0 ? -1.0 : 1.0, target = std::abs(height);
    FieldScan scan;
    if (const std::optional<double> above = ScanField(lens, target, wavelength, sensorDistance, scan)) {
        double lo = scan.below, hi = *above;
        for (int k = 0; k < 30; ++k) {
            const double mid = 0.5 * (lo + hi);
            const std::optional<double> h = ChiefRayHeight(lens, wavelength, sensorDistance, mid);
            (h && *h < target ? lo : hi) = mid;
        }
        return sign * 0.5 * (lo + hi);
    }
    const double beyond = scan.rate > 0.0 ? scan.below + (target - scan.reached) / scan.rate : kWidestField;
    return sign * std::min(beyond, kWidestField);
}

double FieldRadius(const Prescription& lens, double wavelength, double sensorDistance) {
    FieldScan scan;
    ScanField(lens, std::numeric_limits<double>::infinity(), wavelength, sensorDistance, scan);
    return scan.reached;
}

std::optional<GhostImage> ExactGhost(const Prescription& lens, size_t i, size_t j, double wavelength, double stopRadius,
                                     double sensorDistance, double angle) {
    const Path ghost = GhostPath(lens, i, j), light = LightPath(lens);
    const auto at = [&](const Path& path, double y0, bool stop) -> std::optional<double> {
        const std::optional<TracedRay> ray = TraceRay(lens, path, wavelength, sensorDistance, y0, angle);
        if (!ray) return std::nullopt;
        return stop ? ray->stopHeight : ray->sensorHeight;
    };
    const double scale = lens.surfaces[lens.stopIndex].diameter * 0.01;
    // The ray through the stop's centre, and two crossing it a little off centre.
    const double h = stopRadius * 1e-3;
    const std::optional<double> centre = Solve([&](double y) { return at(ghost, y, true); }, 0.0, scale);
    const std::optional<double> above = Solve([&](double y) { return at(ghost, y, true); }, h, scale);
    const std::optional<double> below = Solve([&](double y) { return at(ghost, y, true); }, -h, scale);
    const std::optional<double> chief = Solve([&](double y) { return at(light, y, true); }, 0.0, scale);
    if (!centre || !above || !below || !chief) return std::nullopt;
    const std::optional<double> yc = at(ghost, *centre, false), ya = at(ghost, *above, false), yb = at(ghost, *below, false);
    const std::optional<double> yl = at(light, *chief, false);
    if (!yc || !ya || !yb || !yl || *yl == 0.0) return std::nullopt;
    return GhostImage{*yc / *yl, std::abs(*ya - *yb) / (2.0 * h) * stopRadius};
}

}  // namespace vellux::lens
