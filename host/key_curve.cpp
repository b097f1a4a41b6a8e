// Curves through keys. See key_curve.h.
//
// The smooth curve is a monotone cubic Hermite spline (Fritsch and Carlson's construction, with
// Brodlie's weighted slopes for keys at uneven spacing and the usual three-point end slopes).
// Each key gets one slope, used by the segments on both sides, so the curve is continuous in its
// first derivative at every key; and the slopes are limited so that each segment runs
// monotonically from its key to the next. That is why it was chosen over a Catmull-Rom or other
// cardinal spline: those overshoot the keys (a dissolve keyed 0, 1, 1 would swing past 1, a
// light's intensity keyed down to 0 would dip below it), where this curve never leaves the range
// of the two keys it joins, and a stretch of equal keys stays flat.
#include "host/key_curve.h"

#include <algorithm>
#include <cmath>

namespace vellux::host {

namespace {

double Slope(CurvePoint p, CurvePoint q) { return (q.value - p.value) / (q.t - p.t); }

// The slope at q between p and r: zero at a turn (or a flat side), else the weighted harmonic
// mean of the two sides, which stays within three times the smaller of them.
double InnerSlope(CurvePoint p, CurvePoint q, CurvePoint r) {
    const double left = Slope(p, q), right = Slope(q, r);
    if (left == 0.0 || right == 0.0 || (left < 0.0) != (right < 0.0)) return 0.0;
    const double h0 = q.t - p.t, h1 = r.t - q.t;
    const double w0 = 2.0 * h1 + h0, w1 = h1 + 2.0 * h0;
    return (w0 + w1) / (w0 / left + w1 / right);
}

// The slope at an end key `end`, from its segment to `near` and the one beyond to `far`: the
// three-point estimate, kept to the end segment's direction and within three times its slope.
double EndSlope(CurvePoint end, CurvePoint near, CurvePoint far) {
    const double h0 = std::abs(near.t - end.t), h1 = std::abs(far.t - near.t);
    const double d0 = Slope(end, near), d1 = Slope(near, far);
    const double slope = ((2.0 * h0 + h1) * d0 - h0 * d1) / (h0 + h1);
    if (slope == 0.0 || d0 == 0.0 || (slope < 0.0) != (d0 < 0.0)) return 0.0;
    if ((d0 < 0.0) != (d1 < 0.0) && std::abs(slope) > 3.0 * std::abs(d0)) return 3.0 * d0;
    return slope;
}

}  // namespace

std::string_view InterpolationName(Interpolation interpolation) {
    switch (interpolation) {
        case Interpolation::smooth: return "smooth";
        case Interpolation::constant: return "constant";
        case Interpolation::linear: break;
    }
    return "linear";
}

std::optional<Interpolation> InterpolationNamed(std::string_view name) {
    if (name == "linear") return Interpolation::linear;
    if (name == "smooth") return Interpolation::smooth;
    if (name == "constant") return Interpolation::constant;
    return std::nullopt;
}

double SegmentValue(Interpolation interpolation, const std::optional<CurvePoint>& before, CurvePoint a, CurvePoint b,
                    const std::optional<CurvePoint>& after, double t) {
    const double s = (t - a.t) / (b.t - a.t);
    if (interpolation == Interpolation::constant) return a.value;
    if (interpolation == Interpolation::linear) return a.value + (b.value - a.value) * s;

    const double secant = Slope(a, b);
    const double slopeA = before ? InnerSlope(*before, a, b) : after ? EndSlope(a, b, *after) : secant;
    const double slopeB = after ? InnerSlope(a, b, *after) : before ? EndSlope(b, a, *before) : secant;
    const double h = b.t - a.t;
    const double s2 = s * s, s3 = s2 * s;
    const double value = (2.0 * s3 - 3.0 * s2 + 1.0) * a.value + (s3 - 2.0 * s2 + s) * h * slopeA +
                         (3.0 * s2 - 2.0 * s3) * b.value + (s3 - s2) * h * slopeB;
    // Monotone in the segment: only rounding could take it past either key.
    return std::clamp(value, std::min(a.value, b.value), std::max(a.value, b.value));
}

}  // namespace vellux::host
