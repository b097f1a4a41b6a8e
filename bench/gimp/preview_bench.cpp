// The GIMP plug-in's preview: one update of an 800x450 preview while the light is dragged (a new
// light each time, the default look), as the dialog paints it.
#include <benchmark/benchmark.h>

#include <vector>

#include "gimp/flare_preview.h"

namespace {

using namespace vellux;

void BM_GimpPreviewDragStep(benchmark::State& state) {
    gimp::PreviewPlate plate;
    plate.width = 800;
    plate.height = 450;
    plate.channels = 3;
    plate.imageWidth = 1920;
    plate.imageHeight = 1080;
    plate.pixels.assign(size_t(plate.width) * plate.height * 3, 64);
    gimp::FlareArguments arguments = gimp::DefaultArguments(plate.imageWidth, plate.imageHeight);
    std::vector<uint8_t> painted;
    int step = 0;
    for (auto _ : state) {
        arguments.lightX = 400.0 + 7.0 * (step++ % 100);
        gimp::PaintPreview(plate, arguments, painted);
        benchmark::DoNotOptimize(painted.data());
    }
}
BENCHMARK(BM_GimpPreviewDragStep)->Unit(benchmark::kMillisecond);

}  // namespace
