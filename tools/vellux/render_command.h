// The "render" command: one frame through the plug-in, as a host renders it, or a scene's frames.
//
//   vellux render -i IMAGE -o OUTPUT [options]     the flare onto an image
//   vellux render --size WxH -o OUTPUT [options]   the flare onto a black frame (16-bit)
//   vellux render --scene S.json [--frames LIST] [--jobs N] -o OUT.####.exr [options]   a sequence
//
// The options are declared in render_options.h; the work is the engine's (frame_render.h,
// scene_render.h), run from the tool's image module (image_actions.h). This command adds the
// terminal: the progress bar, a line per finished frame, and Ctrl-C, which stops the render at the
// plug-in's next progress report and writes nothing more.
#ifndef VELLUX_TOOLS_RENDER_COMMAND_H
#define VELLUX_TOOLS_RENDER_COMMAND_H

#include <CLI/CLI.hpp>

#include "tools/vellux/command.h"
#include "tools/vellux/render_options.h"

namespace vellux::tool {

void AddRenderCommand(CLI::App& app, Action& action);

// The work of the command, in the image module; throws std::runtime_error (or PluginError) with
// the message to show.
void RunRender(const RenderRequest& request, bool quiet);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_RENDER_COMMAND_H
