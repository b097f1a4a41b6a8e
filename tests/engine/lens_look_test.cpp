// A lens's physical flare on the frame: patterns and ghost footprints keep their light wherever
// their pixels fall, a ghost lands where it was traced, and bad lenses and apertures are refused
// with the value named.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <numeric>
#include <string>
#include <vector>

#include "engine/ghost_canvas.h"
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

// A ghost as painted on the frame, in the sensor's mm (y up): where its light is centred, the area
// over which it reaches a quarter of the level it would have spread evenly over its traced area
// (low enough to take in a ghost whose light thins out towards one side), and the
// angle of its hexagon's corners (the phase of its light's sixth angular moment), in [0, 60) deg.
struct Measured {
    double x = 0.0, y = 0.0, area = 0.0, corner = 0.0;
};

// The corners' angle of points weighed by light, each given by `at(k)` as (position, weight).
template <class At>
double CornerAngle(size_t count, std::complex<double> centre, At at) {
    std::complex<double> moment;
    for (size_t k = 0; k < count; ++k) {
        const auto [where, weight] = at(k);
        moment += weight * std::pow(std::conj(where - centre), 6);
    }
    const double period = std::numbers::pi / 3.0;
    return std::fmod(-std::arg(moment) / 6.0 + 2.0 * period, period);
}

Measured MeasurePainted(const std::vector<float>& rgb, FrameSize frame, double frameMm, double halfLevel) {
    const auto where = [&](size_t k) {
        const double fx = double(k % size_t(frame.width)) + 0.5, fy = double(k / size_t(frame.width)) + 0.5;
        return std::complex<double>((fx - 0.5 * frame.width) * frameMm, (0.5 * frame.height - fy) * frameMm);
    };
    const size_t pixels = rgb.size() / 3;
    std::complex<double> centre;
    double total = 0.0;
    Measured m;
    for (size_t k = 0; k < pixels; ++k) {
        const double v = rgb[k * 3 + 1];
        centre += v * where(k), total += v;
        if (v > halfLevel) m.area += frameMm * frameMm;
    }
    centre /= total;
    m.x = centre.real(), m.y = centre.imag();
    m.corner = CornerAngle(pixels, centre, [&](size_t k) { return std::pair{where(k), double(rgb[k * 3 + 1])}; });
    return m;
}

double TracedCorner(const vellux::lens::GhostFootprint& f) {
    const size_t side = size_t(f.size);
    return CornerAngle(side * side, {f.centroidX, f.centroidY}, [&](size_t k) {
        const std::complex<double> at(f.left + (double(k % side) + 0.5) * f.pixel, f.bottom + (double(k / side) + 0.5) * f.pixel);
        return std::pair{at, double(f.density[k])};
    });
}

// Each ghost painted alone against its traced rays, on the axis and off it (where the lens's rims
// cut some into cat's eyes), through six blades and through six turned 10 degrees: its light's
// centre where the rays' mean landing is (within 0.5% of the frame's diagonal), its area the
// traced one (within 5%), its corners where the traced footprint has them, turned with the blades.
TEST(LensLookPainting, GhostsArePaintedWhereAsLargeAndTurnedAsTraced) {
    const vellux::lens::Prescription lens = vellux::lens::ReadPrescription(VELLUX_LENS_DIR "/double-gauss-50mm.json");
    const FrameSize frame{1800, 1200};   // the 36 x 24 mm sensor, 0.02 mm a pixel
    const double frameMm = 0.02, diagonal = std::hypot(36.0, 24.0), degree = std::numbers::pi / 180.0;
    GhostCanvas canvas;
    std::vector<float> rgb(size_t(frame.width) * frame.height * 3);
    for (const auto& [angleX, angleY] : {std::pair{0.0, 0.0}, {0.10, 0.12}}) {
        double first[2] = {};   // the first ghost's corners at each rotation, for the turn
        int measured = 0;
        for (const double rotation : {0.0, 10.0}) {
            bool firstOfTurn = true;
            vellux::lens::FootprintSettings settings = GhostSettings(8.0, {6, 0.0, rotation * degree}, angleX, angleY);
            settings.wavelengths = {vellux::lens::kGreen};
            const vellux::lens::GhostFootprints traced = vellux::lens::TraceGhostFootprints(lens, settings);
            for (const vellux::lens::GhostFootprint& ghost : traced.ghosts) {
                // Those wholly on the frame, 40 to 500 pixels across.
                const double side = ghost.size * ghost.pixel;
                if (ghost.rays < 200 || side < 40 * frameMm || side > 500 * frameMm || std::abs(ghost.left + 0.5 * side) > 18.0 - side ||
                    std::abs(ghost.bottom + 0.5 * side) > 12.0 - side)
                    continue;
                // Each painted as if its light were spread evenly at 1 a mm^2, well above the faintest shown.
                const float even = float(ghost.area / ghost.energy), scale[3] = {even, even, even};
                const std::array<float, 3> one{1.0f, 1.0f, 1.0f};
                std::fill(rgb.begin(), rgb.end(), 0.0f);
                canvas.Begin(frame, frameMm);
                canvas.Add(FoldGhost(&ghost, &one, 1), scale, rgb.data());
                canvas.Finish(rgb.data());
                const Measured painted = MeasurePainted(rgb, frame, frameMm, 0.25 * frameMm * frameMm);
                const std::string name = "ghost " + std::to_string(ghost.first) + "-" + std::to_string(ghost.second) +
                                         " at " + std::to_string(angleX) + ", turned " + std::to_string(rotation);
                EXPECT_NEAR(painted.x, ghost.centroidX, 0.005 * diagonal) << name;
                EXPECT_NEAR(painted.y, ghost.centroidY, 0.005 * diagonal) << name;
                EXPECT_NEAR(painted.area, ghost.area, 0.05 * ghost.area) << name;
                EXPECT_NEAR(std::remainder(painted.corner - TracedCorner(ghost), 60.0 * degree), 0.0, 2.0 * degree) << name;
                if (firstOfTurn) first[size_t(rotation > 0.0)] = painted.corner;
                firstOfTurn = false;
                ++measured;
            }
        }
        EXPECT_GE(measured, 8) << angleX;
        if (angleX == 0.0) EXPECT_NEAR(std::abs(std::remainder(first[1] - first[0], 60.0 * degree)), 10.0 * degree, 2.0 * degree);
    }
}

// A white light's rays are white, a little warm: along a ray each wavelength's light beats between
// opposite blades, so one radius alone would give it any hue (magenta, once); their mean over many
// beats grows with the wavelength. Six blades draw six rays, seven fourteen.
TEST(LensLookPainting, RaysOfAWhiteLightAreWarmWhiteAndAsManyAsTheBladesMake) {
    for (const auto& [blades, count] : {std::pair{6, 6u}, {7, 14u}}) {
        const std::vector<StarburstRay> rays = StarburstRays(vellux::lens::SpectralStarburst({blades, 0.0, 0.2}, 8.0));
        EXPECT_EQ(rays.size(), count) << blades;
        for (const StarburstRay& ray : rays) {
            const auto& [r, g, b] = ray.perMm;
            EXPECT_GT(r, 0.0) << blades;
            EXPECT_GE(r, g) << blades;
            EXPECT_GE(g, b) << blades;
            EXPECT_GT(b, 0.5 * r) << blades;
        }
    }
}

// The light's energy: a light of intensity 1 in the middle of a frame puts kLightEnergy pixels'
// worth of white of a frame kReferenceRows high into its starburst (nearly all of it inside the
// frame) and a little more into its ghosts: on a frame half as high, a quarter as many of its
// (larger) pixels, the same light on the sensor. Twice the intensity, twice everything.
TEST(LensLookPainting, TheFlareScalesWithTheLightAndNotWithTheFrame) {
    LensLookOptions options;
    options.lens = VELLUX_LENS_DIR "/double-gauss-50mm.json";
    options.fNumber = 8.0;
    options.blades = 6;
    LensLook look(options);
    for (const FrameSize frame : {FrameSize{320, 200}, FrameSize{640, 400}}) {
        std::vector<float> once(size_t(frame.width) * frame.height * 3, 0.0f), twice = once;
        FlareLight light{0.5 * frame.width, 0.5 * frame.height, {255, 255, 255}, 1.0, 0.0};
        look.Paint(frame, light, once.data());
        light.intensity = 2.0;
        look.Paint(frame, light, twice.data());
        const double rows = frame.height / kReferenceRows, pixels = kLightEnergy * rows * rows;
        for (int c = 0; c < 3; ++c) {
            EXPECT_NEAR(Sum(once, c), pixels, 0.05 * pixels) << frame.height << " " << c;
            EXPECT_NEAR(Sum(twice, c), 2.0 * Sum(once, c), 1e-4 * Sum(once, c)) << frame.height << " " << c;
        }
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
