// One frame as a host renders it: SETF (layout of the elements and streaks) and GENF (painting)
// into a black frame, at 1920x1080 and 3840x2160, 48 and 32 bits, with the default look (light at
// 0.3 W, 0.35 H) and a heavy one (star filter 8, the anamorphic streak, 300 random streaks,
// intensity 1.0). Counters: painted ring pixels and covered streak pixels per frame are not
// measured here; see the README for how the per-pixel figures are derived.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "host/host_session.h"
#include "host/resource_services.h"
#include "vellux/plugin_records.h"

namespace {

struct Look {
    int32_t starFilter;
    uint32_t addFlags;
    double density;
    double intensity;
};
const Look kDefault{0, 0, 50.0, 0.5};
const Look kHeavy{8, kFlagAnamorphicStreak, 300.0, 1.0};

void RenderFrame(benchmark::State& state, int32_t width, int32_t height, int16_t depth, const Look& look) {
    vellux::host::SetHomeDirectory(VELLUX_TABLE_DIR);
    vellux::host::HostSession host;
    PluginInitializeRec init{host.Info()};
    if (Main(kCmdInitialize, int32_t(sizeof(init)), &init) != kNoError) {
        state.SkipWithError("INIT failed");
        return;
    }
    std::vector<uint8_t> control = host.controlData();
    ControlDataRec settings;
    std::memcpy(&settings, control.data(), sizeof(settings));
    settings.flareStarFilter = look.starFilter;
    settings.flareFlags |= look.addFlags;
    settings.flareStreakDensity = look.density;
    settings.flareIntensity = look.intensity;
    std::memcpy(control.data(), &settings, sizeof(settings));
    host.SetControlData(control);

    const L_Rect frame{0, 0, height, width, uint32_t(width), uint32_t(height)};
    const int32_t bytes = depth / 8;
    std::vector<uint8_t> pixels(size_t(width) * height * bytes);
    for (auto _ : state) {
        state.PauseTiming();
        std::fill(pixels.begin(), pixels.end(), 0);
        state.ResumeTiming();
        PluginFlareSetupRec setup{};
        setup.theInfo = host.Info();
        setup.theFrameRect = frame;
        setup.theFrameXScale = setup.theFrameYScale = double(std::min(width, height));
        setup.theFrameXCenter = width / 2.0;
        setup.theFrameYCenter = height / 2.0;
        setup.theLightFramePosition = DCoordinate{0.3 * width, 0.35 * height, 0.0};
        setup.theLightColor = ARGB{255, 255, 255, 255};
        setup.theLightIntensity = 1.0;
        PluginFlareGenerateRec generate{};
        generate.theFlareBuffer = FlareBuffer{pixels.data(), width * bytes, frame, depth, 0};
        if (Main(kCmdSetup, int32_t(sizeof(setup)), &setup) != kNoError) state.SkipWithError("SETF failed");
        generate.theInfo = host.Info();
        if (Main(kCmdGenerate, int32_t(sizeof(generate)), &generate) != kNoError) state.SkipWithError("GENF failed");
        benchmark::DoNotOptimize(pixels.data());
    }
}

void BM_Default1080p48(benchmark::State& s) { RenderFrame(s, 1920, 1080, 48, kDefault); }
void BM_Default1080p32(benchmark::State& s) { RenderFrame(s, 1920, 1080, 32, kDefault); }
void BM_Default2160p48(benchmark::State& s) { RenderFrame(s, 3840, 2160, 48, kDefault); }
void BM_Default2160p32(benchmark::State& s) { RenderFrame(s, 3840, 2160, 32, kDefault); }
void BM_Heavy1080p48(benchmark::State& s) { RenderFrame(s, 1920, 1080, 48, kHeavy); }
void BM_Heavy1080p32(benchmark::State& s) { RenderFrame(s, 1920, 1080, 32, kHeavy); }
void BM_Heavy2160p48(benchmark::State& s) { RenderFrame(s, 3840, 2160, 48, kHeavy); }
void BM_Heavy2160p32(benchmark::State& s) { RenderFrame(s, 3840, 2160, 32, kHeavy); }
BENCHMARK(BM_Default1080p48)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Default1080p32)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Default2160p48)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Default2160p32)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Heavy1080p48)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Heavy1080p32)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Heavy2160p48)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Heavy2160p32)->Unit(benchmark::kMillisecond);

}  // namespace
