// The spectrum: the observer's table, the Rec.709 matrix against the D65 white, and the fold of
// per-wavelength values into RGB.
#include <gtest/gtest.h>

#include <cmath>

#include "lens/spectrum.h"

namespace vellux::lens {
namespace {

TEST(Spectrum, SamplesCoverTheVisibleEvenly) {
    EXPECT_GE(kSpectralSamples, 8);
    EXPECT_LE(SpectralWavelength(0), 410.0);
    EXPECT_GE(SpectralWavelength(kSpectralSamples - 1), 700.0);
    for (int i = 1; i < kSpectralSamples; ++i) EXPECT_DOUBLE_EQ(SpectralWavelength(i) - SpectralWavelength(i - 1), kWavelengthStep);
}

TEST(Spectrum, ObserverPeaksWhereTheStandardObserverDoesAndInterpolatesBetweenRows) {
    // y is the photopic luminosity: 1 at 555 nm, its maximum.
    EXPECT_DOUBLE_EQ(ColourMatching(555.0).y, 1.0);
    for (double nm = 380.0; nm <= 780.0; nm += 2.5) EXPECT_LE(ColourMatching(nm).y, 1.0) << nm;
    // x's long-wave lobe tops out near 600 nm, z near 445 nm.
    EXPECT_GT(ColourMatching(600.0).x, ColourMatching(580.0).x);
    EXPECT_GT(ColourMatching(600.0).x, ColourMatching(620.0).x);
    EXPECT_GT(ColourMatching(445.0).z, ColourMatching(425.0).z);
    EXPECT_GT(ColourMatching(445.0).z, ColourMatching(465.0).z);
    // Halfway between rows is the rows' mean; nothing is seen outside the table.
    const Xyz below = ColourMatching(550.0), above = ColourMatching(555.0), between = ColourMatching(552.5);
    EXPECT_NEAR(between.x, 0.5 * (below.x + above.x), 1e-12);
    EXPECT_NEAR(between.z, 0.5 * (below.z + above.z), 1e-12);
    EXPECT_EQ(ColourMatching(379.0).x, 0.0);
    EXPECT_EQ(ColourMatching(781.0).y, 0.0);
}

TEST(Spectrum, D65WhiteIsRgbWhite) {
    const LinearRgb white = XyzToRgb({0.95047, 1.0, 1.08883});
    EXPECT_NEAR(white.r, 1.0, 1e-3);
    EXPECT_NEAR(white.g, 1.0, 1e-3);
    EXPECT_NEAR(white.b, 1.0, 1e-3);
}

TEST(Spectrum, FlatSpectrumFoldsToWhite) {
    Spectrum flat;
    flat.fill(1.0);
    const LinearRgb white = FoldSpectrum(flat);
    EXPECT_NEAR(white.r, 1.0, 0.01);
    EXPECT_NEAR(white.g, 1.0, 0.01);
    EXPECT_NEAR(white.b, 1.0, 0.01);
    flat.fill(0.25);   // a grey reflector
    const LinearRgb grey = FoldSpectrum(flat);
    EXPECT_NEAR(grey.r, 0.25, 0.0025);
    EXPECT_NEAR(grey.b, 0.25, 0.0025);
}

// One wavelength alone (705 nm is the sample nearest 700): the channel it lands in, and the
// others at most a fraction of it.
struct Line {
    double nanometres;
    int channel;          // 0 r, 1 g, 2 b
    double otherAtMost;   // of the dominant channel
};
const Line kLines[] = {{705.0, 0, 0.2}, {645.0, 0, 0.2}, {545.0, 1, 0.5}, {465.0, 2, 0.3}, {425.0, 2, 0.2}};

TEST(Spectrum, SingleWavelengthsFoldToTheirHue) {
    for (const Line& line : kLines) {
        Spectrum values{};
        values[size_t(std::lround((line.nanometres - kFirstWavelength) / kWavelengthStep))] = 1.0;
        ASSERT_DOUBLE_EQ(SpectralWavelength(int(std::lround((line.nanometres - kFirstWavelength) / kWavelengthStep))),
                         line.nanometres);
        const LinearRgb rgb = FoldSpectrum(values);
        const double channels[3] = {rgb.r, rgb.g, rgb.b};
        EXPECT_GT(channels[line.channel], 0.0) << line.nanometres;
        for (int c = 0; c < 3; ++c) {
            if (c == line.channel) continue;
            EXPECT_LT(std::abs(channels[c]), line.otherAtMost * channels[line.channel]) << line.nanometres << " channel " << c;
        }
    }
}

}  // namespace
}  // namespace vellux::lens
