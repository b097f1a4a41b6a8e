// The frei0r filter's update on a 1920x1080 RGBA frame with the default look, and the plug-in's
// own painting of the same frame: the difference is what the filter's conversions cost.
#include <benchmark/benchmark.h>

#include <vector>

#include "engine/flare.h"
#include "engine/plugin_location.h"
#include "frei0r/filter_instance.h"

namespace {

using namespace vellux;

constexpr int kWidth = 1920, kHeight = 1080;

std::vector<uint32_t> GreyFrame() { return std::vector<uint32_t>(size_t(kWidth) * kHeight, 0xff404040u); }

void BM_Frei0rUpdate(benchmark::State& state) {
    frei0r::FilterInstance filter(kWidth, kHeight);
    const std::vector<uint32_t> in = GreyFrame();
    std::vector<uint32_t> out(in.size());
    filter.Update(0.0, in.data(), out.data());   // the flare made once, as a host's first frame does
    for (auto _ : state) {
        filter.Update(0.0, in.data(), out.data());
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Frei0rUpdate)->Unit(benchmark::kMillisecond);

// A 1080p frame through the filter with follow-brightest-light off (arg 0) and on (arg 1): the
// same frame each time, a clipped lamp on a graded dusk-like background, so that following finds
// and measures a light on every frame. The ratio of the two is what following costs. Arg 2: on,
// with no lamp, so that every frame is searched whole (the most following costs).
std::vector<uint32_t> LampFrame(bool lamp) {
    std::vector<uint32_t> frame(size_t(kWidth) * kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const bool lit = lamp && (x - 700) * (x - 700) + (y - 400) * (y - 400) <= 12 * 12;
            const auto v = uint32_t(lit ? 255 : 30 + x / 40 + y / 30);
            frame[size_t(y) * kWidth + size_t(x)] = 0xff000000u | v << 16 | v << 8 | v;
        }
    return frame;
}

void BM_Frei0rFollowingTheBrightestLight(benchmark::State& state) {
    frei0r::FilterInstance filter(kWidth, kHeight);
    const double follow = state.range(0) > 0 ? 1.0 : 0.0;
    filter.SetParam(frei0r::kParamCount - 1, &follow);   // follow-brightest-light, the last
    const std::vector<uint32_t> in = LampFrame(state.range(0) < 2);
    std::vector<uint32_t> out(in.size());
    double time = 0.0;   // a frame after the other, as a host plays them
    filter.Update(time, in.data(), out.data());
    for (auto _ : state) {
        filter.Update(time += 1.0 / 30.0, in.data(), out.data());
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Frei0rFollowingTheBrightestLight)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

// What the plug-in alone takes for that frame: settings, SETF and GENF on its 32-bit pixels.
void BM_Frei0rPaintingAlone(benchmark::State& state) {
    engine::FlareSetup setup;
    setup.plugin = engine::FindPlugin("");
    engine::Flare flare(setup);
    engine::PluginPixels pixels(kWidth, kHeight, 32);
    const frei0r::FilterSettings settings;
    for (auto _ : state) {
        flare.instance().EditSettings(settings.edits);
        engine::RenderFrame(flare.instance(), frei0r::LightOn(settings, kWidth, kHeight), pixels, 0);
        benchmark::DoNotOptimize(pixels.bytes.data());
    }
}
BENCHMARK(BM_Frei0rPaintingAlone)->Unit(benchmark::kMillisecond);

}  // namespace
