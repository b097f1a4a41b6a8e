// One frame as a host renders it: SETF (layout of the elements and streaks) and GENF (painting)
// into a black frame, at 1920x1080 and 3840x2160, 48 and 32 bits, with the default look (light at
// 0.3 W, 0.35 H) and a heavy one (star filter 8, the anamorphic streak, 300 random streaks,
// intensity 1.0). The RingsOnly and StreaksOnly runs paint one kind alone and count what they
// paint, for the cost per painted ring pixel and per covered (streak, pixel) pair.
// BM_Default2160p48, BM_Default2160p32 and BM_Heavy1080p48 paint through the engine's flare
// instead (a private copy of the plug-in, its frame in bands, engine/frame_bands.h), on the
// number of threads their argument gives (/1, /2).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "engine/flare.h"
#include "host/host_session.h"
#include "host/resource_services.h"
#include "kit/rect.h"
#include "plugin/plugin_data.h"
#include "plugin/scan_conversion.h"
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
const uint32_t kElementFlags = kFlagGlow | kFlagHalo | kFlagReflections;
const uint32_t kStreakFlags = kFlagRandomStreaks | kFlagAnamorphicStreak;

// Ring pixels the painter adds to: those whose distance falls inside the ring's table, found with
// the painter's own arithmetic.
double PaintedRingPixels(PluginDataRec* data) {
    double count = 0;
    const RingElement* ring = RingAt(data, data->flareRingFirst);
    for (int32_t i = 0; i < data->flareRingCount && ring != nullptr; ++i, ring = RingAt(data, ring->ringNext)) {
        L_Rect scan;
        if (ring->ringFlareColors == 0 || SectLRect(&ring->ringRect, &data->flareRect, &scan) == 0) continue;
        const double end = double(ring->ringFlareColors) * 65536.0;
        for (int32_t y = scan.top; y < scan.bottom; ++y) {
            const float dy = float(y) - ring->ringYPos;
            const float dy2 = (dy * ring->ringYFactor) * (ring->ringYFactor * dy);
            float dx = (float(scan.left) - ring->ringXPos) * ring->ringXFactor;
            for (int32_t x = scan.left; x < scan.right; ++x, dx = dx + ring->ringXFactor)
                count += std::sqrt(double(dx * dx + dy2)) + 0.5 < end ? 1 : 0;
        }
    }
    return count;
}

// (streak, pixel) pairs the painter visits: every streak's span on every row, sliced on copies.
double CoveredStreakPixels(PluginDataRec* data) {
    double count = 0;
    int32_t offset = data->flareStreakFirst;
    for (int32_t i = 0; i < data->flareStreakCount; ++i) {
        StreakElement streak = *TailRecord<StreakElement>(data, offset);
        for (int32_t y = data->flareRect.top; y < data->flareRect.bottom; ++y) {
            L_Rect row, scan;
            SetLRect(&row, data->flareRect.left, y, data->flareRect.right, y + 1);
            int32_t left, right;
            if (SectLRect(&row, &streak.streakRect, &scan) != 0 && SliceEdges(&scan, y, streak.streakEdges, &left, &right))
                count += right - left + 1;
        }
        offset = streak.streakNext;
    }
    return count;
}

// The frame's camera and a white light at (0.3 W, 0.35 H).
PluginFlareSetupRec SetupBlock(vellux::host::HostSession& host, const L_Rect& frame) {
    const int32_t width = int32_t(frame.width), height = int32_t(frame.height);
    PluginFlareSetupRec setup{};
    setup.theInfo = host.Info();
    setup.theFrameRect = frame;
    setup.theFrameXScale = setup.theFrameYScale = double(std::min(width, height));
    setup.theFrameXCenter = width / 2.0;
    setup.theFrameYCenter = height / 2.0;
    setup.theLightFramePosition = DCoordinate{0.3 * width, 0.35 * height, 0.0};
    setup.theLightColor = ARGB{255, 255, 255, 255};
    setup.theLightIntensity = 1.0;
    return setup;
}

void RenderFrame(benchmark::State& state, int32_t width, int32_t height, int16_t depth, const Look& look,
                 uint32_t keepFlags = ~0u) {
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
    settings.flareFlags &= keepFlags;
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
        PluginFlareSetupRec setup = SetupBlock(host, frame);
        PluginFlareGenerateRec generate{};
        generate.theFlareBuffer = FlareBuffer{pixels.data(), width * bytes, frame, depth, 0};
        if (Main(kCmdSetup, int32_t(sizeof(setup)), &setup) != kNoError) state.SkipWithError("SETF failed");
        generate.theInfo = host.Info();
        if (Main(kCmdGenerate, int32_t(sizeof(generate)), &generate) != kNoError) state.SkipWithError("GENF failed");
        benchmark::DoNotOptimize(pixels.data());
    }
    // What one frame painted, for the per-pixel costs (the layout of the last SETF is current).
    PluginFlareSetupRec again = SetupBlock(host, frame);
    Main(kCmdSetup, int32_t(sizeof(again)), &again);
    auto* data = reinterpret_cast<PluginDataRec*>(const_cast<uint8_t*>(host.pluginData().data()));
    state.counters["ring_px"] = PaintedRingPixels(data);
    state.counters["streak_px"] = CoveredStreakPixels(data);
}

// The same frame painted by the engine's flare on state.range(0) threads.
void RenderFrameOnThreads(benchmark::State& state, int32_t width, int32_t height, int16_t depth, const Look& look) {
    vellux::host::SetHomeDirectory(VELLUX_TABLE_DIR);
    vellux::engine::FlareSetup setup;
    setup.plugin = VELLUX_PLUGIN_PATH;
    setup.edits.starFilter = look.starFilter;
    if (look.addFlags & kFlagAnamorphicStreak) setup.edits.anamorphicStreak = true;
    setup.edits.streakDensity = look.density;
    setup.edits.flareIntensity = look.intensity;
    vellux::engine::Flare flare(setup);
    flare.SetThreads(int32_t(state.range(0)));
    const vellux::engine::FlareLight light{0.3 * width, 0.35 * height, {255, 255, 255}, 1.0, 0.0};
    vellux::engine::PluginPixels pixels(width, height, depth);
    flare.Paint(pixels.View(), light);   // the copies loaded before the clock runs
    for (auto _ : state) {
        state.PauseTiming();
        std::fill(pixels.bytes.begin(), pixels.bytes.end(), 0);
        state.ResumeTiming();
        flare.Paint(pixels.View(), light);
        benchmark::DoNotOptimize(pixels.bytes.data());
    }
}

void BM_Default1080p48(benchmark::State& s) { RenderFrame(s, 1920, 1080, 48, kDefault); }
void BM_Default1080p32(benchmark::State& s) { RenderFrame(s, 1920, 1080, 32, kDefault); }
void BM_Default2160p48(benchmark::State& s) { RenderFrameOnThreads(s, 3840, 2160, 48, kDefault); }
void BM_Default2160p32(benchmark::State& s) { RenderFrameOnThreads(s, 3840, 2160, 32, kDefault); }
void BM_Heavy1080p48(benchmark::State& s) { RenderFrameOnThreads(s, 1920, 1080, 48, kHeavy); }
void BM_Heavy1080p32(benchmark::State& s) { RenderFrame(s, 1920, 1080, 32, kHeavy); }
void BM_Heavy2160p48(benchmark::State& s) { RenderFrame(s, 3840, 2160, 48, kHeavy); }
void BM_Heavy2160p32(benchmark::State& s) { RenderFrame(s, 3840, 2160, 32, kHeavy); }
void BM_RingsOnly1080p48(benchmark::State& s) { RenderFrame(s, 1920, 1080, 48, kDefault, ~kStreakFlags); }
void BM_RingsOnly1080p32(benchmark::State& s) { RenderFrame(s, 1920, 1080, 32, kDefault, ~kStreakFlags); }
void BM_StreaksOnly1080p48(benchmark::State& s) { RenderFrame(s, 1920, 1080, 48, kHeavy, ~kElementFlags); }
void BM_StreaksOnly1080p32(benchmark::State& s) { RenderFrame(s, 1920, 1080, 32, kHeavy, ~kElementFlags); }
BENCHMARK(BM_RingsOnly1080p48)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RingsOnly1080p32)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StreaksOnly1080p48)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StreaksOnly1080p32)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Default1080p48)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Default1080p32)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Default2160p48)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Default2160p32)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Heavy1080p48)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Heavy1080p32)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Heavy2160p48)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Heavy2160p32)->Unit(benchmark::kMillisecond);

}  // namespace
