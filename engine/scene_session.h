// A scene file read, its frames, and a flare instance set up for it: what rendering a scene
// (scene_render.h), keying it (scene_keys.h) and its settings dialog (dialog_session.h) share.
// In the core library: none of it loads the image library.
#ifndef VELLUX_ENGINE_SCENE_SESSION_H
#define VELLUX_ENGINE_SCENE_SESSION_H

#include <filesystem>
#include <optional>
#include <vector>

#include "engine/flare.h"
#include "engine/frame_sequence.h"
#include "engine/scene.h"

namespace vellux::engine {

// Reads a scene file; throws std::runtime_error naming the file and every problem in it.
Scene LoadScene(const std::filesystem::path& path);

// The scene's frames, and requested ones checked to lie within (std::invalid_argument naming
// `option` otherwise); none requested: all of them.
FrameRange SceneFrames(const Scene& scene);
FrameRange FramesWithin(const Scene& scene, const std::optional<FrameRange>& requested, const char* option);
std::vector<int32_t> FrameListWithin(const Scene& scene, const std::vector<int32_t>& requested, const char* option);

// A flare instance set up for a scene: the scene's settings, the edits, ICHN over the scene's
// frames and the scene's channel keys in the host's store. Throws PluginError for a plug-in's
// refusal, and std::runtime_error when a channel of the scene was not published.
class SceneSession {
public:
    SceneSession(FlareSetup setup, const std::filesystem::path& scenePath, const Scene& scene);

    Flare& flare() { return flare_; }
    host::HostSession& host() { return flare_.host(); }
    PluginInstance& instance() { return flare_.instance(); }
    void Finish();   // FCHN, FINI

private:
    static FlareSetup WithSceneSettings(FlareSetup setup, const Scene& scene);
    Flare flare_;
};

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_SCENE_SESSION_H
