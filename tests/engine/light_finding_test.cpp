// Finding lights in synthetic frames whose truth is known (tests/support/light_footage.h).
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "engine/light_finding.h"
#include "tests/support/light_footage.h"

namespace {

using namespace vellux::engine;
using footage::Disc;

struct Plate {
    std::string name;
    bool eightBit;
    double centreTolerance;   // pixels: clipping leaves only the edge's few levels for sub-pixel detail
};

const Plate kPlates[] = {{"LinearFloat", false, 0.1}, {"Clipped8Bit", true, 0.2}};

class FindingPlates : public testing::TestWithParam<Plate> {};

// Centres to a small fraction of a pixel, and the colour from the glow, not the white core.
TEST_P(FindingPlates, FindsDiscsAtTheirCentresBrightestFirst) {
    const Plate& plate = GetParam();
    double worst = 0.0;
    for (int k = 0; k < 8; ++k) {
        Disc big{40.13 + 0.37 * k, 30.71 - 0.29 * k, 7.0};
        Disc small{110.6 - 0.41 * k, 60.2 + 0.17 * k, 4.0};
        small.colour = {0.35f, 0.6f, 1.0f};
        const std::vector<FoundLight> lights =
            FindLights(footage::MakeFrame(160, 96, {small, big}, std::nullopt, 7 + k, plate.eightBit));
        ASSERT_EQ(lights.size(), 2u);
        EXPECT_GT(lights[0].radius, lights[1].radius);
        worst = std::max({worst, std::hypot(lights[0].x - big.x, lights[0].y - big.y),
                          std::hypot(lights[1].x - small.x, lights[1].y - small.y)});
        // Warm light reads warm, cool light reads cool, though both cores clip to white on 8 bits.
        EXPECT_GT(lights[0].colour[0], lights[0].colour[2] + 0.2);
        EXPECT_GT(lights[1].colour[2], lights[1].colour[0] + 0.2);
        EXPECT_GE(lights[0].peak, plate.eightBit ? 0.99 : 0.78 * big.level);   // the warm colour's luminance
    }
    EXPECT_LE(worst, plate.centreTolerance);
}

INSTANTIATE_TEST_SUITE_P(Plates, FindingPlates, testing::ValuesIn(kPlates),
                         [](const testing::TestParamInfo<Plate>& info) { return info.param.name; });

TEST(LightFinding, NearestLightAndNone) {
    const vellux::engine::LinearFrame dark = footage::MakeFrame(64, 48, {}, std::nullopt, 1, false);
    EXPECT_TRUE(FindLights(dark).empty());
    EXPECT_FALSE(NearestLight({}, 1.0, 1.0));
    const std::vector<FoundLight> lights =
        FindLights(footage::MakeFrame(64, 48, {Disc{12.0, 12.0, 4.0}, Disc{50.0, 36.0, 5.0}}, std::nullopt, 2, false));
    ASSERT_EQ(lights.size(), 2u);
    EXPECT_NEAR(NearestLight(lights, 14.0, 10.0)->x, 12.0, 0.1);
    EXPECT_THROW(FindLights(dark, 0.0), std::invalid_argument);
}

}  // namespace
