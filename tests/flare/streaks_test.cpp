// The star's streaks built into the working record's tail: which are built, their parameters,
// polygons and falloff coefficients, and the limits of the tail.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "kit/rect.h"
#include "plugin/control_data.h"
#include "plugin/streaks.h"

namespace {

constexpr int32_t F = kPluginDataFixedSize;
constexpr int32_t kStreak = 160;
constexpr int32_t kTail = 64 * kStreak;
constexpr double kPi = 3.141592653589793;
const float kNaN = std::numeric_limits<float>::quiet_NaN();

// Not drawn: the painter skips a streak whose rectangle has four zero sides.
bool Empty(const L_Rect& r) { return r.top == 0 && r.left == 0 && r.bottom == 0 && r.right == 0; }

// A working record with `tail` free bytes: light at (x, y) in a 200 x 100 frame (or a 2000 x 2000
// one around it), 100 pixels per flare unit, white light of intensity 1, flare intensity 1.
class StreakTest : public ::testing::Test {
protected:
    void SetUp() override {
        DefaultControl(&control);
        control.flareIntensity = 1.0;
        control.flareFlags = 0;
        Make();
    }
    void Make(int32_t tail = kTail, float x = 100, float y = 50, bool big = false) {
        block.assign(size_t(F + tail), 0);
        data = reinterpret_cast<PluginDataRec*>(block.data());
        SetLRect(&data->flareRect, big ? -1000 : 0, big ? -1000 : 0, big ? 1000 : 200, big ? 1000 : 100);
        data->flareXScale = data->flareYScale = 100;
        data->flareXPosition = x;
        data->flareYPosition = y;
        data->flareLightIntensity = 1;
        data->flareLightColor = ARGB{255, 255, 255, 255};
        data->flareStreakCount = 7;   // left over from an earlier layout
        data->flareStreakFirst = 99;
        size = tail;
        base = F;
    }
    int32_t Build() { return BuildStreaks(&control, data, &size, &base); }
    StreakElement& S(int i) {   // along the chain
        int32_t offset = data->flareStreakFirst;
        for (int k = 0; k < i; ++k) offset = TailRecord<StreakElement>(data, offset)->streakNext;
        return *TailRecord<StreakElement>(data, offset);
    }

    std::vector<uint8_t> block;
    PluginDataRec* data = nullptr;
    ControlDataRec control{};
    int32_t size = 0, base = 0;
};

}  // namespace

TEST_F(StreakTest, NoStreaksWhileTheLightIsOffTheFrameUnlessAsked) {
    control.flareFlags = kFlagAnamorphicStreak | kFlagRandomStreaks;
    control.flareStarFilter = 4;
    for (auto [x, y] : {std::pair{200.0f, 50.0f}, {-0.5f, 50.0f}, {100.0f, 100.0f}, {100.0f, -0.01f}, {kNaN, 50.0f}}) {
        Make(kTail, x, y);
        EXPECT_EQ(Build(), 0);
        EXPECT_EQ(std::tie(data->flareStreakCount, data->flareStreakFirst, base, size),
                  std::make_tuple(0, 0, F, kTail));
    }
    for (auto [x, y] : {std::pair{0.0f, 50.0f}, {199.9f, 0.0f}}) {
        Make(kTail, x, y);
        EXPECT_EQ(std::pair(Build(), data->flareStreakCount), std::pair(0, 1 + 4 + 50));
    }
    control.flareFlags |= kFlagStreaksOffFrame;
    Make(kTail, 200, 50);
    EXPECT_EQ(std::pair(Build(), data->flareStreakCount), std::pair(0, 55));
}

TEST_F(StreakTest, StarFilterSetsRegularRays) {
    const int32_t counts[10][2] = {{0, 0}, {1, 0}, {1, 1}, {2, 0}, {2, 2}, {3, 0}, {3, 3}, {4, 0}, {4, 4}, {5, 0}};
    for (int32_t f : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, -1, std::numeric_limits<int32_t>::min()})
        EXPECT_EQ(std::pair(StarFilterRays(f).major, StarFilterRays(f).minor),
                  f >= 0 && f < 10 ? std::pair(counts[f][0], counts[f][1]) : std::pair(5, 5)) << f;
    control.flareStarFilter = 4;
    ASSERT_EQ(Build(), 0);
    ASSERT_EQ(data->flareStreakCount, 4);
    const float quarter = float(kPi / 2), minor0 = float(0.0 + 0.5 * quarter);
    const float angles[] = {0.0f, quarter, minor0, minor0 + quarter};
    EXPECT_NEAR(angles[3], 3 * kPi / 4, 1e-6);
    for (int i = 0; i < 4; ++i) {
        const StreakElement& s = S(i);
        EXPECT_EQ(std::tie(s.streakAngle, s.streakMode), std::make_tuple(angles[i], (i < 2 ? 1u : 2u) | 0x80000000u));
        EXPECT_EQ(std::tie(s.streakLength, s.streakWidth), std::make_tuple(i < 2 ? 0.2625f : 0.13125f, 0.01125f));
        EXPECT_FLOAT_EQ(s.streakColor.g, i < 2 ? 0.2f : 0.1f);
    }
    // The ray at angle 0 falls off along +y and across -x.
    EXPECT_EQ(std::tie(S(0).streakXLength, S(0).streakYLength, S(0).streakXWidth, S(0).streakYWidth),
              std::make_tuple(0.0f, 1.0f / (0.2625f * 100), -1.0f / (0.01125f * 100), 0.0f));
    for (int32_t f : {12, -1}) {
        control.flareStarFilter = f;
        control.flareStarRotation = 30.0;
        Make();
        ASSERT_EQ(Build(), 0);
        ASSERT_EQ(data->flareStreakCount, 10);
        EXPECT_EQ(S(0).streakAngle, float(30.0 * 0.017453292519943295));
        EXPECT_EQ(std::pair(S(4).streakMode & 3u, S(5).streakMode & 3u), std::pair(1u, 2u));
    }
}

TEST_F(StreakTest, RandomSprayFollowsTheDensity) {
    control.flareFlags = kFlagRandomStreaks;
    for (auto [density, rays] : {std::pair{0.99, 0}, {1.0, 1}, {50.0, 50}}) {
        control.flareStreakDensity = density;
        Make();
        EXPECT_EQ(std::pair(Build(), data->flareStreakCount), std::pair(0, rays)) << density;
    }
    ASSERT_EQ(data->flareStreakCount, 50);
    EXPECT_EQ(S(0).streakAngle, float(6.283185307179586 * (12345 * 2.328306436e-10)));
    const double expected[3][3] = {{1.806e-05, 0.18388, 0.0065954}, {5.26204, 0.33750, 0.0071248},
                                   {1.53833, 0.20253, 0.0067582}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(S(i).streakAngle, expected[i][0], i == 0 ? 5e-9 : 5e-6) << i;
        EXPECT_NEAR(S(i).streakLength, expected[i][1], 5e-6) << i;
        EXPECT_NEAR(S(i).streakWidth, expected[i][2], 5e-8) << i;
        EXPECT_EQ(S(i).streakMode, 3u);
        EXPECT_FLOAT_EQ(S(i).streakColor.b, 0.03f);
    }
    const float firstOfSeedZero = S(0).streakAngle;
    control.flareStreakDensity = 50.5;
    Make();
    ASSERT_EQ(Build(), 0);
    EXPECT_EQ(data->flareStreakCount, 50);
    const uint32_t seed = 2147483647u * 1103515245u + 12345u;
    EXPECT_EQ(S(0).streakAngle, float(6.283185307179586 * (seed * 2.328306436e-10)));
    EXPECT_NE(S(0).streakAngle, firstOfSeedZero);
}

TEST_F(StreakTest, AnamorphicStreakIsAHorizontalBand) {
    control.flareFlags = kFlagAnamorphicStreak;
    Make(kTail, 100, 50, true);
    ASSERT_EQ(Build(), 0);
    ASSERT_EQ(data->flareStreakCount, 1);
    StreakElement& s = S(0);
    EXPECT_EQ(std::tie(s.streakAngle, s.streakMode), std::make_tuple(1.5707964f, 0x80000000u));
    // Corners about (-110, 36.5), (-110, 63.5), (310, 63.5), (310, 36.5): two upright sides on
    // rows 37 to 63, the level ones inactive.
    EXPECT_EQ(std::tie(s.streakRect.top, s.streakRect.bottom), std::make_tuple(37, 64));
    for (int i : {0, 2}) EXPECT_EQ(std::tie(s.streakEdges[i].y1, s.streakEdges[i].y2), std::make_tuple(37, 63));
    EXPECT_EQ(std::tie(s.streakEdges[1].y1, s.streakEdges[3].y1), std::make_tuple(32767, 32767));
    EXPECT_NEAR(s.streakRect.left, -110, 1);
    EXPECT_NEAR(s.streakRect.right, 311, 1);
    EXPECT_FLOAT_EQ(s.streakYWidth, 1.0f / 4.5f);
    // Stretched horizontally only by an anamorphic factor of 2: x from -320 to 520, half the falloff.
    for (double factor : {1.0, 2.0}) {
        control.flareFlags = kFlagAnamorphicStreak | (factor != 1.0 ? kFlagAnamorphic : 0u);
        control.flareAnamorphicFactor = factor;
        Make(kTail, 100, 50, true);
        ASSERT_EQ(Build(), 0);
        EXPECT_NEAR(S(0).streakEdges[0].xPos, 100 - 210 * factor, 1e-3);
        EXPECT_NEAR(S(0).streakEdges[2].xPos, 100 + 210 * factor, 1e-3);
        EXPECT_EQ(std::tie(S(0).streakRect.top, S(0).streakRect.bottom), std::make_tuple(37, 64));
        EXPECT_FLOAT_EQ(S(0).streakXLength, float(1.0 / (70 * factor)));
    }
    Make();   // clipped to the frame
    ASSERT_EQ(Build(), 0);
    EXPECT_EQ(std::tie(S(0).streakRect.left, S(0).streakRect.top, S(0).streakRect.right), std::make_tuple(0, 37, 200));
}

TEST_F(StreakTest, KindsAreGroupedChainedAndTintedByTheLight) {
    control.flareFlags = kFlagAnamorphicStreak | kFlagRandomStreaks;
    control.flareStarFilter = 4;
    control.flareStreakDensity = 3.0;
    data->flareLightColor = ARGB{0, 204, 128, 51};
    ASSERT_EQ(Build(), 0);
    ASSERT_EQ(data->flareStreakCount, 8);
    EXPECT_EQ(std::tie(data->flareStreakFirst, base, size), std::make_tuple(F, F + 8 * kStreak, kTail - 8 * kStreak));
    const uint32_t kinds[] = {0, 1, 1, 2, 2, 3, 3, 3};
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(std::pair(S(i).streakMode & 3u, S(i).streakNext),
                  std::pair(kinds[i], i < 7 ? F + (i + 1) * kStreak : 0));
    EXPECT_FLOAT_EQ(S(0).streakColor.r, float(204 / 255.0 * 0.04f));
    EXPECT_FLOAT_EQ(S(0).streakColor.g, float(128 / 255.0 * 0.08f));
    EXPECT_FLOAT_EQ(S(0).streakColor.b, float(51 / 255.0 * 0.32f));
    EXPECT_FLOAT_EQ(S(7).streakColor.g, float(128 / 255.0 * 0.03f));
}

TEST_F(StreakTest, TailRoomLimitsTheStreaks) {
    StreakElement* last = nullptr;
    size = kStreak - 1;
    EXPECT_EQ(AddStreak(data, &last, &size, &base), 1);
    EXPECT_EQ(last, nullptr);
    EXPECT_EQ(std::tie(size, base, data->flareStreakCount, data->flareStreakFirst),
              std::make_tuple(kStreak - 1, F, 7, 99));
    // A spray that outgrows the tail stops with the streaks so far linked and counted; so does a
    // density beyond any count.
    control.flareFlags = kFlagRandomStreaks;
    for (double density : {50.0, 1e12, 1e300, std::numeric_limits<double>::infinity()}) {
        control.flareStreakDensity = density;
        Make(5 * kStreak + 100);
        EXPECT_EQ(Build(), 1) << density;
        ASSERT_EQ(data->flareStreakCount, 5);
        EXPECT_EQ(std::tie(S(4).streakNext, base, size), std::make_tuple(0, F + 5 * kStreak, 100));
    }
}

TEST_F(StreakTest, AbsurdSettingsGiveNoStreakOrAnUndrawnOne) {
    control.flareFlags = kFlagRandomStreaks;
    for (double sharpness : {0.0, -1.0, double(kNaN), std::numeric_limits<double>::infinity()}) {
        control.flareStreakSharpness = sharpness;
        Make();
        EXPECT_EQ(std::pair(Build(), data->flareStreakCount), std::pair(0, 0)) << sharpness;
    }
    control.flareStreakSharpness = 6.0;
    control.flareStreakDensity = double(kNaN);
    Make();
    EXPECT_EQ(std::pair(Build(), data->flareStreakCount), std::pair(0, 0));
    // Built but not drawn: zero intensity, a light at no position, corners beyond the floats.
    control.flareFlags = kFlagAnamorphicStreak | kFlagStreaksOffFrame;
    control.flareStarFilter = 2;
    control.flareStarRotation = 45.0;   // the 1.5-pixel minimum gives these rays an area
    Make();
    data->flareLightIntensity = 0;
    ASSERT_EQ(Build(), 0);
    ASSERT_EQ(data->flareStreakCount, 3);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(Empty(S(i).streakRect)) << i;
    EXPECT_EQ(S(1).streakRect.width, 0u);
    Make(kTail, kNaN, 50);
    ASSERT_EQ(Build(), 0);
    EXPECT_TRUE(Empty(S(0).streakRect));
    Make(kTail, 1.8e38f, 50, true);
    data->flareXScale = 8.6e37f;   // x + xL overflows to infinity
    ASSERT_EQ(Build(), 0);
    EXPECT_TRUE(Empty(S(0).streakRect));
}
