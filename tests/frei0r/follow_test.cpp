// The filter's "follow the brightest light" switch, loaded as a host loads it, on synthetic 8-bit
// footage with a known path: a clipped lamp moving in a straight line across a dark, graded
// background, passing behind a post that hides it wholly for a few frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <thread>
#include <vector>

#include "frei0r/filter_params.h"
#include "tests/frei0r/filter_support.h"

namespace {

using namespace vellux;
using test::Render;
using test::SetDouble;
using test::TheFilter;

constexpr int kW = 256, kH = 144, kFrames = 40;
constexpr double kLampRadius = 5.0;
constexpr int kPostLeft = 128, kPostRight = 150;   // the post, [left, right) in pixels

struct Lamp {
    double x0, y0, vx, vy;   // where at frame 0, per frame
    double X(int f) const { return x0 + vx * f; }
    double Y(int f) const { return y0 + vy * f; }
};

constexpr Lamp kLamp{30.0, 40.0, 5.0, 1.5};

// One frame: the background, the lamp (clipped core, a pixel of soft edge), the post over it.
std::vector<uint32_t> ShotFrame(const Lamp& lamp, int f) {
    std::vector<uint32_t> frame(size_t(kW) * kH);
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            const double d = std::hypot(x - lamp.X(f), y - lamp.Y(f));
            const double background = 20.0 + x / 16.0 + y / 12.0;
            const double lit = std::clamp(kLampRadius + 1.0 - d, 0.0, 1.0);   // 1 inside, fading over a pixel
            double v = background + lit * (255.0 - background);
            if (x >= kPostLeft && x < kPostRight) v = 36.0;
            const auto byte = uint32_t(std::lround(v));
            frame[size_t(y) * kW + size_t(x)] = 0xff000000u | byte << 16 | byte << 8 | byte;
        }
    return frame;
}

// How much of the lamp shows on frame f (0..1), counted on its disc.
double ShowingOf(const Lamp& lamp, int f) {
    int all = 0, showing = 0;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x)
            if (std::hypot(x - lamp.X(f), y - lamp.Y(f)) <= kLampRadius) {
                ++all;
                showing += x < kPostLeft || x >= kPostRight;
            }
    return double(showing) / all;
}

// The flare alone (flare-only), read back: its total, and the centre of its glow (the weighted
// centroid of the pixels above half the brightest, near the brightest).
struct Flare {
    double total = 0.0, x = 0.0, y = 0.0;
};

Flare Measure(const std::vector<uint32_t>& out) {
    Flare flare;
    size_t best = 0;
    for (size_t i = 0; i < out.size(); ++i) {
        flare.total += out[i] >> 24;
        if ((out[i] >> 24) > (out[best] >> 24)) best = i;
    }
    const int bx = int(best % kW), by = int(best / kW);
    const double half = (out[best] >> 24) / 2.0;
    double sum = 0.0;
    for (int y = std::max(by - 8, 0); y < std::min(by + 9, kH); ++y)
        for (int x = std::max(bx - 8, 0); x < std::min(bx + 9, kW); ++x) {
            const double w = std::max(double(out[size_t(y) * kW + size_t(x)] >> 24) - half, 0.0);
            sum += w;
            flare.x += w * x;
            flare.y += w * y;
        }
    if (sum > 0.0) flare.x /= sum, flare.y /= sum;
    return flare;
}

struct Following {
    f0r_instance_t instance;
    explicit Following(bool follow) : instance(TheFilter().construct(kW, kH)) {
        SetDouble(instance, TheFilter().Index("flare-only"), 1.0);
        SetDouble(instance, TheFilter().Index("follow-brightest-light"), follow ? 1.0 : 0.0);
    }
    ~Following() { TheFilter().destruct(instance); }
    Following(const Following&) = delete;
    Following& operator=(const Following&) = delete;
};

std::vector<Flare> Follow(const Lamp& lamp, bool follow = true) {
    const Following run(follow);
    std::vector<Flare> flares;
    for (int f = 0; f < kFrames; ++f) flares.push_back(Measure(Render(run.instance, ShotFrame(lamp, f))));
    return flares;
}

// The flare with the switch off and the light put where the lamp is on frame f: the full flare.
Flare Unhidden(const Lamp& lamp, int f) {
    const Following run(false);
    SetDouble(run.instance, TheFilter().Index("light-fraction-x"), lamp.X(f) / kW);
    SetDouble(run.instance, TheFilter().Index("light-fraction-y"), lamp.Y(f) / kH);
    return Measure(Render(run.instance, ShotFrame(lamp, f)));
}

// The flare sits on the lamp (within a pixel, RMS, wherever it shows) and dims with it against
// the full flare there: gone while the post hides the lamp wholly, less while partly, back to
// full after. Off, the switch leaves the light where light-fraction-x/y put it.
TEST(Frei0rFollow, TheFlareSitsOnTheLampAndDimsBehindThePost) {
    ASSERT_GE(TheFilter().Index("follow-brightest-light"), 0);
    EXPECT_EQ(TheFilter().Index("follow-brightest-light"), frei0r::kParamCount - 1);   // new ones go last
    const std::vector<Flare> flares = Follow(kLamp);
    double squared = 0.0;
    int placed = 0, hidden = 0, partly = 0;
    for (int f = 0; f < kFrames; ++f) {
        SCOPED_TRACE(f);
        const double showing = ShowingOf(kLamp, f), full = Unhidden(kLamp, f).total;
        ASSERT_GT(full, 0.0);
        if (showing == 0.0) {
            ++hidden;
            EXPECT_LT(flares[size_t(f)].total, 0.02 * full);
            continue;
        }
        if (showing < 0.85) {
            ++partly;
            EXPECT_LT(flares[size_t(f)].total, 0.95 * full);
        } else if (showing == 1.0) {
            EXPECT_NEAR(flares[size_t(f)].total, full, 0.02 * full);   // all of it, before the post and after
        }
        squared += std::pow(flares[size_t(f)].x - kLamp.X(f), 2) + std::pow(flares[size_t(f)].y - kLamp.Y(f), 2);
        ++placed;
    }
    EXPECT_GE(hidden, 2);
    EXPECT_GE(partly, 2);
    EXPECT_LT(std::sqrt(squared / placed), 1.0);
    const std::vector<Flare> still = Follow(kLamp, false);
    EXPECT_NEAR(still.back().x, 0.3 * kW, 1.0);   // light-fraction-x's default
    EXPECT_NEAR(still.back().total, still.front().total, 1e-9);
}

// Nothing bright in a frame: no flare, and the filter goes on looking: a lamp that comes later is
// followed.
TEST(Frei0rFollow, NoLightMeansNoFlareUntilOneComes) {
    const Following run(true);
    const std::vector<uint32_t> dark(size_t(kW) * kH, 0xff202020u);
    for (int f = 0; f < 3; ++f) EXPECT_EQ(Measure(Render(run.instance, dark)).total, 0.0);
    const Flare found = Measure(Render(run.instance, ShotFrame(kLamp, 0)));
    EXPECT_GT(found.total, 0.0);
    EXPECT_NEAR(found.x, kLamp.X(0), 1.0);
    EXPECT_NEAR(found.y, kLamp.Y(0), 1.0);
}

// An editor's playhead moved, back or far ahead (times in milliseconds, as ffmpeg counts): the
// lamp is found afresh where it is, though it is far from where the followed one was going. Played
// on, the filter keeps following the lamp it has, and a far lamp is not jumped to.
TEST(Frei0rFollow, ASeekFindsTheLampAfresh) {
    const Lamp elsewhere{200.0, 120.0, -3.0, -1.0};
    struct Case {
        const char* name;
        double time;                 // of the frame after frames 0..9, at 40 ms a frame
        bool foundAfresh;
    };
    for (const Case c : {Case{"back to the start", 0.0, true}, Case{"far ahead", 4000.0, true},
                         Case{"the next frame", 400.0, false}}) {
        SCOPED_TRACE(c.name);
        const Following run(true);
        for (int f = 0; f < 10; ++f) Render(run.instance, ShotFrame(kLamp, f), 40.0 * f);
        std::vector<uint32_t> frame = ShotFrame(elsewhere, 0);
        const std::vector<uint32_t> followed = ShotFrame(kLamp, 10);
        if (!c.foundAfresh)   // the followed lamp where it is going, and the far one too
            for (size_t i = 0; i < frame.size(); ++i) frame[i] = std::max(frame[i], followed[i]);
        const Flare flare = Measure(Render(run.instance, frame, c.time));
        const double x = c.foundAfresh ? elsewhere.X(0) : kLamp.X(10), y = c.foundAfresh ? elsewhere.Y(0) : kLamp.Y(10);
        EXPECT_NEAR(flare.x, x, 1.0);
        EXPECT_NEAR(flare.y, y, 1.0);
    }
}

// A lamp crossing the frame fast (46 pixels a frame) is followed from its first frames, before
// its velocity is known.
TEST(Frei0rFollow, AFastLampIsFollowedFromItsFirstFrame) {
    const Lamp fast{12.0, 30.0, 46.0, 2.0};
    const Following run(true);
    for (int f = 0; f < 6; ++f) {
        const Flare flare = Measure(Render(run.instance, ShotFrame(fast, f), 40.0 * f));
        if (ShowingOf(fast, f) < 1.0) continue;   // the post
        EXPECT_NEAR(flare.x, fast.X(f), 1.0) << "frame " << f;
        EXPECT_NEAR(flare.y, fast.Y(f), 1.0) << "frame " << f;
    }
}

// Two instances following two lamps on two threads at once give what each gives alone.
TEST(Frei0rFollow, InstancesFollowTheirOwnLamps) {
    const Lamp other{220.0, 110.0, -4.0, -1.0};
    const auto frames = [](const Lamp& lamp, std::vector<std::vector<uint32_t>>& out) {
        const Following run(true);
        for (int f = 0; f < kFrames; ++f) out.push_back(Render(run.instance, ShotFrame(lamp, f)));
    };
    std::vector<std::vector<uint32_t>> alone[2], together[2];
    frames(kLamp, alone[0]);
    frames(other, alone[1]);
    std::thread first(frames, kLamp, std::ref(together[0])), second(frames, other, std::ref(together[1]));
    first.join();
    second.join();
    EXPECT_EQ(together[0], alone[0]);
    EXPECT_EQ(together[1], alone[1]);
    EXPECT_NEAR(Measure(alone[1].back()).x, other.X(kFrames - 1), 1.0);
}

}  // namespace
