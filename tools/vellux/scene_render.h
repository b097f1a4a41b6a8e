// Rendering a scene (scene.h) frame by frame, as a host renders an animated shot:
//
//   INIT with the scene's settings record as the host's persistent record (the plug-in checks
//   it, and converts one of the other byte order), the settings edits, ICHN over the scene's
//   frames, the scene's channel keys into the published channels; then for each frame LCHN,
//   SETF with the scene's light at that frame, GENF band by band, and the frame written
//   atomically; FCHN, FINI.
//
// Every frame depends only on the scene and its frame number, so any range of frames gives the
// pixels of the same frames of the whole sequence. Before the first frame is painted, the
// output pattern, the range and (for an image sequence) every input frame's size are checked,
// so these mistakes write nothing. A frame that fails later stops the render; the frames
// before it stay written.
#ifndef VELLUX_TOOLS_SCENE_RENDER_H
#define VELLUX_TOOLS_SCENE_RENDER_H

#include <filesystem>
#include <optional>

#include "host/host_session.h"
#include "host/plugin_library.h"
#include "tools/vellux/flare_render.h"
#include "tools/vellux/frame_sequence.h"
#include "tools/vellux/plugin_settings.h"
#include "tools/vellux/render_options.h"
#include "tools/vellux/scene.h"

namespace vellux::tool {

// Reads a scene file; throws std::runtime_error naming the file and every problem in it.
Scene LoadScene(const std::filesystem::path& path);

// The scene's frames, and a requested part of them checked to lie within (std::invalid_argument
// naming `option` otherwise).
FrameRange SceneFrames(const Scene& scene);
FrameRange FramesWithin(const Scene& scene, const std::optional<FrameRange>& requested, const char* option);

// The scene's light at a frame of this size, in pixels, its colour rounded to whole numbers.
FlareLight SceneLightAt(const Scene& scene, int32_t frame, int32_t width, int32_t height);

// The plug-in set up for a scene: loaded, INIT with the scene's settings, the edits, ICHN over the
// scene's frames and the scene's channel keys in the host's store. Throws PluginError for a
// plug-in's refusal, and std::runtime_error when a channel of the scene was not published.
class SceneSession {
public:
    SceneSession(const std::filesystem::path& pluginPath, const std::filesystem::path& scenePath, const Scene& scene,
                 const SettingEdits& edits);

    host::HostSession& host() { return host_; }
    PluginInstance& instance() { return *instance_; }
    void Finish();   // FCHN, FINI

private:
    host::PluginLibrary plugin_;
    host::HostSession host_;
    std::optional<PluginInstance> instance_;
};

// `vellux render --scene`: the request's scene over its --frames, written to the output pattern.
void RenderSceneSequence(const RenderRequest& request);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_SCENE_RENDER_H
