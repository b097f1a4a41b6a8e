// A lens's physical flare on the frame: patterns and ghost footprints keep their light wherever
// their pixels fall, a ghost lands where it was traced, and bad lenses and apertures are refused
// with the value named.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "engine/lens_look.h"
#include "lens/glass.h"
#include "lens/paraxial.h"

namespace {

using namespace vellux::engine;

double Sum(const std::vector<float>& rgb, int channel) {
    double sum = 0.0;
    for (size_t i = size_t(channel); i < rgb.size(); i += 3) sum += rgb[i];
    return sum;
}

// A pattern's light is kept whether its pixels are much smaller than the frame's (a starburst on a
// small frame), about the same, or larger (a starburst on a large one), and wherever its centre
// falls between pixel centres.
TEST(LensLookPainting, PatternsKeepTheirLightAtEveryScale) {
    constexpr int kSize = 31;
    std::vector<float> pattern(kSize * kSize * 3);
    for (size_t i = 0; i < pattern.size(); ++i) pattern[i] = float((i * 37) % 11) / 10.0f;
    const float scale[3] = {1.0f, 2.0f, 0.5f};
    for (const double patternMm : {0.002, 0.01, 0.013, 0.02}) {   // up to twice the frame's pixels
        for (const double cx : {50.0, 50.37}) {
            const FrameSize frame{100, 80};
            std::vector<float> rgb(size_t(frame.width) * frame.height * 3, 0.0f);
            AddPattern(pattern.data(), kSize, patternMm, cx, 40.61, scale, frame, 0.01, rgb.data());
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(Sum(rgb, c), Sum(pattern, c) * scale[c], 1e-4 * Sum(pattern, c)) << patternMm << " " << cx;
        }
    }
}

// A ghost's light is kept when its wavelengths are folded together, when it is spread from small
// pixels and, within the sampling, when a large one is gathered (at the frame's resolution, or at
// a coarser one brought up to it); and it lands where its footprint lies on the sensor (y up
// there, down on the frame).
TEST(LensLookPainting, FootprintsKeepTheirLightAndLandWhereTraced) {
    vellux::lens::GhostFootprint footprint;
    footprint.size = 40;
    footprint.density.assign(size_t(footprint.size) * footprint.size, 0.0f);
    for (int j = 0; j < footprint.size; ++j)
        for (int i = 0; i < footprint.size; ++i)
            if (std::hypot(i - 19.5, j - 19.5) < 15.0) footprint.density[size_t(j) * footprint.size + size_t(i)] = 1.0f;
    const double total = std::accumulate(footprint.density.begin(), footprint.density.end(), 0.0);
    const FrameSize frame{600, 480};
    const double frameMm = 0.01;
    for (const double pixel : {0.002, 0.03, 0.1}) {   // footprint pixels a fifth, three and ten times the frame's
        footprint.pixel = pixel;
        footprint.left = 0.2 - 0.5 * footprint.size * pixel;     // centred 0.2 mm right of the axis
        footprint.bottom = 0.15 - 0.5 * footprint.size * pixel;  // and 0.15 mm above it
        // At two wavelengths, one with twice the weight in red: folded, the light adds up.
        const vellux::lens::GhostFootprint two[2] = {footprint, footprint};
        const std::array<float, 3> scales[2] = {{1.0f, 0.5f, 0.25f}, {1.0f, 0.5f, 0.25f}};
        std::vector<float> rgb(size_t(frame.width) * frame.height * 3, 0.0f);
        AddGhost(FoldGhost(two, scales, 2), frame, frameMm, rgb.data());
        const double light = 2.0 * total * pixel * pixel;
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(Sum(rgb, c), light * scales[0][size_t(c)], light * scales[0][size_t(c)] * (pixel < frameMm ? 0.01 : 0.03)) << pixel;
        double x = 0.0, y = 0.0;
        for (int fy = 0; fy < frame.height; ++fy)
            for (int fx = 0; fx < frame.width; ++fx) {
                const float v = rgb[(size_t(fy) * frame.width + size_t(fx)) * 3];
                x += v * (fx + 0.5), y += v * (fy + 0.5);
            }
        EXPECT_NEAR(x / Sum(rgb, 0), 300.0 + 0.2 / frameMm, 1.5) << pixel;
        EXPECT_NEAR(y / Sum(rgb, 0), 240.0 - 0.15 / frameMm, 1.0) << pixel;
    }
}

// A ghost far off the frame, or focused to a point at one of its wavelengths, paints nothing
// there and nothing wrong: its coordinates go past what an int holds (the sanitised build checks).
TEST(LensLookPainting, GhostsFarOffTheFrameOrFocusedToAPointPaintNothingAmiss) {
    vellux::lens::GhostFootprint wide, point;
    wide.size = point.size = 8;
    wide.density.assign(64, 1.0f);
    point.density.assign(64, 1.0f);
    wide.pixel = 0.05, wide.left = -0.2, wide.bottom = -0.2;
    point.pixel = 1e-12, point.left = 1e3, point.bottom = -1e3;   // and far away
    const vellux::lens::GhostFootprint both[2] = {wide, point};
    const std::array<float, 3> scales[2] = {{1.0f, 1.0f, 1.0f}, {1.0f, 1.0f, 1.0f}};
    const FrameSize frame{64, 48};
    std::vector<float> rgb(size_t(frame.width) * frame.height * 3, 0.0f);
    AddGhost(FoldGhost(both, scales, 2), frame, 0.01, rgb.data());
    for (const float v : rgb) ASSERT_TRUE(std::isfinite(v));
    vellux::lens::GhostFootprint far = wide;
    far.left = 1e12;
    AddGhost(FoldGhost(&far, scales, 1), frame, 0.01, rgb.data());
    std::vector<float> none(rgb.size(), 0.0f);
    AddGhost(FoldGhost(&far, scales, 1), frame, 0.01, none.data());
    EXPECT_EQ(Sum(none, 0), 0.0);
}

// The light's energy: a light of intensity 1 in the middle of a frame puts kLightEnergy frame
// pixels' worth of white into its starburst (nearly all of it inside the frame) and a little more
// into its ghosts; twice the intensity, twice everything.
TEST(LensLookPainting, TheFlareScalesWithTheLight) {
    LensLookOptions options;
    options.lens = VELLUX_LENS_DIR "/double-gauss-50mm.json";
    options.fNumber = 8.0;
    options.blades = 6;
    LensLook look(options);
    const FrameSize frame{320, 200};
    std::vector<float> once(size_t(frame.width) * frame.height * 3, 0.0f), twice = once;
    FlareLight light{160.0, 100.0, {255, 255, 255}, 1.0, 0.0};
    look.Paint(frame, light, once.data());
    light.intensity = 2.0;
    look.Paint(frame, light, twice.data());
    for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(Sum(once, c), kLightEnergy, 0.05 * kLightEnergy) << c;
        EXPECT_NEAR(Sum(twice, c), 2.0 * Sum(once, c), 1e-4 * Sum(once, c)) << c;
    }
}

TEST(LensLookPainting, EveryShippedLensOpensToItsDefaultFNumber) {
    // Left to its default, a lens is used at its stated f-number, or at its widest where its
    // prescription opens no wider than that (the vintage lens states f/2 and opens to f/2.37).
    for (const char* name : {"double-gauss-50mm", "wide-angle-22mm", "fisheye-10mm", "vintage-58mm"}) {
        const LensLook look(LensLookOptions{std::string(VELLUX_LENS_DIR "/") + name + ".json"});
        const double widest = vellux::lens::Paraxial(look.prescription(), vellux::lens::kLineD).fNumber;
        EXPECT_GE(look.fNumber(), widest) << name;
        EXPECT_NEAR(look.fNumber(), std::max(look.prescription().fNumber.value_or(widest), widest), 1e-3) << name;
    }
}

TEST(LensLookPainting, BadLensesAndAperturesNameTheValue) {
    const struct {
        LensLookOptions options;
        const char* message;
    } cases[] = {
        {{VELLUX_LENS_DIR "/double-gauss-50mm.json", 8.0, 100}, "--blades: 100 is not a blade count (0 for round, 3 to 32)"},
        {{VELLUX_LENS_DIR "/double-gauss-50mm.json", 8.0, 0, 1.5}, "--blade-curvature: blade curvature 1.5 is not within 0 to 1"},
        {{VELLUX_LENS_DIR "/double-gauss-50mm.json", 1.0}, "--f-number: 1 is wider than"},
        {{"no-such-lens"}, "--lens: no lens named 'no-such-lens'"},
    };
    for (const auto& c : cases) {
        try {
            LensLook look(c.options);
            ADD_FAILURE() << c.message;
        } catch (const std::exception& error) {
            EXPECT_EQ(std::string(error.what()).rfind(c.message, 0), 0u) << error.what();
        }
    }
}

}  // namespace
