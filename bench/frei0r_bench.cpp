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
    filter.Update(in.data(), out.data());   // the flare made once, as a host's first frame does
    for (auto _ : state) {
        filter.Update(in.data(), out.data());
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Frei0rUpdate)->Unit(benchmark::kMillisecond);

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
