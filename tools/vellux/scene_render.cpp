#include "tools/vellux/scene_render.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/progress_bar.h"
#include "tools/vellux/flare_pass.h"
#include "tools/vellux/frame_image.h"
#include "tools/vellux/interrupt_guard.h"
#include "tools/vellux/occlusion.h"
#include "tools/vellux/plugin_location.h"
#include "tools/vellux/render_command.h"

namespace vellux::tool {

namespace {

namespace fs = std::filesystem;

std::string SizeText(FrameSize size) { return std::to_string(size.width) + "x" + std::to_string(size.height); }

// The output pattern, checked: a frame field wherever more than one frame is written.
FramePattern OutputPattern(const fs::path& output, const FrameRange& frames) {
    FramePattern pattern;
    try {
        pattern = FramePattern::Parse(output.string());
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(std::string("-o: ") + error.what());
    }
    if (!pattern.HasField() && frames.Count() > 1)
        throw std::invalid_argument("-o: '" + output.string() + "' has no frame number field (####, %04d or %d) for " +
                                    std::to_string(frames.Count()) + " frames");
    CheckOutputFormat(pattern.For(frames.first));
    return pattern;
}

// An image sequence's pattern, relative to the scene file's folder, with every frame of the range
// the size of the first; returns that size.
FrameSize CheckInputFrames(const FramePattern& input, const FrameRange& frames) {
    FrameSize first{};
    for (int32_t frame = frames.first; frame <= frames.last; ++frame) {
        const std::string file = input.For(frame);
        FrameSize size;
        try {
            size = ReadImageSize(file);
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(std::string(error.what()) + " (frame " + std::to_string(frame) + ")");
        }
        if (frame == frames.first) first = size;
        else if (size.width != first.width || size.height != first.height)
            throw std::runtime_error(file + ": frame " + std::to_string(frame) + " is " + SizeText(size) + ", frame " +
                                     std::to_string(frames.first) + " is " + SizeText(first) +
                                     "; every frame of a sequence must have one size");
    }
    return first;
}

}  // namespace

Scene LoadScene(const fs::path& path) {
    SceneReadResult read = ReadSceneFile(path);
    if (read.scene) return std::move(*read.scene);
    std::string message = path.string() + ": ";
    for (size_t i = 0; i < read.errors.size(); ++i) message += (i > 0 ? "; " : "") + read.errors[i].Text();
    throw std::runtime_error(message);
}

FrameRange SceneFrames(const Scene& scene) { return {scene.firstFrame, scene.lastFrame}; }

FrameRange FramesWithin(const Scene& scene, const std::optional<FrameRange>& requested, const char* option) {
    const FrameRange all = SceneFrames(scene);
    if (!requested) return all;
    if (!all.Contains(*requested))
        throw std::invalid_argument(std::string(option) + ": " + RangeText(*requested) + " is outside the scene's frames " +
                                    RangeText(all));
    return *requested;
}

// The mask of a frame: a pattern with a frame field names one mask per frame, else one for all.
std::string MaskFor(const fs::path& mask, int32_t frame) {
    const FramePattern pattern = FramePattern::Parse(mask.string());
    return pattern.HasField() ? pattern.For(frame) : mask.string();
}

// A frame as a flare pass, or a float plate with the pass added in float.
void RenderPassFrame(PluginInstance& instance, const RenderRequest& request, const FlareLight& light, FrameSize size,
                     const std::string& plateFile, const std::string& target) {
    const OIIO::ImageBuf pass = RenderFlarePass(instance, light, size, request.bandRows);
    if (plateFile.empty()) return WriteFlarePass(pass, target, request.halfFloat);
    const OIIO::ImageBuf plate = ReadFloatPlate(plateFile);
    WriteImageFile(CompositeFlarePass(plate, pass), target, plate.nativespec().format);
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

SceneSession::SceneSession(const fs::path& pluginPath, const fs::path& scenePath, const Scene& scene,
                           const SettingEdits& edits)
    : plugin_(pluginPath.string()) {
    if (scene.settings) host_.SetControlData(scene.settings->bytes);
    instance_.emplace(plugin_, host_);
    instance_->EditSettings(edits);
    instance_->InitializeChannels(scene.firstFrame, scene.lastFrame);
    const std::vector<std::string> missing = KeyChannels(scene, host_.Channels());
    if (!missing.empty())
        throw std::runtime_error(scenePath.string() + ": channels." + missing.front() +
                                 ": the plug-in did not publish this channel (a flare without elements publishes none)");
}

void SceneSession::Finish() {
    instance_->FinishChannels();
    instance_->Finish();
}

void RenderSceneSequence(const RenderRequest& request) {
    const fs::path pluginPath = FindPlugin(request.plugin, RunningToolFolder());
    if (!request.table.empty()) UseFlareTable(request.table);
    const Scene scene = LoadScene(request.scene);
    const FrameRange all = SceneFrames(scene);
    const FrameRange frames = FramesWithin(scene, request.frames, "--frames");
    const FramePattern output = OutputPattern(request.output, frames);
    std::optional<FramePattern> input;
    FrameSize size{scene.width, scene.height};
    if (!scene.input.empty()) {
        input = FramePattern::Parse((request.scene.parent_path() / scene.input).string());
        size = CheckInputFrames(*input, frames);
    }

    const InterruptGuard interrupt;
    SceneSession session(pluginPath, request.scene, scene, request.settings);
    host::ProgressBar bar(std::cerr, !request.quiet && host::StderrIsTerminal());
    session.host().SetProgressSink(bar.Sink());
    session.host().SetInterruptFlag(&InterruptGuard::Flag());
    for (int32_t frame = frames.first; frame <= frames.last; ++frame) {
        const std::string target = output.For(frame);
        if (!request.quiet)
            std::cerr << "frame " << frame << " (" << frame - frames.first + 1 << " of " << frames.Count() << ")\n";
        const bool floatPlate = input && !request.passMode && IsFloatImage(input->For(frame));
        FlareLight light = SceneLightAt(scene, frame, size.width, size.height);
        if (!request.occlusion.empty())
            light = OccludedLight(light, OcclusionMask::Read(MaskFor(request.occlusion, frame), size));
        try {
            session.instance().LoadChannels(all.first, all.last, frame);
            if (request.passMode || floatPlate) {
                RenderPassFrame(session.instance(), request, light, size, floatPlate ? input->For(frame) : "", target);
                bar.Finish();
                continue;
            }
            FrameImage image = input ? FrameImage::Read(input->For(frame)) : FrameImage::Black(size);
            if (image.width() != size.width || image.height() != size.height)   // changed since the check
                throw std::runtime_error(input->For(frame) + ": frame " + std::to_string(frame) + " is no longer " +
                                         SizeText(size));
            PaintFrame(session.instance(), image, light, request.bandRows);
            bar.Finish();
            WriteRenderedImage(image, target);
        } catch (const PluginError& error) {
            throw PluginError(std::string(error.what()) + "; frame " + std::to_string(frame) + " (" + target +
                                  ") not written",
                              error.code);
        }
    }
    session.Finish();
}

}  // namespace vellux::tool
