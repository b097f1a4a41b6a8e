// Reading a scene, its frames, and a flare instance set up for it. See scene_session.h.
#include "engine/scene_session.h"

#include <stdexcept>
#include <string>

namespace vellux::engine {

namespace fs = std::filesystem;

Scene LoadScene(const fs::path& path) {
    SceneReadResult read = ReadSceneFile(path);
    if (read.scene) return std::move(*read.scene);
    std::string message = path.string() + ": ";
    for (size_t i = 0; i < read.errors.size(); ++i) message += (i > 0 ? "; " : "") + read.errors[i].Text();
    throw std::runtime_error(message);
}

FrameRange SceneFrames(const Scene& scene) { return {scene.firstFrame, scene.lastFrame}; }

std::vector<int32_t> FrameListWithin(const Scene& scene, const std::vector<int32_t>& requested, const char* option) {
    const FrameRange all = SceneFrames(scene);
    if (requested.empty()) return FramesOf(all);
    for (const int32_t frame : requested)
        if (!all.Contains({frame, frame}))
            throw std::invalid_argument(std::string(option) + ": frame " + std::to_string(frame) +
                                        " is outside the scene's frames " + RangeText(all));
    return requested;
}

FrameRange FramesWithin(const Scene& scene, const std::optional<FrameRange>& requested, const char* option) {
    const FrameRange all = SceneFrames(scene);
    if (!requested) return all;
    if (!all.Contains(*requested))
        throw std::invalid_argument(std::string(option) + ": " + RangeText(*requested) + " is outside the scene's frames " +
                                    RangeText(all));
    return *requested;
}

FlareSetup SceneSession::WithSceneSettings(FlareSetup setup, const Scene& scene) {
    if (scene.settings && !setup.settings) setup.settings = scene.settings;   // a settings file asked for wins
    return setup;
}

SceneSession::SceneSession(FlareSetup setup, const fs::path& scenePath, const Scene& scene)
    : flare_(WithSceneSettings(std::move(setup), scene)) {
    instance().InitializeChannels(scene.firstFrame, scene.lastFrame);
    const std::vector<std::string> missing = KeyChannels(scene, host().Channels());
    if (!missing.empty())
        throw std::runtime_error(scenePath.string() + ": channels." + missing.front() +
                                 ": the plug-in did not publish this channel (a flare without elements publishes none)");
}

void SceneSession::Finish() {
    instance().FinishChannels();
    flare_.Finish();
}

}  // namespace vellux::engine
