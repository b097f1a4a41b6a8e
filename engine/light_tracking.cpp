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

// Until its velocity is measured (a second sure sighting) a light may have moved any distance:
// over its first kFirstSteps steps the found light nearest it with an energy within this factor of
// its own is taken for it.
constexpr double kLikeEnergy = 2.0;
constexpr size_t kFirstSteps = 3;

std::optional<size_t> NearestLike(const FollowedLight& light, const std::vector<FoundLight>& found) {
    std::optional<size_t> nearest;
    double best = HUGE_VAL;
    for (size_t f = 0; f < found.size(); ++f) {
        const double ratio = found[f].energy / light.unhiddenEnergy;
        const double distance = std::hypot(found[f].x - light.sureX, found[f].y - light.sureY);
        if (ratio >= 1.0 / kLikeEnergy && ratio <= kLikeEnergy && distance < best) nearest = f, best = distance;
    }
    return nearest;
}

// The found lights in a followed light's reach.
std::vector<std::vector<size_t>> InReach(const std::vector<FollowedLight>& followed, size_t step,
                                         const std::vector<FoundLight>& found) {
    std::vector<std::vector<size_t>> reach(followed.size());
    for (size_t i = 0; i < followed.size(); ++i) {
        if (!followed[i].moving && step > 0 && step <= kFirstSteps) {
            if (const std::optional<size_t> f = NearestLike(followed[i], found)) reach[i].push_back(*f);
            continue;
        }
        const Point p = Predicted(followed[i], step);
        const double limit = Reach(followed[i], step);
        for (size_t f = 0; f < found.size(); ++f)
            if (std::hypot(found[f].x - p.x, found[f].y - p.y) <= limit) reach[i].push_back(f);
    }
    return reach;
}

// Following a light, a sighting shows it whole unless its energy dropped by more than this share
// since the last whole one: a light leaving the camera fades a little a step, something passing in
// front of it takes more. (The finished track judges with both directions at hand: FinishTrack.)
constexpr double kWholeStepFraction = 0.8;

bool ShowsWhole(double unhidden, double energy) { return energy >= kWholeStepFraction * unhidden; }

// A light whole changes its energy by at most this factor (in log) a step, even nearing the
// camera fast; a steeper rise or fall at the shot's ends is something in front of it.
constexpr double kWholeLogStep = 0.2;

// The upper concave hull of (step, log energy) over the steps seen: the indices of its corners.
std::vector<size_t> UpperHull(const std::vector<TrackStep>& steps, const std::vector<double>& logEnergy) {
    std::vector<size_t> hull;
    const auto above = [&](size_t a, size_t b, size_t c) {   // b on or under the line a..c
        return (logEnergy[b] - logEnergy[a]) * double(c - a) <= (logEnergy[c] - logEnergy[a]) * double(b - a);
    };
    for (size_t i = 0; i < steps.size(); ++i) {
        if (steps[i].sighting != Sighting::seen || !(steps[i].energy > 0.0)) continue;
        while (hull.size() >= 2 && above(hull[hull.size() - 2], hull.back(), i)) hull.pop_back();
        hull.push_back(i);
    }
    return hull;
}

// The light's unhidden energy at each step: the upper concave hull of its log energy, so that a
// light growing or fading steadily (nearing or leaving the camera) stays whole and a dip measures
// against the light on either side of it; and no less than its nearest sightings allow, fading by
// kWholeLogStep a step, so that a light already partly hidden at the shot's start or end is not
// taken for whole there. 0 where it was never seen.
std::vector<double> UnhiddenEnergy(const std::vector<TrackStep>& steps) {
    const size_t n = steps.size();
    std::vector<double> logEnergy(n, -HUGE_VAL);
    for (size_t i = 0; i < n; ++i)
        if (steps[i].sighting == Sighting::seen && steps[i].energy > 0.0) logEnergy[i] = std::log(steps[i].energy);
    const std::vector<size_t> hull = UpperHull(steps, logEnergy);
    std::vector<double> bound = logEnergy;
    for (size_t i = 1; i < n; ++i) bound[i] = std::max(bound[i], bound[i - 1] - kWholeLogStep);
    for (size_t i = n - 1; i-- > 0;) bound[i] = std::max(bound[i], bound[i + 1] - kWholeLogStep);
    std::vector<double> unhidden(n, 0.0);
    if (hull.empty()) return unhidden;
    size_t corner = 0;
    for (size_t i = 0; i < n; ++i) {
        while (corner + 1 < hull.size() && hull[corner + 1] <= i) ++corner;
        double level = logEnergy[hull[corner]];   // held past the first and last corners
        if (i > hull[corner] && corner + 1 < hull.size()) {
            const size_t a = hull[corner], b = hull[corner + 1];
            level += (logEnergy[b] - logEnergy[a]) * double(i - a) / double(b - a);
        }
        unhidden[i] = std::exp(std::max(level, bound[i]));
    }
    return unhidden;
}

void Remember(FollowedLight& light, size_t step, const TrackStep& seen) {
    if (!ShowsWhole(light.unhiddenEnergy, seen.energy)) return;
    light.unhiddenEnergy = seen.energy;
    const double steps = double(step - light.sureStep);
    if (steps > 0.0) {
        light.vx += kVelocityGain * ((seen.x - light.sureX) / steps - light.vx);
        light.vy += kVelocityGain * ((seen.y - light.sureY) / steps - light.vy);
        light.moving = true;
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
    const std::vector<double> unhidden = UnhiddenEnergy(light.steps);
    std::vector<double> x(n), y(n), intensity(n);
    std::vector<bool> sure(n), measured(n);
    for (size_t i = 0; i < n; ++i) {
        const TrackStep& s = light.steps[i];
        intensity[i] = s.sighting == Sighting::seen && unhidden[i] > 0.0 ? std::min(s.energy / unhidden[i], 1.0) : 0.0;
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
