// vellux lens compile of the double Gauss with every ghost (45): reading the prescription, the
// ghosts at three wavelengths, the table source, and compiling it with the default table's
// dialogs into a resource file; the ghosts alone; and the ghosts traced as footprints.
#include <benchmark/benchmark.h>

#include <sstream>
#include <string>

#include "lens/ghost_footprint.h"
#include "lens/ghosts.h"
#include "lens/prescription.h"
#include "tools/vellux/lens_command.h"

namespace {

const std::string kDoubleGauss = std::string(VELLUX_LENS_DIR) + "/double-gauss-50mm.json";

void BM_LensGhosts(benchmark::State& state) {
    const vellux::lens::Prescription lens = vellux::lens::ReadPrescription(kDoubleGauss);
    for (auto _ : state) benchmark::DoNotOptimize(vellux::lens::Ghosts(lens, {}));
}
BENCHMARK(BM_LensGhosts)->Unit(benchmark::kMillisecond);

// Every ghost's footprint traced at 8 wavelengths, for a light off the axis through a hexagonal iris.
void BM_GhostFootprints(benchmark::State& state) {
    const vellux::lens::Prescription lens = vellux::lens::ReadPrescription(kDoubleGauss);
    vellux::lens::FootprintSettings settings;
    settings.aperture.blades = 6;
    settings.angleY = 0.15;
    settings.wavelengths = {400.0, 440.0, 480.0, 520.0, 560.0, 600.0, 640.0, 680.0};
    for (auto _ : state) benchmark::DoNotOptimize(vellux::lens::TraceGhostFootprints(lens, settings));
}
BENCHMARK(BM_GhostFootprints)->Unit(benchmark::kMillisecond);

void BM_LensCompile(benchmark::State& state) {
    vellux::tool::LensOptions options;
    options.lens = kDoubleGauss;
    options.ghosts = 45;
    options.dialogs = std::string(VELLUX_TABLE_DIR) + "/Vellux.rsc";
    options.output = "/tmp/vellux_bench_double_gauss.rsc";
    std::ostringstream messages;
    for (auto _ : state) benchmark::DoNotOptimize(vellux::tool::CompileLens(options, messages));
}
BENCHMARK(BM_LensCompile)->Unit(benchmark::kMillisecond);

}  // namespace
