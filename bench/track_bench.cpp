// Tracking one 1920x1080 scene-linear frame already in memory (the plate's reading aside): its
// lights found (luminance, threshold, connected components, moments, colour) and the followed
// light's step. Compare with BM_Default1080p48, the default flare's painting of such a frame:
//   vellux_bench --benchmark_filter='BM_Default1080p48$|BM_Track1080p'
#include <benchmark/benchmark.h>

#include <vector>

#include "engine/light_finding.h"
#include "engine/light_tracking.h"
#include "tests/support/light_footage.h"

namespace {

using namespace vellux::engine;

void BM_Track1080p(benchmark::State& state) {
    // Two frames of a moving light over the textured, noisy background, a street lamp besides.
    std::vector<LinearFrame> frames;
    for (int t = 0; t < 2; ++t) {
        footage::Disc light{700.3 + 5.7 * t, 400.6 + 1.3 * t, 9.0};
        footage::Disc lamp{1500.0, 200.0, 4.0};
        lamp.level = 6.0;
        frames.push_back(footage::MakeFrame(1920, 1080, {light, lamp}, std::nullopt, uint32_t(t), false));
    }
    std::vector<FollowedLight> followed = StartFollowing(BrightestLights(FindLights(frames[0]), 1));
    int32_t frame = 0;
    for (auto _ : state) {
        FollowStep(followed, frame, FindLights(frames[size_t(frame % 2)]));
        ++frame;
    }
    benchmark::DoNotOptimize(followed.front().steps.back().x);
}

BENCHMARK(BM_Track1080p)->Unit(benchmark::kMillisecond);

}  // namespace
