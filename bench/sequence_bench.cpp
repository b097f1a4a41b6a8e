// Whole renders through the engine, as `vellux render` runs them: a 48-frame 1920x1080 scene to
// EXR (black 16-bit frames, written as half floats) and to 8-bit PNG (the sample frame as the
// plate of every frame), on 1 and 2 workers, in frames per second; and one 1080p frame split into
// its parts (the process starting and loading, reading the plate, the flare, writing the image).
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include "engine/engine.h"
#include "engine/sample_frame.h"
#include "host/resource_services.h"

extern char** environ;

namespace {

using namespace vellux::engine;
namespace fs = std::filesystem;

constexpr int32_t kFrames = 48;
constexpr FrameSize kSize{1920, 1080};

// A scratch folder with the plate and the two scenes, made once.
const fs::path& Work() {
    static const fs::path folder = [] {
        const fs::path dir = fs::temp_directory_path() / ("vellux_sequence_bench_" + std::to_string(getpid()));
        fs::create_directories(dir);
        vellux::host::SetHomeDirectory(VELLUX_TABLE_DIR);
        WriteSampleFrame(dir / "plate.png", kSize, 1);
        Scene scene;
        scene.firstFrame = 1;
        scene.lastFrame = kFrames;
        scene.lightUnits = LightUnits::fraction;
        scene.light[1] = LightKey{0.2, 0.3, {255, 255, 255}, 1.0, 0.0};
        scene.light[kFrames] = LightKey{0.7, 0.4, {255, 200, 150}, 1.2, 0.0};
        scene.channels["Intensity"] = {{1, 0.4}, {kFrames, 0.8}};
        scene.width = kSize.width;
        scene.height = kSize.height;
        WriteSceneFile(dir / "black.json", scene);
        scene.width = scene.height = 0;
        scene.input = "plate.####.png";   // one plate, linked under every frame's name
        for (int32_t frame = 1; frame <= kFrames; ++frame) {
            char name[32];
            std::snprintf(name, sizeof(name), "plate.%04d.png", frame);
            fs::create_symlink("plate.png", dir / name);
        }
        WriteSceneFile(dir / "plate.json", scene);
        return dir;
    }();
    return folder;
}

void BM_Sequence(benchmark::State& state, const char* scene, const char* output) {
    KeepFrameMemory();   // as the tool does
    Work();
    RenderRequest request;
    request.scene = Work() / scene;
    request.output = Work() / output;
    request.plugin = VELLUX_PLUGIN_PATH;
    request.jobs = int32_t(state.range(0));
    for (auto _ : state) RenderSceneSequence(request);
    state.SetItemsProcessed(state.iterations() * kFrames);   // items per second: frames per second
}
BENCHMARK_CAPTURE(BM_Sequence, exr, "black.json", "black.####.exr")->Arg(1)->Arg(2)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(BM_Sequence, png8, "plate.json", "lit.####.png")->Arg(1)->Arg(2)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

// ---- One frame's parts ----

// The tool started, run with one argument, and waited for, its output thrown away.
void SpawnTool(benchmark::State& state, const char* argument) {
    const std::string tool = std::string(VELLUX_TABLE_DIR) + "/vellux";
    char* argv[] = {const_cast<char*>(tool.c_str()), const_cast<char*>(argument), nullptr};
    for (auto _ : state) {
        pid_t pid = 0;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn(&pid, tool.c_str(), &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        int status = 0;
        waitpid(pid, &status, 0);
    }
}

void BM_ProcessStart(benchmark::State& state) {   // `vellux info`: start, load the plug-in, exit
    Work();
    SpawnTool(state, "info");
}
BENCHMARK(BM_ProcessStart)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_ProcessStartHelp(benchmark::State& state) {   // `vellux --help`: start, list the commands, exit
    SpawnTool(state, "--help");
}
BENCHMARK(BM_ProcessStartHelp)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_ReadPlate(benchmark::State& state) {
    Work();
    for (auto _ : state) benchmark::DoNotOptimize(FrameImage::Read(Work() / "plate.png"));
}
BENCHMARK(BM_ReadPlate)->Unit(benchmark::kMillisecond);

void BM_Flare(benchmark::State& state) {   // conversion in, SETF + GENF, conversion out; on 1 or 2 threads
    FlareSetup setup;
    setup.plugin = VELLUX_PLUGIN_PATH;
    Flare flare(setup);
    flare.SetThreads(int32_t(state.range(0)));
    const OIIO::ImageBuf plate = FrameImage::Read(Work() / "plate.png").image();
    FlareLight light;
    light.x = 0.3 * kSize.width;
    light.y = 0.35 * kSize.height;
    for (auto _ : state) benchmark::DoNotOptimize(flare.Composite(plate, light, {}));
}
BENCHMARK(BM_Flare)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FlareFloat(benchmark::State& state) {   // a float plate: the pass, to linear, added in float
    FlareSetup setup;
    setup.plugin = VELLUX_PLUGIN_PATH;
    Flare flare(setup);
    flare.SetThreads(int32_t(state.range(0)));
    OIIO::ImageBuf plate;
    OIIO::ImageBufAlgo::copy(plate, FrameImage::Read(Work() / "plate.png").image(), OIIO::TypeFloat);
    FlareLight light;
    light.x = 0.3 * kSize.width;
    light.y = 0.35 * kSize.height;
    for (auto _ : state) benchmark::DoNotOptimize(flare.Composite(plate, light, {}));
}
BENCHMARK(BM_FlareFloat)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// A flared 1080p frame written with each compression: 8-bit PNG, and EXR in float and half (the
// sample frame made linear); the file's size is the counter "bytes".
const OIIO::ImageBuf& FlaredFrame(OIIO::TypeDesc type) {
    static const OIIO::ImageBuf bytes = [] {
        FlareSetup setup;
        setup.plugin = VELLUX_PLUGIN_PATH;
        Flare flare(setup);
        FlareLight light;
        light.x = 0.3 * kSize.width;
        light.y = 0.35 * kSize.height;
        return flare.Composite(FrameImage::Read(Work() / "plate.png").image(), light, {});
    }();
    static const OIIO::ImageBuf floats = [] {
        OIIO::ImageBuf linear;
        OIIO::ImageBufAlgo::colorconvert(linear, bytes, "sRGB", "linear");
        OIIO::ImageBuf converted;
        OIIO::ImageBufAlgo::copy(converted, linear, OIIO::TypeFloat);
        return converted;
    }();
    return type == OIIO::TypeUInt8 ? bytes : floats;
}

void BM_Write(benchmark::State& state, const char* compression, const char* name, OIIO::TypeDesc type) {
    const OIIO::ImageBuf& image = FlaredFrame(type == OIIO::TypeUInt8 ? type : OIIO::TypeFloat);
    const fs::path file = Work() / name;
    const Compression choice = ParseCompression("compression", compression);
    for (auto _ : state) WriteImageFile(image, file, type, nullptr, choice);
    state.counters["bytes"] = double(fs::file_size(file));
}
BENCHMARK_CAPTURE(BM_Write, png_0, "png:0", "w.png", OIIO::TypeUInt8)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Write, png_1, "png:1", "w.png", OIIO::TypeUInt8)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Write, png_3, "png:3", "w.png", OIIO::TypeUInt8)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Write, png_6, "png:6", "w.png", OIIO::TypeUInt8)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Write, png_9, "png:9", "w.png", OIIO::TypeUInt8)->Unit(benchmark::kMillisecond);
#define VELLUX_EXR_WRITES(method)                                                                           \
    BENCHMARK_CAPTURE(BM_Write, float_##method, "exr:" #method, "w.exr", OIIO::TypeFloat)->Unit(benchmark::kMillisecond); \
    BENCHMARK_CAPTURE(BM_Write, half_##method, "exr:" #method, "w.exr", OIIO::TypeHalf)->Unit(benchmark::kMillisecond)
VELLUX_EXR_WRITES(none);
VELLUX_EXR_WRITES(rle);
VELLUX_EXR_WRITES(zips);
VELLUX_EXR_WRITES(zip);
VELLUX_EXR_WRITES(piz);
VELLUX_EXR_WRITES(pxr24);
VELLUX_EXR_WRITES(dwaa);

}  // namespace
