// Rendering one frame from files to a file, as `vellux render -i ... -o ...` does: the plug-in
// found and loaded (a private copy), the table and settings applied, the light placed (and dimmed
// by an occlusion mask), the frame painted or the pass rendered, and the result written under a
// temporary name and renamed into place only when everything succeeded.
#ifndef VELLUX_ENGINE_FRAME_RENDER_H
#define VELLUX_ENGINE_FRAME_RENDER_H

#include <filesystem>
#include <string>

#include <OpenImageIO/imagebuf.h>

#include "engine/flare.h"
#include "engine/plate.h"
#include "engine/render_request.h"
#include "engine/scene.h"

namespace vellux::engine {

// The request's light on a frame of this size, in pixels, dimmed by its occlusion mask if any.
FlareLight RequestLight(const RenderRequest& request, FrameSize size);

// The flare setup a request asks for: its plug-in (found as plugin_location.h says), table and
// settings edits.
FlareSetup RequestSetup(const RenderRequest& request);

// The request with the table or lens its look file (--settings) or scene names, when it names
// neither itself; the command line's own win.
RenderRequest WithNamedSource(RenderRequest request, const std::string& sceneTable = "");

// What a look written from this request names: its table when given by name, or its lens.
LookSource RequestLookSource(const RenderRequest& request);

// A frame rendered as the request asks, ready to write: the pass of `size`, or the plate (the
// file `plateFile` kept whole, or a black frame of `size` when it is empty) with the flare, both
// carrying the program and the flare's settings and light in their attributes. Throws naming the
// plate when its frame is not of `size`.
PlateFile RenderRequestedFrame(Flare& flare, const RenderRequest& request, const std::string& plateFile, FrameSize size,
                               const FlareLight& light, const std::filesystem::path& target);

// One frame; throws std::runtime_error (or PluginError) with the message to show, naming the file
// or value, and then has written nothing.
void RenderFlareImage(const RenderRequest& request, const RenderReporting& reporting = {});

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_FRAME_RENDER_H
