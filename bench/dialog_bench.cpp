// The settings dialog's preview as the artist drags the light: each reported mouse position
// describes the frame again, lays the flare out, renders the whole preview (400x226 in the
// shipped dialog) and draws it. Painted (32-bit, one scan line at a time) and sketched (bands of
// 10 rows of outline points), and painted over the artist's plate (the 1920x1080 sample frame as an
// 8-bit PNG and as a linear half-float EXR, engine/preview_plate.h). Also the whole dialog opened
// and cancelled.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>
#include <string>

#include <OpenImageIO/imagebufalgo.h>

#include "engine/preview_plate.h"
#include "engine/sample_frame.h"
#include "host/dialog_model.h"
#include "host/image_backdrop.h"
#include "host/host_session.h"
#include "host/resource_services.h"
#include "host/scripted_dialog_runner.h"
#include "vellux/plugin_records.h"

namespace {

using vellux::host::ScriptStep;

// INIT, then INTF with `runner`; the runner's inspector does the measuring.
void RunDialog(benchmark::State& state, vellux::host::ScriptedDialogRunner& runner) {
    vellux::host::SetHomeDirectory(VELLUX_TABLE_DIR);
    vellux::host::HostSession host;
    PluginInitializeRec init{};
    init.theInfo = host.Info();
    if (Main(kCmdInitialize, int32_t(sizeof(init)), &init) != kNoError) return state.SkipWithError("INIT failed");
    vellux::host::ScopedDialogRunner installed(runner);
    PluginInterfaceRec block{};
    block.theInfo = host.Info();
    Main(kCmdInterface, int32_t(sizeof(block)), &block);
    PluginFinishRec finish{};
    finish.theInfo = host.Info();
    Main(kCmdFinish, int32_t(sizeof(finish)), &finish);
}

// Alternates between two positions so that every step renders a new light position.
void PreviewDragStep(benchmark::State& state, bool sketch) {
    vellux::host::ScriptedDialogRunner runner({ScriptStep::Edit("Painted preview", sketch ? "off" : "on")}, false);
    runner.SetInspector([&](vellux::host::Dialog& dialog) {
        const KV_Rect bounds = vellux::host::FindControl(dialog, 24)->item.bounds;
        const std::pair<int, int> a{bounds.left + 100, bounds.top + 60}, b{bounds.left + 300, bounds.top + 160};
        bool flip = false;
        for (auto _ : state) {
            runner.Play(dialog, ScriptStep::Click("24", {flip ? a : b}));
            flip = !flip;
        }
    });
    RunDialog(state, runner);
}

void BM_PreviewDragStepPainted(benchmark::State& state) { PreviewDragStep(state, false); }
void BM_PreviewDragStepSketch(benchmark::State& state) { PreviewDragStep(state, true); }

// The sample frame as `extension` (png: 8-bit sRGB; exr: linear half floats), made once.
std::filesystem::path SamplePlate(const std::string& extension) {
    const std::filesystem::path png = std::filesystem::temp_directory_path() / "vellux_bench_plate.png";
    const std::filesystem::path file = png.parent_path() / ("vellux_bench_plate." + extension);
    if (std::filesystem::exists(file)) return file;
    vellux::engine::WriteSampleFrame(png, {1920, 1080}, 1);
    if (extension == "exr") {
        OIIO::ImageBuf linear = OIIO::ImageBufAlgo::colorconvert(OIIO::ImageBuf(png.string()), "sRGB", "linear");
        linear.write(file.string(), OIIO::TypeHalf);
    }
    return file;
}

void PreviewDragStepOnPlate(benchmark::State& state, const std::string& extension) {
    vellux::engine::PreviewPlate plate({SamplePlate(extension), "", vellux::engine::Blend::display});
    const vellux::host::ScopedImageBackdrop onPlate(&plate);
    PreviewDragStep(state, false);
}

void BM_PreviewDragStepOnPngPlate(benchmark::State& state) { PreviewDragStepOnPlate(state, "png"); }
void BM_PreviewDragStepOnExrPlate(benchmark::State& state) { PreviewDragStepOnPlate(state, "exr"); }

void BM_OpenAndCancelDialog(benchmark::State& state) {
    for (auto _ : state) {
        vellux::host::ScriptedDialogRunner runner({}, false);
        RunDialog(state, runner);
    }
}

BENCHMARK(BM_PreviewDragStepPainted)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PreviewDragStepSketch)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PreviewDragStepOnPngPlate)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PreviewDragStepOnExrPlate)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenAndCancelDialog)->Unit(benchmark::kMillisecond);

}  // namespace
