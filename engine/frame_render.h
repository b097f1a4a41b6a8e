// Rendering one frame from files to a file, as `vellux render -i ... -o ...` does: the plug-in
// found and loaded (a private copy), the table and settings applied, the light placed (and dimmed
// by an occlusion mask), the frame painted or the pass rendered, and the result written under a
// temporary name and renamed into place only when everything succeeded.
#ifndef VELLUX_ENGINE_FRAME_RENDER_H
#define VELLUX_ENGINE_FRAME_RENDER_H

#include <filesystem>

#include <OpenImageIO/imagebuf.h>

#include "engine/flare.h"
#include "engine/render_request.h"

namespace vellux::engine {

// The request's light on a frame of this size, in pixels, dimmed by its occlusion mask if any.
FlareLight RequestLight(const RenderRequest& request, FrameSize size);

// The flare setup a request asks for: its plug-in (found as plugin_location.h says), table and
// settings edits.
FlareSetup RequestSetup(const RenderRequest& request);

// One frame; throws std::runtime_error (or PluginError) with the message to show, naming the file
// or value, and then has written nothing.
void RenderFlareImage(const RenderRequest& request, const RenderReporting& reporting = {});

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_FRAME_RENDER_H
