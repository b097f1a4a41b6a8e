#include "engine/light_tracking.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace vellux::engine {

namespace {

// How far from its prediction a light may be found: its radius times this, plus a margin.
constexpr double kReachRadii = 2.5;
constexpr double kReachMargin = 4.0;
// How much of the newest measured velocity goes into the light's velocity.
constexpr double kVelocityGain = 0.7;

struct Point {
    double x = 0.0, y = 0.0;
};

Point Predicted(const FollowedLight& light, size_t step) {
    const double steps = double(step - light.sureStep);
    return {light.sureX + light.vx * steps, light.sureY + light.vy * steps};
}

double Reach(const FollowedLight& light, size_t step) {
    const size_t unsure = step > light.sureStep ? step - light.sureStep - 1 : 0;   // steps since the last sure one
    return kReachRadii * light.start.radius + kReachMargin + 0.5 * std::hypot(light.vx, light.vy) * double(unsure);
}

// The found lights in a followed light's reach.
std::vector<std::vector<size_t>> InReach(const std::vector<FollowedLight>& followed, size_t step,
                                         const std::vector<FoundLight>& found) {
    std::vector<std::vector<size_t>> reach(followed.size());
    for (size_t i = 0; i < followed.size(); ++i) {
        const Point p = Predicted(followed[i], step);
        const double limit = Reach(followed[i], step);
        for (size_t f = 0; f < found.size(); ++f)
            if (std::hypot(found[f].x - p.x, found[f].y - p.y) <= limit) reach[i].push_back(f);
    }
    return reach;
}

void Remember(FollowedLight& light, size_t step, const TrackStep& seen) {
    light.peakEnergy = std::max(light.peakEnergy, seen.energy);
    if (seen.energy < kSureFraction * light.peakEnergy) return;
    const double steps = double(step - light.sureStep);
    if (steps > 0.0) {
        light.vx += kVelocityGain * ((seen.x - light.sureX) / steps - light.vx);
        light.vy += kVelocityGain * ((seen.y - light.sureY) / steps - light.vy);
    }
    light.sureX = seen.x;
    light.sureY = seen.y;
    light.sureStep = step;
}

// Values at the steps `known` says nothing of, linear between the known steps around them; past
// the first and last known ones held when `holdEnds`, else left as they are; all unknown: unchanged.
void FillBetween(std::vector<double>& values, const std::vector<bool>& known, bool holdEnds) {
    std::optional<size_t> before;
    for (size_t i = 0; i < values.size(); ++i) {
        if (!known[i]) continue;
        if (before && i > *before + 1)
            for (size_t j = *before + 1; j < i; ++j)
                values[j] = values[*before] + (values[i] - values[*before]) * double(j - *before) / double(i - *before);
        if (!before && holdEnds)
            for (size_t j = 0; j < i; ++j) values[j] = values[i];
        before = i;
    }
    if (before && holdEnds)
        for (size_t j = *before + 1; j < values.size(); ++j) values[j] = values[*before];
}

struct Line {
    double a = 0.0, b = 0.0;
    double At(int k) const { return a + b * k; }
};

// The least-squares line through values[first .. first+count) over their indices.
Line FitLine(const std::vector<double>& values, int first, int count) {
    double sk = 0.0, sv = 0.0, skk = 0.0, skv = 0.0;
    for (int k = first; k < first + count; ++k) {
        sk += k;
        sv += values[size_t(k)];
        skk += double(k) * k;
        skv += k * values[size_t(k)];
    }
    const double d = count * skk - sk * sk;
    const double b = d > 0.0 ? (count * skv - sk * sv) / d : 0.0;
    return {(sv - b * sk) / count, b};
}

}  // namespace

std::vector<FollowedLight> StartFollowing(const std::vector<FoundLight>& lights) {
    std::vector<FollowedLight> followed;
    for (const FoundLight& light : lights) {
        FollowedLight f;
        f.start = light;
        f.sureX = light.x;
        f.sureY = light.y;
        followed.push_back(std::move(f));
    }
    return followed;
}

void FollowStep(std::vector<FollowedLight>& followed, int32_t frame, const std::vector<FoundLight>& found) {
    if (followed.empty()) return;
    const size_t step = followed.front().steps.size();
    const std::vector<std::vector<size_t>> reach = InReach(followed, step, found);
    std::vector<int> claims(found.size(), 0);
    for (const std::vector<size_t>& r : reach)
        for (const size_t f : r) ++claims[f];
    for (size_t i = 0; i < followed.size(); ++i) {
        const Point p = Predicted(followed[i], step);
        TrackStep s{frame, Sighting::hidden, p.x, p.y, 0.0, p.x, p.y};
        const bool shared = std::any_of(reach[i].begin(), reach[i].end(), [&](size_t f) { return claims[f] > 1; });
        if (shared) {
            s.sighting = Sighting::merged;
        } else if (!reach[i].empty()) {
            double energy = 0.0, x = 0.0, y = 0.0;
            for (const size_t f : reach[i]) {
                energy += found[f].energy;
                x += found[f].x * found[f].energy;
                y += found[f].y * found[f].energy;
            }
            s = {frame, Sighting::seen, x / energy, y / energy, energy, p.x, p.y};
            Remember(followed[i], step, s);
        }
        followed[i].steps.push_back(s);
    }
}

FollowedLight Refollow(const FoundLight& start, const std::vector<TrackStep>& steps) {
    FollowedLight light = StartFollowing({start}).front();
    for (size_t step = 0; step < steps.size(); ++step) {
        const Point p = Predicted(light, step);
        TrackStep s = steps[step];
        s.predictedX = p.x;
        s.predictedY = p.y;
        if (s.sighting == Sighting::seen) {
            Remember(light, step, s);
        } else {
            s.x = p.x;
            s.y = p.y;
            s.energy = 0.0;
        }
        light.steps.push_back(s);
    }
    return light;
}

LightTrack FinishTrack(const FollowedLight& light, double smooth) {
    const size_t n = light.steps.size();
    double peak = 0.0;
    for (const TrackStep& s : light.steps) peak = std::max(peak, s.energy);
    std::vector<double> x(n), y(n), intensity(n);
    std::vector<bool> sure(n), measured(n);
    for (size_t i = 0; i < n; ++i) {
        const TrackStep& s = light.steps[i];
        intensity[i] = s.sighting == Sighting::seen && peak > 0.0 ? std::min(s.energy / peak, 1.0) : 0.0;
        sure[i] = s.sighting == Sighting::seen && intensity[i] >= kSureFraction;
        x[i] = sure[i] ? s.x : s.predictedX;   // unsure: the prediction, unless sure steps lie on both sides
        y[i] = sure[i] ? s.y : s.predictedY;
        measured[i] = s.sighting != Sighting::merged;   // a merged light is neither seen alone nor hidden
    }
    FillBetween(x, sure, false);
    FillBetween(y, sure, false);
    FillBetween(intensity, measured, true);
    x = SmoothPath(x, smooth);
    y = SmoothPath(y, smooth);
    LightTrack track;
    track.colour = light.start.colour;
    track.radius = light.start.radius;
    for (size_t i = 0; i < n; ++i) track.keys.push_back({light.steps[i].frame, x[i], y[i], intensity[i], light.steps[i].sighting});
    return track;
}

LightTrack JoinTracks(const LightTrack& backward, const LightTrack& forward) {
    LightTrack joined = forward;
    joined.keys.clear();
    for (size_t i = backward.keys.size(); i > 1; --i) joined.keys.push_back(backward.keys[i - 1]);
    joined.keys.insert(joined.keys.end(), forward.keys.begin(), forward.keys.end());
    return joined;
}

std::vector<double> SmoothPath(const std::vector<double>& values, double sigma) {
    if (!(sigma > 0.0) || values.size() < 2) return values;
    const int n = int(values.size());
    const int half = int(std::ceil(3.0 * sigma));
    const int fit = std::min(n, half + 1);
    const Line head = FitLine(values, 0, fit), tail = FitLine(values, n - fit, fit);
    // Past each end the path goes on along the line fitted to its end, so that a steady motion
    // stays straight to the last sample and the end samples are steadied like the others.
    cv::Mat padded(1, n + 2 * half, CV_64F);
    for (int i = 0; i < n + 2 * half; ++i) {
        const int k = i - half;
        padded.at<double>(0, i) = k < 0 ? head.At(k) : k >= n ? tail.At(k) : values[size_t(k)];
    }
    cv::Mat smoothed;
    cv::GaussianBlur(padded, smoothed, cv::Size(2 * half + 1, 1), sigma, 0.0, cv::BORDER_REPLICATE);
    std::vector<double> result(values.size());
    for (int i = 0; i < n; ++i) result[size_t(i)] = smoothed.at<double>(0, i + half);
    return result;
}

}  // namespace vellux::engine
