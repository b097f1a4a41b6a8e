// The GIMP dialog's preview following a drag: one update of an 800x450 preview showing a
// 1920x1080 drawable whole (factor 800/1920), the flare rendered on the scaled frame with the
// default look and the light moving, over the preview's RGBA bytes. Also at zoom 1 scrolled into
// the middle of the drawable (the flare then laid out on the whole 1920x1080 frame).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "engine/plugin_settings.h"
#include "gimp/preview_flare.h"

namespace {

void PreviewUpdate(benchmark::State& state) {
    setenv("VELLUX_TABLE_PATH", VELLUX_TABLE_DIR, 1);
    const double factor = state.range(0) == 0 ? 800.0 / 1920.0 : 1.0;
    const vellux::gimp::PreviewView view{factor, factor, 0, 0, state.range(0) == 0 ? 0 : 560, state.range(0) == 0 ? 0 : 315,
                                         800, 450};
    const vellux::gimp::ScaledFrame frame = vellux::gimp::ScaledFrameOf(view, 1920, 1080);
    vellux::engine::RenderRequest request;
    request.plugin = VELLUX_PLUGIN_PATH;
    vellux::gimp::PreviewFlare preview;
    preview.Prepare(request);
    const vellux::engine::SettingEdits settings = vellux::engine::DefaultSettingEdits();
    std::vector<uint8_t> source(800 * 450 * 4);
    for (size_t i = 0; i < source.size(); ++i) source[i] = uint8_t((i * 7) >> 5);
    std::vector<uint8_t> pixels(source.size());
    int step = 0;
    for (auto _ : state) {
        pixels = source;
        vellux::engine::FlareLight light;
        light.x = 576.0 + 4.0 * (step % 50), light.y = 378.0 + 2.0 * (step % 50);
        ++step;
        preview.Paint(pixels.data(), 800, 450, 4, view, frame, light, settings, vellux::engine::kDefaultBlend);
        benchmark::DoNotOptimize(pixels.data());
    }
}
BENCHMARK(PreviewUpdate)->Arg(0)->Arg(1)->ArgName("zoom1")->Unit(benchmark::kMillisecond);

}  // namespace
