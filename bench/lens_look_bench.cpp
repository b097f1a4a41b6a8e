// The lens look of the double Gauss at f/8 through six blades, all ghosts and the starburst:
// painting a frame once the light's ghosts are traced (the same light: the footprints come from
// the look's cache) at 1080p and 2160p, against BM_Default1080p48 and BM_Default2160p48; and a
// light that moves every frame, so its ghosts are traced again each time. And what the look
// computes once for a lens, f-number and light: every ghost traced as it traces them, and the
// spectral starburst (its FFT included). The frames are painted on one thread and on two (the
// argument).
#include <benchmark/benchmark.h>

#include <vector>

#include "engine/lens_look.h"
#include "lens/ghost_footprint.h"
#include "lens/starburst.h"

namespace {

using namespace vellux::engine;

LensLookOptions DoubleGauss() {
    LensLookOptions options;
    options.lens = std::string(VELLUX_LENS_DIR) + "/double-gauss-50mm.json";
    options.fNumber = 8.0;
    options.blades = 6;
    return options;
}

void PaintFrames(benchmark::State& state, FrameSize size, bool moving, int32_t threads) {
    LensLook look(DoubleGauss());
    std::vector<float> rgb(size_t(size.width) * size_t(size.height) * 3);
    FlareLight light{0.3 * size.width, 0.35 * size.height, {255, 255, 255}, 1.0, 0.0};
    look.Paint(size, light, rgb.data());   // the starburst and the first light's ghosts
    for (auto _ : state) {
        if (moving) light.x += 1.0;
        std::fill(rgb.begin(), rgb.end(), 0.0f);
        look.Paint(size, light, rgb.data(), threads);
        benchmark::DoNotOptimize(rgb.data());
    }
}

void BM_LensLook1080p(benchmark::State& state) { PaintFrames(state, {1920, 1080}, false, int32_t(state.range(0))); }
void BM_LensLook2160p(benchmark::State& state) { PaintFrames(state, {3840, 2160}, false, int32_t(state.range(0))); }
void BM_LensLookMovingLight1080p(benchmark::State& state) { PaintFrames(state, {1920, 1080}, true, 1); }
void BM_LensLookTracing(benchmark::State& state) {
    const LensLook look(DoubleGauss());
    const vellux::lens::FootprintSettings settings = GhostSettings(look.fNumber(), look.aperture(), 0.12, 0.09);
    for (auto _ : state) {
        benchmark::DoNotOptimize(vellux::lens::TraceGhostFootprints(look.prescription(), settings));
        benchmark::DoNotOptimize(vellux::lens::SpectralStarburst(look.aperture(), look.fNumber()));
    }
}

BENCHMARK(BM_LensLookTracing)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LensLook1080p)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LensLook2160p)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LensLookMovingLight1080p)->Unit(benchmark::kMillisecond);

}  // namespace
