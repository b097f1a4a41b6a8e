#include "lens/aperture.h"

#include <cmath>
#include <cstdio>
#include <numbers>
#include <stdexcept>

namespace vellux::lens {

namespace {

// The distance from the centre to the edge in direction `angle`: on a straight blade the chord's
// distance over the cosine of the angle from its middle, bowed towards 1 by the curvature.
double EdgeRadius(const Aperture& aperture, double angle) {
    if (aperture.blades == 0) return 1.0;
    const double sector = 2.0 * std::numbers::pi / aperture.blades;
    double within = std::fmod(angle - aperture.rotation, sector);
    if (within < 0.0) within += sector;
    const double half = 0.5 * sector;
    const double straight = std::cos(half) / std::cos(within - half);
    return straight + aperture.curvature * (1.0 - straight);
}

}  // namespace

void CheckAperture(const Aperture& aperture, const std::string& what) {
    const auto fail = [&](const std::string& message) { throw std::invalid_argument(what + ": " + message); };
    if (aperture.blades != 0 && (aperture.blades < kMinBlades || aperture.blades > kMaxBlades))
        fail(std::to_string(aperture.blades) + " is not a blade count (0 for round, " + std::to_string(kMinBlades) +
             " to " + std::to_string(kMaxBlades) + ")");
    if (!(aperture.curvature >= 0.0 && aperture.curvature <= 1.0)) {
        char text[32];
        std::snprintf(text, sizeof(text), "%g", aperture.curvature);
        fail("blade curvature " + std::string(text) + " is not within 0 to 1");
    }
    if (!std::isfinite(aperture.rotation)) fail("the aperture's rotation is not a number");
}

bool Inside(const Aperture& aperture, double x, double y) {
    const double r = std::hypot(x, y);
    if (r == 0.0) return true;
    return r <= EdgeRadius(aperture, std::atan2(y, x));
}

std::vector<std::pair<double, double>> Outline(const Aperture& aperture, int points) {
    std::vector<std::pair<double, double>> outline;
    outline.reserve(size_t(points));
    for (int k = 0; k < points; ++k) {
        const double angle = aperture.rotation + 2.0 * std::numbers::pi * k / points;
        const double r = EdgeRadius(aperture, angle);
        outline.emplace_back(r * std::cos(angle), r * std::sin(angle));
    }
    return outline;
}

// The polar area integral, 1/2 the integral of r(angle)^2, by the midpoint rule over many steps
// (the edge radius is smooth within each blade's sector).
double OpenArea(const Aperture& aperture) {
    if (aperture.blades == 0) return std::numbers::pi;
    constexpr int kSteps = 1 << 14;
    double sum = 0.0;
    for (int k = 0; k < kSteps; ++k) {
        const double r = EdgeRadius(aperture, aperture.rotation + 2.0 * std::numbers::pi * (k + 0.5) / kSteps);
        sum += r * r;
    }
    return 0.5 * sum * 2.0 * std::numbers::pi / kSteps;
}

}  // namespace vellux::lens
