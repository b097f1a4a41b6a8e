// Rendering a scene (scene.h) frame by frame, as a host renders an animated shot:
//
//   INIT with the scene's settings record as the host's persistent record (the plug-in checks
//   it, and converts one of the other byte order), the settings edits, ICHN over the scene's
//   frames, the scene's channel keys into the published channels; then for each frame LCHN,
//   SETF with the scene's light at that frame, GENF band by band, and the frame written
//   atomically; FCHN, FINI.
//
// Every frame depends only on the scene and its frame number, so any list of frames gives the
// pixels of the same frames of the whole sequence, in any order and on any worker. Before the
// first frame is painted, the output pattern, the frames and (for an image sequence) every input
// frame's size are checked, so these mistakes write nothing.
//
// Workers: `jobs` threads, each with its own flare instance (a private copy of the plug-in, whose
// process statics serve one caller at a time), take the next frame from one shared list and hold
// one frame at a time. A frame that fails, or a cancel, stops every worker at the plug-in's next
// progress report; the frames already written stay, and no partial file is left.
#ifndef VELLUX_ENGINE_SCENE_RENDER_H
#define VELLUX_ENGINE_SCENE_RENDER_H

#include <filesystem>
#include <optional>
#include <vector>

#include "engine/flare.h"
#include "engine/frame_sequence.h"
#include "engine/render_request.h"
#include "engine/scene.h"
#include "engine/scene_session.h"

namespace vellux::engine {

// Whether the request renders a sequence: it names a scene, frames, or an input frame pattern
// (a name with a frame field that is not itself a file).
bool IsSequence(const RenderRequest& request);

// A plate sequence without a scene file: the request's input pattern over its frames (the ones
// asked for, else every frame found on disk) under a light that does not move.
Scene FixedLightScene(const RenderRequest& request);

// The scene's light at a frame of this size, in pixels, its colour rounded to whole numbers.
FlareLight SceneLightAt(const Scene& scene, int32_t frame, int32_t width, int32_t height);

// The frames written, in the order they finished.
struct SequenceResult {
    std::vector<int32_t> written;
};

// The request's scene (or, without one, its input sequence under a fixed light) over its frames, written to its output pattern by request.jobs workers
// (at least 1). Throws after every worker has stopped: the failing frame's message (naming the
// frame and its file), or "interrupted" after a cancel.
SequenceResult RenderSceneSequence(const RenderRequest& request, const RenderReporting& reporting = {});

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_SCENE_RENDER_H
