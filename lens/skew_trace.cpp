#include "lens/skew_trace.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace vellux::lens {

namespace {

Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec3 operator*(double s, Vec3 a) { return {s * a.x, s * a.y, s * a.z}; }
double Dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

}  // namespace

Iris::Iris(const Aperture& aperture, double radius)
    : open_(false), radius_(radius), curvature_(aperture.curvature), blades_(aperture.blades) {
    if (blades_ == 0) return;
    const double sector = 2.0 * std::numbers::pi / blades_;
    chord_ = std::cos(0.5 * sector);
    for (int k = 0; k < blades_; ++k) {
        const double middle = aperture.rotation + sector * (k + 0.5);
        cos_[size_t(k)] = std::cos(middle);
        sin_[size_t(k)] = std::sin(middle);
    }
}

// In the sector of blade k the edge lies at c + (1 - c) chord / cos(angle from the blade's middle)
// (aperture.cpp), and r cos(that angle) is the point's projection p on the middle, the largest of
// the blades' projections. So the point is open when (r - c) p <= (1 - c) chord r.
bool Iris::Open(double x, double y) const {
    if (open_) return true;
    const double u = x / radius_, v = y / radius_;
    const double r2 = u * u + v * v;
    if (blades_ == 0) return r2 <= 1.0;
    double p = -std::numeric_limits<double>::infinity();
    for (int k = 0; k < blades_; ++k) p = std::max(p, u * cos_[size_t(k)] + v * sin_[size_t(k)]);
    if (curvature_ == 0.0) return p <= chord_;
    const double r = std::sqrt(r2);
    return (r - curvature_) * p <= (1.0 - curvature_) * chord_ * r;
}

SkewPath::SkewPath(const Prescription& lens, const Path& path, double wavelength, double sensorDistance,
                   bool clearApertures) {
    const std::vector<double> z = VertexPositions(lens);
    steps_.reserve(path.size());
    firstStop_ = path.size();
    for (const Event& event : path) {
        const Surface& surface = lens.surfaces[event.surface];
        Step step;
        step.vertex = z[event.surface];
        step.radius = surface.radius;
        step.curvature = surface.radius == 0.0 ? 0.0 : 1.0 / surface.radius;
        step.clear2 = clearApertures ? 0.25 * surface.diameter * surface.diameter : std::numeric_limits<double>::infinity();
        step.reflect = event.reflect;
        step.stop = surface.stop;
        const double before = MediumIndex(lens, long(event.surface) - 1, wavelength);
        const double after = MediumIndex(lens, long(event.surface), wavelength);
        step.eta = event.backward ? after / before : before / after;
        if (surface.stop && firstStop_ == path.size()) firstStop_ = steps_.size();
        steps_.push_back(step);
    }
    sensorZ_ = z.back() + sensorDistance;
}

SkewTrace SkewPath::Trace(Vec3 origin, Vec3 direction, const Iris& iris, size_t events) const {
    SkewTrace traced;
    Trace(&origin, 1, direction, iris, events, &traced);
    return traced;
}

void SkewPath::Trace(const Vec3* origins, size_t count, Vec3 direction, const Iris& iris, size_t events,
                     SkewTrace* traced) const {
    const Vec3 unit = (1.0 / std::sqrt(Dot(direction, direction))) * direction;
    const size_t end = std::min(events, steps_.size());
    // A batch at a time, each step of the path for every ray of the batch still going: the rays
    // are independent, so their square roots and divisions overlap.
    constexpr size_t kBatch = 16;
    Vec3 at[kBatch], d[kBatch];
    bool going[kBatch], crossed[kBatch];
    for (size_t first = 0; first < count; first += kBatch) {
        const size_t n = std::min(kBatch, count - first);
        SkewTrace* out = traced + first;
        for (size_t r = 0; r < n; ++r) {
            at[r] = origins[first + r], d[r] = unit, going[r] = true, crossed[r] = false;
            out[r] = SkewTrace{};
        }
        for (size_t e = 0; e < end; ++e) {
            const Step& step = steps_[e];
            const Vec3 centre{0.0, 0.0, step.vertex + step.radius};
            for (size_t r = 0; r < n; ++r) {
                if (!going[r]) continue;
                const auto lose = [&](Miss miss) {
                    out[r].miss = miss;
                    out[r].event = e;
                    going[r] = false;
                };
                // The surface's point nearer its vertex (its sphere's other side is not the lens).
                Vec3 p = at[r];
                const Vec3 v = d[r];
                if (step.radius == 0.0) {
                    if (v.z == 0.0) {
                        lose(Miss::passedBy);
                        continue;
                    }
                    p = p + ((step.vertex - p.z) / v.z) * v;
                } else {
                    const Vec3 o = p - centre;
                    const double half = Dot(o, v), rest = Dot(o, o) - step.radius * step.radius;
                    const double disc = half * half - rest;
                    if (disc < 0.0) {
                        lose(Miss::passedBy);
                        continue;
                    }
                    const double root = std::sqrt(disc);
                    const double ta = -half - root, tb = -half + root;
                    const double t = std::abs(p.z + ta * v.z - step.vertex) < std::abs(p.z + tb * v.z - step.vertex) ? ta : tb;
                    p = p + t * v;
                }
                at[r] = p;
                if (p.x * p.x + p.y * p.y > step.clear2) {
                    lose(Miss::clearAperture);
                    continue;
                }
                if (step.stop) {
                    if (!crossed[r]) out[r].stopX = p.x, out[r].stopY = p.y;
                    crossed[r] = true;
                    if (!iris.Open(p.x, p.y)) {
                        lose(Miss::iris);
                        continue;
                    }
                    if (!step.reflect) continue;
                }
                Vec3 normal = step.radius == 0.0 ? Vec3{0.0, 0.0, -1.0} : step.curvature * (p - centre);
                if (Dot(normal, v) > 0.0) normal = -1.0 * normal;   // facing the arriving ray
                const double cosi = -Dot(normal, v);
                if (step.reflect) {
                    d[r] = v + (2.0 * cosi) * normal;
                    continue;
                }
                const double k = 1.0 - step.eta * step.eta * (1.0 - cosi * cosi);
                if (k < 0.0) {
                    lose(Miss::totalReflection);
                    continue;
                }
                d[r] = step.eta * v + (step.eta * cosi - std::sqrt(k)) * normal;
            }
        }
        if (end < steps_.size()) continue;
        for (size_t r = 0; r < n; ++r) {
            if (!going[r]) continue;
            if (d[r].z <= 0.0) {
                out[r].miss = Miss::turnedBack;
                out[r].event = steps_.size();
                continue;
            }
            const double t = (sensorZ_ - at[r].z) / d[r].z;
            out[r].sensorX = at[r].x + t * d[r].x;
            out[r].sensorY = at[r].y + t * d[r].y;
        }
    }
}

}  // namespace vellux::lens
