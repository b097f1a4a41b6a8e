// The "render" command: one frame through the plug-in, as a host renders it, or a scene's frames.
//
//   vellux render -i IMAGE -o OUTPUT [options]     the flare onto an image
//   vellux render --size WxH -o OUTPUT [options]   the flare onto a black frame (16-bit)
//   vellux render --scene S.json [--frames A-B] -o OUT.####.exr [options]   a sequence (scene_render.h)
//
// The options are declared in render_options.h; the image paths in frame_image.h; the plug-in
// is found as plugin_location.h says and driven as flare_render.h says. The output is written
// under a temporary name and renamed into place only when everything succeeded; Ctrl-C stops
// the render at the plug-in's next progress report and writes nothing.
#ifndef VELLUX_TOOLS_RENDER_COMMAND_H
#define VELLUX_TOOLS_RENDER_COMMAND_H

#include <CLI/CLI.hpp>

#include "tools/vellux/command.h"
#include "tools/vellux/flare_render.h"
#include "tools/vellux/frame_image.h"
#include "tools/vellux/render_options.h"

namespace vellux::tool {

void AddRenderCommand(CLI::App& app, Action& action);

// The work of the command; throws std::runtime_error (or PluginError) with the message to show.
void RenderFlareImage(const RenderRequest& request);

// ---- Shared by the single frame and the sequence ----

// Serves `table` to the plug-in as its Vellux.rsc; throws naming the file unless it is a flare table.
void UseFlareTable(const std::filesystem::path& table);

// One frame: the image into the plug-in's pixels, SETF and GENF band by band, and back.
void PaintFrame(PluginInstance& instance, FrameImage& image, const FlareLight& light, int32_t bandRows);

// Writes under a temporary name and renames it over `output`; throws naming `output`, and
// writes nothing once Ctrl-C was pressed.
void WriteRenderedImage(const FrameImage& image, const std::filesystem::path& output);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_RENDER_COMMAND_H
