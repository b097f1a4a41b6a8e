#include "engine/scene_render.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine/flare_pass.h"
#include "engine/frame_image.h"
#include "engine/occlusion.h"
#include "engine/plugin_location.h"
#include "engine/colour.h"
#include "engine/frame_render.h"

namespace vellux::engine {

namespace {

namespace fs = std::filesystem;

std::string SizeText(FrameSize size) { return std::to_string(size.width) + "x" + std::to_string(size.height); }

// The output pattern, checked: a frame field wherever more than one frame is written.
FramePattern OutputPattern(const fs::path& output, const std::vector<int32_t>& frames) {
    FramePattern pattern;
    try {
        pattern = FramePattern::Parse(output.string());
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(std::string("-o: ") + error.what());
    }
    if (!pattern.HasField() && frames.size() > 1)
        throw std::invalid_argument("-o: '" + output.string() + "' has no frame number field (####, %04d or %d) for " +
                                    std::to_string(frames.size()) + " frames");
    CheckOutputFormat(pattern.For(frames.front()));
    return pattern;
}

// An image sequence's pattern, relative to the scene file's folder, with every frame of the range
// the size of the first; returns that size.
FrameSize CheckInputFrames(const FramePattern& input, const std::vector<int32_t>& frames) {
    FrameSize first{};
    for (const int32_t frame : frames) {
        const std::string file = input.For(frame);
        FrameSize size;
        try {
            size = ReadImageSize(file);
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(std::string(error.what()) + " (frame " + std::to_string(frame) + ")");
        }
        if (frame == frames.front()) first = size;
        else if (size.width != first.width || size.height != first.height)
            throw std::runtime_error(file + ": frame " + std::to_string(frame) + " is " + SizeText(size) + ", frame " +
                                     std::to_string(frames.front()) + " is " + SizeText(first) +
                                     "; every frame of a sequence must have one size");
    }
    return first;
}

}  // namespace

bool IsSequence(const RenderRequest& request) {
    if (!request.scene.empty() || !request.frames.empty()) return true;
    return !request.input.empty() && !fs::exists(request.input) && FramePattern::Parse(request.input.string()).HasField();
}

Scene FixedLightScene(const RenderRequest& request) {
    const FramePattern input = FramePattern::Parse(request.input.string());
    const std::vector<int32_t> frames = request.frames.empty() ? input.FramesOnDisk() : request.frames;
    Scene scene;
    scene.firstFrame = *std::min_element(frames.begin(), frames.end());
    scene.lastFrame = *std::max_element(frames.begin(), frames.end());
    scene.input = request.input.string();
    scene.lightUnits = request.lightIsFraction ? LightUnits::fraction : LightUnits::pixels;
    LightKey& key = scene.light[scene.firstFrame];
    key.x = request.lightX;
    key.y = request.lightY;
    key.color = {request.color.red, request.color.green, request.color.blue};
    key.intensity = request.intensity;
    key.radius = request.radius;
    return scene;
}

// The mask of a frame: a pattern with a frame field names one mask per frame, else one for all.
std::string MaskFor(const fs::path& mask, int32_t frame) {
    const FramePattern pattern = FramePattern::Parse(mask.string());
    return pattern.HasField() ? pattern.For(frame) : mask.string();
}

FlareLight SceneLightAt(const Scene& scene, int32_t frame, int32_t width, int32_t height) {
    const LightState state = LightAt(scene, frame);
    const bool fraction = scene.lightUnits == LightUnits::fraction;
    const auto byte = [](double value) { return uint8_t(std::lround(std::clamp(value, 0.0, 255.0))); };
    FlareLight light;
    light.x = fraction ? state.x * width : state.x;
    light.y = fraction ? state.y * height : state.y;
    light.color = {byte(state.color[0]), byte(state.color[1]), byte(state.color[2])};
    light.intensity = state.intensity;
    light.radius = state.radius;
    return light;
}

namespace {

// What every worker of one sequence shares: the checked request, the frames still to take, and
// the first failure.
struct SequenceWork {
    SequenceWork(const RenderRequest& r, const Scene& s) : request(r), scene(s), all(SceneFrames(s)) {}

    const RenderRequest& request;
    const Scene& scene;
    FrameRange all;
    std::vector<int32_t> frames;
    FramePattern output;
    std::optional<FramePattern> input;
    FrameSize size;
    int32_t threads = 1;                       // painting each frame

    std::atomic<size_t> next{0};
    std::atomic<bool> stop{false};             // every worker's plug-in interrupt flag
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<int32_t> finished;             // frames written, not yet reported
    std::exception_ptr failure;                // the first frame that failed
    int running = 0;
};

// One frame: the channels at the frame, the light, the flare, the file.
void RenderSceneFrame(SequenceWork& work, SceneSession& session, int32_t frame) {
    const std::string target = work.output.For(frame);
    FlareLight light = SceneLightAt(work.scene, frame, work.size.width, work.size.height);
    if (!work.request.occlusion.empty())
        light = OccludedLight(light, OcclusionMask::Read(MaskFor(work.request.occlusion, frame), work.size));
    session.instance().LoadChannels(work.all.first, work.all.last, frame);
    if (const std::optional<double> fNumber = FNumberAt(work.scene, frame)) session.flare().SetLensFNumber(*fNumber);
    const std::string plateFile = work.input ? work.input->For(frame) : std::string();
    WritePlateFile(RenderRequestedFrame(session.flare(), work.request, plateFile, work.size, light, target), target,
                   &work.stop, work.request.compression);
}

// A failure's message, naming the frame and its file.
std::exception_ptr FrameFailure(const std::exception_ptr& caught, int32_t frame, const std::string& target) {
    const std::string where = "frame " + std::to_string(frame) + " (" + target + ") not written";
    try {
        std::rethrow_exception(caught);
    } catch (const PluginError& error) {
        return std::make_exception_ptr(PluginError(std::string(error.what()) + "; " + where, error.code));
    } catch (const std::exception& error) {
        return std::make_exception_ptr(std::runtime_error(std::string(error.what()) + "; " + where));
    }
}

void RunWorker(SequenceWork& work, const FlareSetup& setup) {
    try {
        SceneSession session(setup, work.request.scene, work.scene);
        session.host().SetInterruptFlag(&work.stop);
        session.flare().SetThreads(work.threads);
        for (size_t i; !work.stop && (i = work.next.fetch_add(1)) < work.frames.size();) {
            const int32_t frame = work.frames[i];
            try {
                RenderSceneFrame(work, session, frame);
            } catch (...) {
                if (!work.stop.exchange(true)) {   // the first to fail; the others were stopped by it
                    const std::lock_guard lock(work.mutex);
                    work.failure = FrameFailure(std::current_exception(), frame, work.output.For(frame));
                }
                break;
            }
            const std::lock_guard lock(work.mutex);
            work.finished.push_back(frame);
            work.changed.notify_all();
        }
        if (!work.stop) session.Finish();
    } catch (...) {
        if (!work.stop.exchange(true)) {
            const std::lock_guard lock(work.mutex);
            work.failure = std::current_exception();
        }
    }
    const std::lock_guard lock(work.mutex);
    --work.running;
    work.changed.notify_all();
}

// While several workers run, the image library's own thread pools (the OpenEXR codec's, its
// colour conversions') only compete with them for the same cores: each worker's library calls run
// on the worker's thread. The codec's pool is shared by the whole process: one thread in it would
// make every worker's compression wait for that one thread, so it gets none (-1) and each worker
// compresses its own frame. Restored when the sequence ends.
class LibraryThreadsScope {
public:
    explicit LibraryThreadsScope(bool single) : single_(single) {
        if (!single_) return;
        OIIO::getattribute("threads", threads_);
        OIIO::getattribute("exr_threads", exrThreads_);
        OIIO::attribute("threads", 1);
        OIIO::attribute("exr_threads", -1);
    }
    ~LibraryThreadsScope() {
        if (!single_) return;
        OIIO::attribute("threads", threads_);
        OIIO::attribute("exr_threads", exrThreads_);
    }
    LibraryThreadsScope(const LibraryThreadsScope&) = delete;
    LibraryThreadsScope& operator=(const LibraryThreadsScope&) = delete;

private:
    bool single_;
    int threads_ = 0;
    int exrThreads_ = 0;
};

// Each frame's painting threads: as asked, or the cores shared among the workers (at least one
// each), so that a sequence of fewer frames than cores still uses them all.
int32_t FrameThreadsPerJob(int32_t asked, size_t jobs) {
    if (asked < 0) throw std::invalid_argument("--threads: " + std::to_string(asked) + " must be at least 0 (0: every core)");
    if (asked > 0) return asked;
    return int32_t(std::max<size_t>(1, std::max(1u, std::thread::hardware_concurrency()) / std::max<size_t>(1, jobs)));
}

void ReportFrame(const RenderReporting& reporting, int32_t frame, int32_t done, int32_t count) {
    if (reporting.frameDone) reporting.frameDone(frame, done, count);
    if (!reporting.progress) return;
    host::ProgressReport report;
    report.position = float(done) / float(count);
    report.heading = "Rendering";
    report.unit = "Frame";
    report.max = count;
    report.value = done;
    reporting.progress(report);
}

}  // namespace

SequenceResult RenderSceneSequence(const RenderRequest& asked, const RenderReporting& reporting) {
    const Scene scene = asked.scene.empty() ? FixedLightScene(asked) : LoadScene(asked.scene);
    const RenderRequest request = WithNamedSource(asked, scene.table);
    FlareSetup setup = RequestSetup(request);
    if (!setup.table.empty()) CheckFlareTable(setup.table);
    SequenceWork work(request, scene);
    work.frames = FrameListWithin(scene, request.frames, "--frames");
    work.output = OutputPattern(request.output, work.frames);
    CheckCompressionFor("--compression", request.compression, work.output.For(work.frames.front()));
    work.size = {scene.width, scene.height};
    if (!scene.input.empty()) {
        work.input = FramePattern::Parse((request.scene.parent_path() / scene.input).string());
        work.size = CheckInputFrames(*work.input, work.frames);
    }
    if (!request.colorspace.empty()) ChooseColorspace("--colorspace", request.colorspace, true);
    if (request.jobs < 1) throw std::invalid_argument("--jobs: " + std::to_string(request.jobs) + " must be at least 1");

    const size_t jobs = std::min(size_t(request.jobs), work.frames.size());
    work.threads = FrameThreadsPerJob(request.threads, jobs);
    work.running = int(jobs);
    const LibraryThreadsScope libraryThreads(jobs > 1);
    std::vector<std::thread> workers;
    for (size_t j = 0; j < jobs; ++j) workers.emplace_back(RunWorker, std::ref(work), std::cref(setup));

    // This thread reports finished frames and passes a cancel on to the workers.
    SequenceResult result;
    const int32_t count = int32_t(work.frames.size());
    {
        std::unique_lock lock(work.mutex);
        while (work.running > 0 || !work.finished.empty()) {
            for (const int32_t frame : std::exchange(work.finished, {})) {
                result.written.push_back(frame);
                lock.unlock();
                ReportFrame(reporting, frame, int32_t(result.written.size()), count);
                lock.lock();
            }
            if (reporting.cancel != nullptr && reporting.cancel->load()) work.stop = true;
            if (work.running > 0) work.changed.wait_for(lock, std::chrono::milliseconds(20));
        }
    }
    for (std::thread& worker : workers) worker.join();
    if (work.failure) std::rethrow_exception(work.failure);
    if (work.stop)
        throw std::runtime_error("interrupted; " + std::to_string(result.written.size()) + " of " +
                                 std::to_string(count) + " frames written");
    return result;
}

}  // namespace vellux::engine
