// The diffraction starburst of a six-blade aperture at f/8: the aperture's far field alone (the
// sampled opening and its 2-D transform), and the whole spectral pattern (the far field, then
// each of the 16 wavelengths scaled onto the pixels and summed into RGB).
#include <benchmark/benchmark.h>

#include "lens/starburst.h"

namespace {

const vellux::lens::Aperture kSixBlades{6, 0.0, 0.3};

void BM_StarburstFarField(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(vellux::lens::ApertureFarField(kSixBlades));
}
BENCHMARK(BM_StarburstFarField)->Unit(benchmark::kMillisecond);

void BM_Starburst(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(vellux::lens::SpectralStarburst(kSixBlades, 8.0));
}
BENCHMARK(BM_Starburst)->Unit(benchmark::kMillisecond);

}  // namespace
