// Following lights through synthetic footage whose truth is known (tests/support/light_footage.h):
// positions, visible fractions, hidden frames, crossing lights; and the path's steadying filter.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "engine/light_finding.h"
#include "engine/light_tracking.h"
#include "tests/support/light_footage.h"

namespace {

using namespace vellux::engine;
using footage::Disc;

struct Plate {
    std::string name;
    bool eightBit;
    double threshold;
};

const Plate kPlates[] = {{"LinearFloat", false, kDefaultLightThreshold}, {"Clipped8Bit", true, kDefaultLightThreshold}};

class LightPlates : public testing::TestWithParam<Plate> {};

struct FollowedShot {
    LightTrack track;
    std::vector<double> truthFraction;
};

// The shot's first `frames` frames: a light on a curved path, a bar sliding across it.
FollowedShot FollowShot(const footage::Shot& shot, const Plate& plate, int frames) {
    std::vector<FollowedLight> followed;
    FollowedShot result;
    for (int t = 0; t < frames; ++t) {
        const std::vector<Disc> discs{shot.DiscAt(t)};
        const footage::Bar bar = shot.BarAt(t);
        result.truthFraction.push_back(footage::VisibleFraction(discs[0], bar, shot.width, shot.height, plate.eightBit));
        const std::vector<FoundLight> found =
            FindLights(footage::MakeFrame(shot.width, shot.height, discs, bar, uint32_t(100 + t), plate.eightBit), plate.threshold);
        if (t == 0) followed = StartFollowing(BrightestLights(found, 1));
        FollowStep(followed, t, found);
    }
    result.track = FinishTrack(followed[0], 0.0);
    return result;
}

TEST_P(LightPlates, FollowsALightBehindASlidingBar) {
    const Plate& plate = GetParam();
    const footage::Shot shot;
    const FollowedShot followed = FollowShot(shot, plate, shot.frames);
    const LightTrack& track = followed.track;
    ASSERT_EQ(track.keys.size(), size_t(shot.frames));
    double squared = 0.0;
    int hidden = 0;
    for (int t = 0; t < shot.frames; ++t) {
        const TrackKey& key = track.keys[size_t(t)];
        const Disc truth = shot.DiscAt(t);
        const double visible = followed.truthFraction[size_t(t)];
        EXPECT_EQ(key.frame, t);
        squared += std::pow(key.x - truth.x, 2) + std::pow(key.y - truth.y, 2);
        EXPECT_NEAR(key.intensity, visible, 0.05) << "frame " << t;
        if (visible < 1e-3) {
            ++hidden;
            EXPECT_EQ(key.sighting, Sighting::hidden) << "frame " << t;
            EXPECT_EQ(key.intensity, 0.0) << "frame " << t;
        }
    }
    EXPECT_GE(hidden, 3);   // the shot does hide the light
    EXPECT_EQ(track.keys.back().sighting, Sighting::seen);   // and it is picked up again
    EXPECT_LE(std::sqrt(squared / shot.frames), 0.25);
}

// A shot that ends while the light is hidden: its last keys go on along its path.
TEST_P(LightPlates, ALightThatEndsHiddenGoesOnAlongItsPath) {
    const footage::Shot shot;
    const int frames = 27;
    const FollowedShot followed = FollowShot(shot, GetParam(), frames);
    ASSERT_LT(followed.truthFraction.back(), 1e-3);
    for (int t = frames - 3; t < frames; ++t) {
        const Disc truth = shot.DiscAt(t);
        const TrackKey& key = followed.track.keys[size_t(t)];
        EXPECT_LE(std::hypot(key.x - truth.x, key.y - truth.y), 1.0) << "frame " << t;
    }
}

// Two lights crossing, merged into one blob for a few frames, keep who they are.
TEST_P(LightPlates, CrossingLightsKeepTheirIdentities) {
    const Plate& plate = GetParam();
    const int frames = 30;
    const auto discsAt = [](int t) {
        Disc a{20.2 + 4.1 * t, 40.3 + 0.2 * t, 6.0};
        Disc b{135.7 - 3.9 * t, 46.1 - 0.1 * t, 5.0};
        b.level = 25.0;
        return std::vector<Disc>{a, b};
    };
    std::vector<FollowedLight> followed;
    for (int t = 0; t < frames; ++t) {
        const std::vector<FoundLight> found =
            FindLights(footage::MakeFrame(160, 96, discsAt(t), std::nullopt, uint32_t(300 + t), plate.eightBit), plate.threshold);
        if (t == 0) followed = StartFollowing(BrightestLights(found, 2));
        FollowStep(followed, t, found);
    }
    ASSERT_EQ(followed.size(), 2u);
    const LightTrack a = FinishTrack(followed[0], 0.0), b = FinishTrack(followed[1], 0.0);
    int merged = 0;
    for (int t = 0; t < frames; ++t) {
        const std::vector<Disc> truth = discsAt(t);
        const TrackKey& ka = a.keys[size_t(t)];
        const TrackKey& kb = b.keys[size_t(t)];
        merged += ka.sighting == Sighting::merged;
        EXPECT_LE(std::hypot(ka.x - truth[0].x, ka.y - truth[0].y), 1.0) << "frame " << t;
        EXPECT_LE(std::hypot(kb.x - truth[1].x, kb.y - truth[1].y), 1.0) << "frame " << t;
        EXPECT_GT(ka.intensity, 0.9) << "frame " << t;   // neither is hidden while they cross
    }
    EXPECT_GE(merged, 2);   // they did run together
    // Rebuilt from its measurements alone, as runs followed in parts are joined, each light is
    // the run itself: predictions through the merged steps, velocity and peak.
    for (const FollowedLight& light : followed) {
        std::vector<TrackStep> measured = light.steps;
        for (TrackStep& s : measured) {
            s.predictedX = s.predictedY = -1.0;
            if (s.sighting != Sighting::seen) s.x = s.y = -1.0;
        }
        const FollowedLight again = Refollow(light.start, measured);
        ASSERT_EQ(again.steps.size(), light.steps.size());
        for (size_t i = 0; i < light.steps.size(); ++i) {
            const TrackStep &s = light.steps[i], &r = again.steps[i];
            EXPECT_TRUE(s.x == r.x && s.y == r.y && s.predictedX == r.predictedX && s.predictedY == r.predictedY &&
                        s.energy == r.energy)
                << "step " << i;
        }
        EXPECT_TRUE(again.vx == light.vx && again.vy == light.vy && again.unhiddenEnergy == light.unhiddenEnergy &&
                    again.sureStep == light.sureStep && again.moving == light.moving);
    }
}

// A light nearing the camera grows, one leaving it shrinks, by about a tenth of its energy a frame
// and nothing in front of either: both stay whole (within the few percent a small clipped light's
// energy wavers on the pixel grid), and their centres are measured, not guessed.
TEST_P(LightPlates, ALightNearingOrLeavingTheCameraStaysWhole) {
    const Plate& plate = GetParam();
    const int frames = 12;
    for (const double growth : {1.05, 1 / 1.05}) {
        const auto discAt = [&](int t) {
            Disc disc{30.4 + 6.3 * t, 50.2 - 1.7 * t, 4.0 * std::pow(growth, t)};
            disc.level = 30.0;
            return disc;
        };
        std::vector<FollowedLight> followed;
        for (int t = 0; t < frames; ++t) {
            const std::vector<FoundLight> found =
                FindLights(footage::MakeFrame(160, 96, {discAt(t)}, std::nullopt, uint32_t(700 + t), plate.eightBit), plate.threshold);
            if (t == 0) followed = StartFollowing(BrightestLights(found, 1));
            FollowStep(followed, t, found);
        }
        const LightTrack track = FinishTrack(followed[0], 0.0);
        for (int t = 0; t < frames; ++t) {
            const TrackKey& key = track.keys[size_t(t)];
            EXPECT_GE(key.intensity, kSureFraction) << "growth " << growth << ", frame " << t;
            EXPECT_LE(std::hypot(key.x - discAt(t).x, key.y - discAt(t).y), 0.25) << "growth " << growth << ", frame " << t;
        }
    }
}

// A light crossing the frame fast, many of its radii a frame, with a dimmer one off its path: it
// is followed from its first step, before its velocity is known.
TEST_P(LightPlates, AFastLightIsFollowedFromItsFirstStep) {
    const Plate& plate = GetParam();
    const int frames = 12;
    const auto discAt = [](int t) { return Disc{20.3 + 31.7 * t, 30.2 + 3.1 * t, 4.0}; };
    Disc other{200.0, 80.0, 3.0};
    other.level = 20.0;
    std::vector<FollowedLight> followed;
    for (int t = 0; t < frames; ++t) {
        const std::vector<FoundLight> found =
            FindLights(footage::MakeFrame(400, 96, {discAt(t), other}, std::nullopt, uint32_t(900 + t), plate.eightBit), plate.threshold);
        if (t == 0) followed = StartFollowing(BrightestLights(found, 1));
        FollowStep(followed, t, found);
    }
    const LightTrack track = FinishTrack(followed[0], 0.0);
    for (int t = 0; t < frames; ++t) {
        const TrackKey& key = track.keys[size_t(t)];
        EXPECT_EQ(key.sighting, Sighting::seen) << "frame " << t;
        EXPECT_LE(std::hypot(key.x - discAt(t).x, key.y - discAt(t).y), 0.25) << "frame " << t;
    }
}

INSTANTIATE_TEST_SUITE_P(Plates, LightPlates, testing::ValuesIn(kPlates),
                         [](const testing::TestParamInfo<Plate>& info) { return info.param.name; });

// The steadying filter: no lag on steady motion, right to the ends; noise taken down.
TEST(SmoothPath, KeepsSteadyMotionAndCalmsJitter) {
    std::vector<double> ramp, truth, noisy;
    uint32_t state = 12345;
    for (int i = 0; i < 60; ++i) {
        ramp.push_back(3.0 + 2.37 * i);
        truth.push_back(50.0 + 20.0 * std::sin(i * 0.05));
        state = state * 1664525u + 1013904223u;
        noisy.push_back(truth.back() + (double(state >> 8) / double(1 << 24) - 0.5) * 0.8);
    }
    for (const double sigma : {0.0, 1.0, 2.5, 6.0}) {
        const std::vector<double> smoothed = SmoothPath(ramp, sigma);
        for (size_t i = 0; i < ramp.size(); ++i) ASSERT_NEAR(smoothed[i], ramp[i], 1e-9) << "sigma " << sigma << " at " << i;
    }
    const auto rms = [&truth](const std::vector<double>& path) {
        double sum = 0.0;
        for (size_t i = 0; i < path.size(); ++i) sum += std::pow(path[i] - truth[i], 2);
        return std::sqrt(sum / double(path.size()));
    };
    EXPECT_LT(rms(SmoothPath(noisy, 2.0)), 0.5 * rms(noisy));
}

}  // namespace
