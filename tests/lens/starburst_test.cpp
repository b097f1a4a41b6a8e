// The diffraction starburst: its spikes against the blades, the round aperture's Airy rings at
// 1.22 lambda N, the wavelengths' scales, the light it holds, and bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

#include "lens/spectrum.h"
#include "lens/starburst.h"

namespace vellux::lens {
namespace {

// A pattern's value at (x, y) pixels from the light, interpolated; `channels` values a pixel.
double At(const Starburst& pattern, int channels, int channel, double x, double y) {
    const double column = x + pattern.size / 2, row = y + pattern.size / 2;
    const int c0 = int(std::floor(column)), r0 = int(std::floor(row));
    const double tc = column - c0, tr = row - r0;
    const auto value = [&](int r, int c) { return double(pattern.rgb[(size_t(r) * size_t(pattern.size) + size_t(c)) * channels + channel]); };
    return (1 - tr) * ((1 - tc) * value(r0, c0) + tc * value(r0, c0 + 1)) + tr * ((1 - tc) * value(r0 + 1, c0) + tc * value(r0 + 1, c0 + 1));
}

// The brightness (r + g + b) at `samples` angles on a circle of `radius` pixels round the light.
std::vector<double> Circle(const Starburst& starburst, double radius, int samples) {
    std::vector<double> ring(size_t(samples), 0.0);
    for (int k = 0; k < samples; ++k) {
        const double angle = 2.0 * std::numbers::pi * k / samples;
        for (int c = 0; c < 3; ++c) ring[size_t(k)] += At(starburst, 3, c, radius * std::cos(angle), radius * std::sin(angle));
    }
    return ring;
}

// The spikes crossing the circle: runs of angles brighter than the geometric mean of the
// circle's brightest and its median, each counted once, with the angle of each run's peak.
std::vector<double> Spikes(const std::vector<double>& ring) {
    std::vector<double> sorted = ring;
    std::nth_element(sorted.begin(), sorted.begin() + long(sorted.size() / 2), sorted.end());
    const double median = sorted[sorted.size() / 2];
    const double threshold = std::sqrt(median * *std::max_element(ring.begin(), ring.end()));
    const size_t n = ring.size();
    // Start in a gap, so that no run is split across the circle's start.
    size_t start = 0;
    while (start < n && ring[start] > threshold) ++start;
    std::vector<double> peaks;
    for (size_t k = 0; k < n;) {
        const size_t at = (start + k) % n;
        if (ring[at] <= threshold) {
            ++k;
            continue;
        }
        size_t best = at;
        for (; k < n && ring[(start + k) % n] > threshold; ++k)
            if (ring[(start + k) % n] > ring[best]) best = (start + k) % n;
        peaks.push_back(360.0 * double(best) / double(n));
    }
    return peaks;
}

struct Blades {
    Aperture aperture;
    size_t spikes;
    double firstSpike;   // degrees: at right angles to a blade's edge, a multiple of 180 / spikes on
};
// An even count's opposite blades are parallel and share their spikes; an odd count's are not.
const Blades kBlades[] = {
    {{6, 0.0, 0.0}, 6, 30.0},
    {{7, 0.0, 0.0}, 14, 180.0 / 7.0},
    {{5, 0.0, 0.2}, 10, 36.0 + 0.2 * 180.0 / std::numbers::pi},
    {{8, 0.3, 0.0}, 8, 22.5},
};

TEST(Starburst, EachBladeEdgeDrawsASpikeAtRightAnglesToIt) {
    for (const Blades& blades : kBlades) {
        const Starburst starburst = SpectralStarburst(blades.aperture, 8.0);
        // 200 pixels: 15 Airy radii of the shortest wavelength, 9 of the longest.
        const std::vector<double> peaks = Spikes(Circle(starburst, 200.0, 3600));
        ASSERT_EQ(peaks.size(), blades.spikes) << blades.aperture.blades << " blades";
        const double spacing = 360.0 / double(blades.spikes);
        for (const double peak : peaks) {
            const double off = std::remainder(peak - blades.firstSpike, spacing);
            EXPECT_LT(std::abs(off), 1.0) << blades.aperture.blades << " blades, spike at " << peak;
        }
    }
}

// A round opening's pattern is the same all round (to the few per cent its edge's sampling on
// the grid leaves), where straight blades' rays stand out many times over.
TEST(Starburst, RoundApertureHasNoSpikes) {
    const auto variation = [](const Aperture& aperture) {
        const std::vector<double> ring = Circle(SpectralStarburst(aperture, 8.0), 200.0, 720);
        const auto [low, high] = std::minmax_element(ring.begin(), ring.end());
        return *high / *low;
    };
    EXPECT_LT(variation({0, 0.0, 0.0}), 1.2);
    EXPECT_GT(variation({6, 0.0, 0.0}), 10.0);
}

// The first minimum of a single-channel pattern's mean over circles, in mm: circles every
// 1/20 pixel outwards from the light.
double FirstDarkRing(const Starburst& pattern) {
    const auto mean = [&](double radius) {
        double sum = 0.0;
        for (int k = 0; k < 90; ++k) {
            const double angle = 2.0 * std::numbers::pi * k / 90;
            sum += At(pattern, 1, 0, radius * std::cos(angle), radius * std::sin(angle));
        }
        return sum;
    };
    double previous = mean(0.0);
    for (double radius = 0.05;; radius += 0.05) {
        const double value = mean(radius);
        if (value > previous) return (radius - 0.05) * pattern.mmPerPixel;
        previous = value;
    }
}

struct AiryCase {
    double wavelength, fNumber;
};
const AiryCase kAiry[] = {{450.0, 2.8}, {550.0, 8.0}, {650.0, 16.0}, {405.0, 5.6}};

TEST(Starburst, RoundApertureGivesTheAiryPattern) {
    for (const AiryCase& airy : kAiry) {
        const Starburst pattern = MonochromaticStarburst({0, 0.0, 0.0}, airy.fNumber, airy.wavelength);
        ASSERT_EQ(pattern.rgb.size(), size_t(pattern.size) * size_t(pattern.size));
        const double expected = 1.22 * airy.wavelength * 1e-6 * airy.fNumber;
        EXPECT_NEAR(FirstDarkRing(pattern), expected, 0.03 * expected) << airy.wavelength << " nm at f/" << airy.fNumber;
    }
}

TEST(Starburst, RingsScaleWithTheWavelength) {
    const Aperture round{0, 0.0, 0.0};
    const double red = FirstDarkRing(MonochromaticStarburst(round, 8.0, 650.0));
    const double blue = FirstDarkRing(MonochromaticStarburst(round, 8.0, 450.0));
    EXPECT_NEAR(red / blue, 650.0 / 450.0, 0.02 * 650.0 / 450.0);

    // In the spectral pattern, red's first ring lies outside green's and green's outside blue's.
    const Starburst starburst = SpectralStarburst(round, 8.0);
    double rings[3];
    for (int c = 0; c < 3; ++c) {
        Starburst channel{starburst.size, starburst.mmPerPixel, {}};
        for (size_t p = size_t(c); p < starburst.rgb.size(); p += 3) channel.rgb.push_back(starburst.rgb[p]);
        rings[c] = FirstDarkRing(channel);
    }
    EXPECT_GT(rings[0], 1.05 * rings[1]);
    EXPECT_GT(rings[1], 1.05 * rings[2]);
}

// The centre holds the light the whole opening passes, focused: a pixel of side p gathers
// area (p / (lambda N))^2 / 4 of it, the area in units of the radius squared.
TEST(Starburst, CentreAndTotalHoldTheLightTheApertureLetsThrough) {
    const Aperture apertures[] = {{0, 0.0, 0.0}, {6, 0.0, 0.4}, {9, 0.5, 0.0}};
    for (const Aperture& aperture : apertures) {
        const Starburst pattern = MonochromaticStarburst(aperture, 4.0, 550.0);
        const double side = pattern.mmPerPixel / (550e-6 * 4.0);
        const double centre = pattern.rgb[size_t(pattern.size / 2) * size_t(pattern.size) + size_t(pattern.size / 2)];
        EXPECT_NEAR(centre, OpenArea(aperture) * side * side / 4.0, 0.01 * centre) << aperture.blades << " blades";
        EXPECT_EQ(centre, *std::max_element(pattern.rgb.begin(), pattern.rgb.end()));
        // Nearly all of it within the 29 Airy radii shown at 550 nm.
        double total = 0.0;
        for (const float value : pattern.rgb) total += value;
        EXPECT_GT(total, 0.98) << aperture.blades << " blades";
        EXPECT_LE(total, 1.0 + 1e-4) << aperture.blades << " blades";
    }
}

TEST(Starburst, ChannelsHoldOneEachAndThePatternScalesWithTheFNumber) {
    const Aperture aperture{7, 0.2, 0.1};
    const Starburst f8 = SpectralStarburst(aperture, 8.0);
    const Starburst f16 = SpectralStarburst(aperture, 16.0);
    ASSERT_EQ(f8.rgb.size(), 3 * size_t(f8.size) * size_t(f8.size));
    double sums[3] = {0.0, 0.0, 0.0};
    for (size_t i = 0; i < f8.rgb.size(); ++i) {
        ASSERT_GE(f8.rgb[i], 0.0f);
        sums[i % 3] += f8.rgb[i];
    }
    for (const double sum : sums) EXPECT_NEAR(sum, 1.0, 1e-5);
    // Twice the f-number: the same pattern, twice the size on the sensor.
    EXPECT_DOUBLE_EQ(f16.mmPerPixel, 2.0 * f8.mmPerPixel);
    EXPECT_EQ(f16.rgb, f8.rgb);
    // A real aperture's far field is the same turned half a turn.
    const int centre = f8.size / 2;
    for (const auto& [dx, dy] : {std::pair{37, 5}, {-120, 64}, {3, -300}})
        EXPECT_FLOAT_EQ(f8.rgb[3 * (size_t(centre + dy) * size_t(f8.size) + size_t(centre + dx))],
                        f8.rgb[3 * (size_t(centre - dy) * size_t(f8.size) + size_t(centre - dx))]);
}

TEST(StarburstCache, ComputesEachApertureAndFNumberOnce) {
    StarburstCache cache;
    const Starburst& first = cache.Get({6, 0.0, 0.0}, 8.0);
    EXPECT_EQ(&cache.Get({6, 0.0, 0.0}, 8.0), &first);
    EXPECT_EQ(cache.Size(), 1u);
    EXPECT_NE(&cache.Get({6, 0.0, 0.1}, 8.0), &first);
    EXPECT_NE(&cache.Get({6, 0.0, 0.0}, 11.0), &first);
    EXPECT_EQ(cache.Size(), 3u);
    // A round opening is one whatever its blades' curvature and rotation.
    const Starburst& round = cache.Get({0, 0.0, 0.0}, 8.0);
    EXPECT_EQ(&cache.Get({0, 1.0, 2.0}, 8.0), &round);
    EXPECT_EQ(cache.Size(), 4u);
}

TEST(Starburst, RefusesBadAperturesWithTheAperturesOwnMessage) {
    const Aperture bad[] = {{2, 0.0, 0.0}, {100, 0.0, 0.0}, {-6, 0.0, 0.0}, {6, 1.5, 0.0}, {6, std::nan(""), 0.0},
                            {6, 0.0, INFINITY}};
    StarburstCache cache;
    for (const Aperture& aperture : bad) {
        std::string expected;
        try {
            CheckAperture(aperture, "aperture");
        } catch (const std::invalid_argument& error) {
            expected = error.what();
        }
        ASSERT_FALSE(expected.empty()) << aperture.blades;
        const auto message = [](auto&& compute) -> std::string {
            try {
                compute();
            } catch (const std::invalid_argument& error) {
                return error.what();
            }
            return "accepted";
        };
        EXPECT_EQ(message([&] { SpectralStarburst(aperture, 8.0); }), expected);
        EXPECT_EQ(message([&] { MonochromaticStarburst(aperture, 8.0, 550.0); }), expected);
        EXPECT_EQ(message([&] { cache.Get(aperture, 8.0); }), expected);
    }
    EXPECT_EQ(cache.Size(), 0u);
    for (const double fNumber : {0.0, -2.0, std::nan("")})
        EXPECT_THROW(SpectralStarburst({6, 0.0, 0.0}, fNumber), std::invalid_argument) << fNumber;
    EXPECT_THROW(MonochromaticStarburst({6, 0.0, 0.0}, 8.0, 0.0), std::invalid_argument);
}

}  // namespace
}  // namespace vellux::lens
