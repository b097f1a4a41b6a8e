#include "engine/light_finding.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace vellux::engine {

namespace {

// How far around the core its glow is sampled for the light's colour, and how far beyond that the
// background it is seen against, in pixels.
constexpr int kGlowWidth = 2;
constexpr int kBackgroundWidth = 3;
// A channel at or above this and at most 1.0 is an integer plate's clipped white.
constexpr float kClippedLevel = 0.98f;

cv::Mat Luminance(const cv::Mat& rgb) {
    cv::Mat luminance;
    cv::transform(rgb, luminance, cv::Matx13f(0.2126f, 0.7152f, 0.0722f));
    return luminance;
}

// Whether a pixel sits at an integer plate's ceiling in any channel: its colour there is lost.
cv::Mat Clipped(const cv::Mat& rgb) {
    std::vector<cv::Mat> channels;
    cv::split(rgb, channels);
    cv::Mat clipped = cv::Mat::zeros(rgb.size(), CV_8U);
    for (const cv::Mat& c : channels) clipped |= (c >= kClippedLevel) & (c <= 1.0f + 1e-6f);
    return clipped;
}

cv::Mat Grown(const cv::Mat& mask, int by) {
    cv::Mat grown;
    cv::dilate(mask, grown, cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(2 * by + 1, 2 * by + 1)));
    return grown;
}

// The light's own colour: the mean of its unclipped pixels, the core and the glow just around
// it (an 8-bit plate's core is clipped white), less the background's colour around that, the
// largest channel 1. White when nothing is left.
std::array<double, 3> GlowColour(const cv::Mat& rgb, const cv::Mat& labels, int label, const cv::Rect& box) {
    const int margin = kGlowWidth + kBackgroundWidth;
    const cv::Rect around = (box + cv::Size(2 * margin, 2 * margin) - cv::Point(margin, margin)) & cv::Rect(0, 0, rgb.cols, rgb.rows);
    const cv::Mat core = labels(around) == label;
    const cv::Mat free = (labels(around) == 0) | core;   // not another light
    const cv::Mat light = Grown(core, kGlowWidth) & free;
    const cv::Mat background = Grown(core, margin) & ~light & free;
    const cv::Mat used = light & ~Clipped(rgb(around));
    if (cv::countNonZero(used) == 0) return {1.0, 1.0, 1.0};
    const cv::Scalar mean = cv::mean(rgb(around), used);
    const cv::Scalar behind = cv::countNonZero(background) > 0 ? cv::mean(rgb(around), background) : cv::Scalar();
    std::array<double, 3> colour{};
    for (int c = 0; c < 3; ++c) colour[size_t(c)] = std::max(mean[c] - behind[c], 0.0);
    const double largest = std::max({colour[0], colour[1], colour[2]});
    if (!(largest > 0.0)) return {1.0, 1.0, 1.0};
    for (double& c : colour) c /= largest;
    return colour;
}

// The light's box with a pixel more each side: cv::moments reads an array of one row or column as
// a list of points, not as an image.
cv::Rect MomentsBox(const cv::Rect& box, const cv::Mat& frame) {
    return (box + cv::Size(2, 2) - cv::Point(1, 1)) & cv::Rect(0, 0, frame.cols, frame.rows);
}

std::optional<FoundLight> Measure(const cv::Mat& rgb, const cv::Mat& luminance, const cv::Mat& labels, int label,
                                  const cv::Rect& core) {
    const cv::Rect box = MomentsBox(core, luminance);
    const cv::Mat mask = labels(box) == label;
    cv::Mat weights = cv::Mat::zeros(box.size(), CV_32F);
    luminance(box).copyTo(weights, mask);
    const cv::Moments moments = cv::moments(weights);
    if (!(moments.m00 > 0.0) || box.width < 2 || box.height < 2) return std::nullopt;
    double peak = 0.0;
    cv::minMaxLoc(luminance(box), nullptr, &peak, nullptr, nullptr, mask);
    FoundLight light;
    light.energy = moments.m00;
    light.x = box.x + moments.m10 / moments.m00;
    light.y = box.y + moments.m01 / moments.m00;
    light.peak = peak;
    light.radius = std::sqrt(double(cv::countNonZero(mask)) / M_PI);
    light.colour = GlowColour(rgb, labels, label, box);
    return light;
}

}  // namespace

std::vector<FoundLight> FindLights(const LinearFrame& frame, double threshold) {
    if (!(threshold > 0.0)) throw std::invalid_argument("--threshold: must be above 0");
    if (frame.width <= 0 || frame.height <= 0) return {};
    const cv::Mat rgb(frame.height, frame.width, CV_32FC3, const_cast<float*>(frame.rgb.data()));
    const cv::Mat luminance = Luminance(rgb);
    const cv::Mat cores = luminance >= threshold;
    cv::Mat labels, stats, centroids;
    const int count = cv::connectedComponentsWithStats(cores, labels, stats, centroids, 8, CV_32S);
    std::vector<FoundLight> lights;
    lights.reserve(size_t(std::max(count - 1, 0)));
    for (int label = 1; label < count; ++label) {
        const cv::Rect box(stats.at<int>(label, cv::CC_STAT_LEFT), stats.at<int>(label, cv::CC_STAT_TOP),
                           stats.at<int>(label, cv::CC_STAT_WIDTH), stats.at<int>(label, cv::CC_STAT_HEIGHT));
        if (const std::optional<FoundLight> light = Measure(rgb, luminance, labels, label, box)) lights.push_back(*light);
    }
    std::stable_sort(lights.begin(), lights.end(), [](const FoundLight& a, const FoundLight& b) { return a.energy > b.energy; });
    return lights;
}

std::vector<FoundLight> BrightestLights(std::vector<FoundLight> lights, size_t count) {
    std::stable_sort(lights.begin(), lights.end(), [](const FoundLight& a, const FoundLight& b) { return a.energy > b.energy; });
    if (lights.size() > count) lights.resize(count);
    return lights;
}

std::optional<FoundLight> NearestLight(const std::vector<FoundLight>& lights, double x, double y) {
    const auto distance = [x, y](const FoundLight& light) { return std::hypot(light.x - x, light.y - y); };
    const auto nearest = std::min_element(lights.begin(), lights.end(),
                                          [&](const FoundLight& a, const FoundLight& b) { return distance(a) < distance(b); });
    if (nearest == lights.end()) return std::nullopt;
    return *nearest;
}

std::array<int, 3> LightKeyColour(const std::array<double, 3>& colour) {
    std::array<int, 3> key{};
    for (size_t c = 0; c < 3; ++c) {
        const double linear = std::clamp(colour[c], 0.0, 1.0);
        const double encoded = linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1.0 / 2.4) - 0.055;
        key[c] = int(std::lround(encoded * 255.0));
    }
    return key;
}

}  // namespace vellux::engine
