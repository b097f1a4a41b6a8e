#include "lens/skew_trace.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <stdexcept>
#include <string>

namespace vellux::lens {

namespace {

Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec3 operator*(double s, Vec3 a) { return {s * a.x, s * a.y, s * a.z}; }
double Dot3(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

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
int Iris::Covering(double x, double y) const {
    if (open_) return -1;
    const double u = x / radius_, v = y / radius_;
    const double r2 = u * u + v * v;
    if (blades_ == 0) return r2 <= 1.0 ? -1 : 0;
    int blade = 0;
    double p = u * cos_[0] + v * sin_[0];
    for (int k = 1; k < blades_; ++k) {
        const double q = u * cos_[size_t(k)] + v * sin_[size_t(k)];
        if (q > p) p = q, blade = k;
    }
    if (curvature_ == 0.0) return p <= chord_ ? -1 : blade;
    const double r = std::sqrt(r2);
    return (r - curvature_) * p <= (1.0 - curvature_) * chord_ * r ? -1 : blade;
}

namespace {

double Blend(const double* corners, double u, double v) {
    const double low = corners[0] + u * (corners[1] - corners[0]), high = corners[2] + u * (corners[3] - corners[2]);
    return low + v * (high - low);
}

}  // namespace

Iris::Patch::Patch(const Iris& iris, const double (&corners)[4][2]) : iris_(&iris) {
    for (int c = 0; c < 4; ++c) {
        corners_[c][0] = corners[c][0], corners_[c][1] = corners[c][1];
        clear_ = clear_ && iris.Open(corners[c][0], corners[c][1]);
    }
    straight_ = iris.blades_ > 0 && iris.curvature_ == 0.0;
    if (clear_ || !straight_) return;
    for (int k = 0; k < iris.blades_; ++k) {
        std::array<double, 4>& past = past_[size_t(reaching_)];
        for (int c = 0; c < 4; ++c)
            past[size_t(c)] = (corners[c][0] * iris.cos_[size_t(k)] + corners[c][1] * iris.sin_[size_t(k)]) / iris.radius_ - iris.chord_;
        reaching_ += *std::max_element(past.begin(), past.end()) > 0.0;
    }
}

bool Iris::Patch::Open(double u, double v) const {
    if (clear_) return true;
    if (straight_) {
        for (int k = 0; k < reaching_; ++k) {
            if (Blend(past_[size_t(k)].data(), u, v) > 0.0) return false;
        }
        return true;
    }
    const double x[4] = {corners_[0][0], corners_[1][0], corners_[2][0], corners_[3][0]};
    const double y[4] = {corners_[0][1], corners_[1][1], corners_[2][1], corners_[3][1]};
    return iris_->Open(Blend(x, u, v), Blend(y, u, v));
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
        step.rimScale = clearApertures && surface.diameter > 0.0 ? 1.0 / surface.diameter : 1.0;
        step.reflect = event.reflect;
        step.stop = surface.stop;
        const double before = MediumIndex(lens, long(event.surface) - 1, wavelength);
        const double after = MediumIndex(lens, long(event.surface), wavelength);
        step.eta = event.backward ? after / before : before / after;
        if (surface.stop && firstStop_ == path.size()) firstStop_ = steps_.size();
        stopCrossings_ += surface.stop;
        steps_.push_back(step);
    }
    sensorZ_ = z.back() + sensorDistance;
}

SkewTrace SkewPath::Trace(Vec3 origin, Vec3 direction, const Iris& iris, size_t events) const {
    SkewTrace traced;
    Trace(&origin, 1, direction, iris, events, &traced);
    return traced;
}

// Moves the ray at `at` along `d` onto the step's surface, at its point nearer the vertex (the
// sphere's other side is not the lens); false when it passes the sphere by.
inline bool SkewPath::Meet(const Step& step, Vec3& at, Vec3 d) {
    if (step.radius == 0.0) {
        if (d.z == 0.0) return false;
        at = at + ((step.vertex - at.z) / d.z) * d;
        return true;
    }
    const Vec3 o = at - Vec3{0.0, 0.0, step.vertex + step.radius};
    const double half = Dot3(o, d), rest = Dot3(o, o) - step.radius * step.radius;
    const double disc = half * half - rest;
    if (disc < 0.0) return false;
    const double root = std::sqrt(disc);
    const double ta = -half - root, tb = -half + root;
    const double t = std::abs(at.z + ta * d.z - step.vertex) < std::abs(at.z + tb * d.z - step.vertex) ? ta : tb;
    at = at + t * d;
    return true;
}

// Reflects or refracts the direction `d` at the surface's point `at`; false when it is totally
// reflected instead.
inline bool SkewPath::Turn(const Step& step, Vec3 at, Vec3& d) {
    const Vec3 v = d;
    Vec3 normal = step.radius == 0.0 ? Vec3{0.0, 0.0, -1.0} : step.curvature * (at - Vec3{0.0, 0.0, step.vertex + step.radius});
    if (Dot3(normal, v) > 0.0) normal = -1.0 * normal;   // facing the arriving ray
    const double cosi = -Dot3(normal, v);
    if (step.reflect) {
        d = v + (2.0 * cosi) * normal;
        return true;
    }
    const double k = 1.0 - step.eta * step.eta * (1.0 - cosi * cosi);
    if (k < 0.0) return false;
    d = step.eta * v + (step.eta * cosi - std::sqrt(k)) * normal;
    return true;
}

// A batch of rays at a time, each step of the path for every ray of the batch still going: the
// rays are independent, so their square roots and divisions overlap.
constexpr size_t kBatch = 16;

void SkewPath::Trace(const Vec3* origins, size_t count, Vec3 direction, const Iris& iris, size_t events,
                     SkewTrace* traced) const {
    const Vec3 unit = (1.0 / std::sqrt(Dot3(direction, direction))) * direction;
    const size_t end = std::min(events, steps_.size());
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
            for (size_t r = 0; r < n; ++r) {
                if (!going[r]) continue;
                const auto lose = [&](Miss miss) {
                    out[r].miss = miss;
                    out[r].event = e;
                    going[r] = false;
                };
                if (!Meet(step, at[r], d[r])) {
                    lose(Miss::passedBy);
                    continue;
                }
                const Vec3 p = at[r];
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
                if (!Turn(step, p, d[r])) lose(Miss::totalReflection);
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

// The unclipped rays of a batch, coordinate by coordinate, followed a step at a time through short
// loops across the batch: each loop's rays are independent, so their square roots and products
// overlap instead of waiting on one ray's chain of them. A ray lost for good goes on with harmless
// numbers and is left out at the end.
struct UnclippedBatch {
    static constexpr size_t kSize = 32;
    double px[kSize], py[kSize], pz[kSize], dx[kSize], dy[kSize], dz[kSize], rim[kSize];
    double t[kSize], half[kSize], root[kSize];                    // along the ray to the surface
    double nx[kSize], ny[kSize], nz[kSize], cosine[kSize];        // the surface's normal there
    bool going[kSize];
};

void SkewPath::TraceUnclipped(const Vec3* origins, size_t count, Vec3 direction, UnclippedTrace* traced) const {
    if (stopCrossings_ > kMaxStopCrossings)
        throw std::logic_error("a path crossing the stop " + std::to_string(stopCrossings_) + " times cannot be traced unclipped");
    const Vec3 unit = (1.0 / std::sqrt(Dot3(direction, direction))) * direction;
    UnclippedBatch rays;
    for (size_t first = 0; first < count; first += UnclippedBatch::kSize) {
        const size_t n = std::min(UnclippedBatch::kSize, count - first);
        UnclippedTrace* out = traced + first;
        for (size_t r = 0; r < n; ++r) {
            rays.px[r] = origins[first + r].x, rays.py[r] = origins[first + r].y, rays.pz[r] = origins[first + r].z;
            rays.dx[r] = unit.x, rays.dy[r] = unit.y, rays.dz[r] = unit.z;
            rays.rim[r] = std::numeric_limits<double>::infinity();
            rays.going[r] = true;
            out[r] = UnclippedTrace{};
        }
        size_t crossing = 0;
        for (const Step& step : steps_) {
            Meet(step, rays, n);
            for (size_t r = 0; r < n; ++r) {
                rays.px[r] += rays.t[r] * rays.dx[r], rays.py[r] += rays.t[r] * rays.dy[r], rays.pz[r] += rays.t[r] * rays.dz[r];
                rays.rim[r] = std::min(rays.rim[r], (step.clear2 - (rays.px[r] * rays.px[r] + rays.py[r] * rays.py[r])) * step.rimScale);
            }
            if (step.stop) {
                for (size_t r = 0; r < n; ++r) out[r].stop[crossing][0] = rays.px[r], out[r].stop[crossing][1] = rays.py[r];
                ++crossing;
                if (!step.reflect) continue;
            }
            Turn(step, rays, n);
        }
        for (size_t r = 0; r < n; ++r) {
            if (!rays.going[r] || rays.dz[r] <= 0.0) continue;
            const double t = (sensorZ_ - rays.pz[r]) / rays.dz[r];
            out[r].landed = true;
            out[r].sensorX = rays.px[r] + t * rays.dx[r];
            out[r].sensorY = rays.py[r] + t * rays.dy[r];
            out[r].rim = rays.rim[r];
        }
    }
}

// Each ray's distance to the step's surface, into rays.t (Meet, across a batch).
void SkewPath::Meet(const Step& step, UnclippedBatch& rays, size_t n) {
    if (step.radius == 0.0) {
        for (size_t r = 0; r < n; ++r) {
            rays.going[r] = rays.going[r] && rays.dz[r] != 0.0;
            rays.t[r] = rays.going[r] ? (step.vertex - rays.pz[r]) / rays.dz[r] : 0.0;
        }
        return;
    }
    const double centre = step.vertex + step.radius;
    for (size_t r = 0; r < n; ++r) {
        const double oz = rays.pz[r] - centre;
        rays.half[r] = rays.px[r] * rays.dx[r] + rays.py[r] * rays.dy[r] + oz * rays.dz[r];
        const double rest = rays.px[r] * rays.px[r] + rays.py[r] * rays.py[r] + oz * oz - step.radius * step.radius;
        const double disc = rays.half[r] * rays.half[r] - rest;
        rays.going[r] = rays.going[r] && disc >= 0.0;
        rays.root[r] = disc > 0.0 ? disc : 0.0;
    }
    for (size_t r = 0; r < n; ++r) rays.root[r] = std::sqrt(rays.root[r]);
    for (size_t r = 0; r < n; ++r) {
        const double ta = -rays.half[r] - rays.root[r], tb = -rays.half[r] + rays.root[r];
        const double z = rays.pz[r] - step.vertex;
        rays.t[r] = std::abs(z + ta * rays.dz[r]) < std::abs(z + tb * rays.dz[r]) ? ta : tb;
    }
}

// Each ray reflected or refracted at the surface (Turn, across a batch).
void SkewPath::Turn(const Step& step, UnclippedBatch& rays, size_t n) {
    const double centre = step.vertex + step.radius;
    for (size_t r = 0; r < n; ++r) {
        double nx = 0.0, ny = 0.0, nz = -1.0;
        if (step.radius != 0.0)
            nx = step.curvature * rays.px[r], ny = step.curvature * rays.py[r], nz = step.curvature * (rays.pz[r] - centre);
        if (nx * rays.dx[r] + ny * rays.dy[r] + nz * rays.dz[r] > 0.0) nx = -nx, ny = -ny, nz = -nz;   // facing the arriving ray
        rays.nx[r] = nx, rays.ny[r] = ny, rays.nz[r] = nz;
        rays.cosine[r] = -(nx * rays.dx[r] + ny * rays.dy[r] + nz * rays.dz[r]);
    }
    if (step.reflect) {
        for (size_t r = 0; r < n; ++r) {
            const double twice = 2.0 * rays.cosine[r];
            rays.dx[r] += twice * rays.nx[r], rays.dy[r] += twice * rays.ny[r], rays.dz[r] += twice * rays.nz[r];
        }
        return;
    }
    for (size_t r = 0; r < n; ++r) {
        const double k = 1.0 - step.eta * step.eta * (1.0 - rays.cosine[r] * rays.cosine[r]);
        rays.going[r] = rays.going[r] && k >= 0.0;
        rays.root[r] = k > 0.0 ? k : 0.0;
    }
    for (size_t r = 0; r < n; ++r) rays.root[r] = std::sqrt(rays.root[r]);
    for (size_t r = 0; r < n; ++r) {
        const double scale = step.eta * rays.cosine[r] - rays.root[r];
        rays.dx[r] = step.eta * rays.dx[r] + scale * rays.nx[r];
        rays.dy[r] = step.eta * rays.dy[r] + scale * rays.ny[r];
        rays.dz[r] = step.eta * rays.dz[r] + scale * rays.nz[r];
    }
}

}  // namespace vellux::lens
