// Synthetic footage with known lights, for the tests of finding and following lights: bright
// discs with Gaussian edges (far above 1 in linear float) over a textured, noisy background, a
// dark bar that may slide in front of them, and the ground truth that made them: each disc's
// centre and the share of its light the bar leaves visible. An 8-bit plate is the same frame
// encoded as sRGB, clipped and rounded, then read back to linear as a plate would be.
#ifndef VELLUX_TESTS_SUPPORT_LIGHT_FOOTAGE_H
#define VELLUX_TESTS_SUPPORT_LIGHT_FOOTAGE_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "engine/linear_frame.h"

namespace footage {

struct Disc {
    double x = 0.0, y = 0.0;                  // the centre, pixel (i, j) centred on (i, j)
    double radius = 6.0;
    double edge = 0.8;                        // the edge's Gaussian width
    double level = 40.0;                      // linear, at the centre
    std::array<float, 3> colour{1.0f, 0.75f, 0.45f};
};

struct Bar {
    double left = 0.0, width = 0.0;           // a vertical bar in front of everything, columns left..left+width
};

// The light of a disc at a distance from its centre.
inline double DiscProfile(const Disc& disc, double distance) {
    return disc.level * 0.5 * std::erfc((distance - disc.radius) / (std::sqrt(2.0) * disc.edge));
}

// How much of pixel column `i` (covering i-0.5..i+0.5) the bar covers.
inline double BarCover(const std::optional<Bar>& bar, int i) {
    if (!bar) return 0.0;
    const double from = std::max(double(i) - 0.5, bar->left), to = std::min(double(i) + 0.5, bar->left + bar->width);
    return std::clamp(to - from, 0.0, 1.0);
}

// The share of the disc's light the bar leaves visible. On an 8-bit plate the light is seen only
// up to its clipping, so its share is of the light as clipped (the bar's partly covered columns
// before the clipping, as the plate has them).
inline double VisibleFraction(const Disc& disc, const std::optional<Bar>& bar, int width, int height, bool eightBit) {
    const double luminance = 0.2126 * disc.colour[0] + 0.7152 * disc.colour[1] + 0.0722 * disc.colour[2];
    const double ceiling = eightBit ? 1.0 / luminance : HUGE_VAL;
    double all = 0.0, visible = 0.0;
    for (int j = 0; j < height; ++j)
        for (int i = 0; i < width; ++i) {
            const double light = DiscProfile(disc, std::hypot(i - disc.x, j - disc.y));
            all += std::min(light, ceiling);
            visible += std::min(light * (1.0 - BarCover(bar, i)), ceiling);
        }
    return visible / all;
}

inline float ToSrgb8AndBack(float linear) {
    const double c = std::clamp(double(linear), 0.0, 1.0);
    const double encoded = c <= 0.0031308 ? 12.92 * c : 1.055 * std::pow(c, 1.0 / 2.4) - 0.055;
    const double level = std::round(encoded * 255.0) / 255.0;
    return float(level <= 0.04045 ? level / 12.92 : std::pow((level + 0.055) / 1.055, 2.4));
}

// One frame: the background (a texture with noise from `seed`), the discs added, the bar over it.
inline vellux::engine::LinearFrame MakeFrame(int width, int height, const std::vector<Disc>& discs,
                                             const std::optional<Bar>& bar, uint32_t seed, bool eightBit) {
    vellux::engine::LinearFrame frame{width, height, std::vector<float>(size_t(width) * size_t(height) * 3)};
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> noise(-0.04, 0.04);
    for (int j = 0; j < height; ++j)
        for (int i = 0; i < width; ++i) {
            const double texture = 0.25 + 0.12 * std::sin(i * 0.37) * std::cos(j * 0.23) + 0.08 * std::sin((i + 2 * j) * 0.11);
            const double cover = BarCover(bar, i);
            for (int c = 0; c < 3; ++c) {
                double value = texture * (0.8 + 0.1 * c) + noise(random);
                for (const Disc& disc : discs) value += DiscProfile(disc, std::hypot(i - disc.x, j - disc.y)) * disc.colour[size_t(c)];
                value = value * (1.0 - cover) + 0.03 * cover;
                float& out = frame.rgb[(size_t(j) * size_t(width) + size_t(i)) * 3 + size_t(c)];
                out = float(std::max(value, 0.0));
                if (eightBit) out = ToSrgb8AndBack(out);
            }
        }
    return frame;
}

// The shot most tests follow: one disc on a gently curved sub-pixel path, and a bar sliding the
// other way across it, which hides it wholly for a few frames.
struct Shot {
    int width = 160, height = 96, frames = 36;
    double barWidth = 34.0;

    Disc DiscAt(int t) const {
        Disc disc;
        disc.x = 18.3 + 3.37 * t;
        disc.y = 30.6 + 0.61 * t + 0.013 * t * t;
        return disc;
    }
    Bar BarAt(int t) const { return {150.0 - 2.1 * t, barWidth}; }
};

}  // namespace footage

#endif  // VELLUX_TESTS_SUPPORT_LIGHT_FOOTAGE_H
