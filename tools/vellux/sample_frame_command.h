// The "sample-frame" command: the quick start's dusk landscape (engine/sample_frame.h), or the
// sample shot's frames (engine/sample_shot.h).
//
//   vellux sample-frame -o FILE [--size WxH] [--seed N]
//   vellux sample-frame -o PATTERN --frames LIST [--size WxH] [--seed N]
#ifndef VELLUX_TOOLS_SAMPLE_FRAME_COMMAND_H
#define VELLUX_TOOLS_SAMPLE_FRAME_COMMAND_H

#include <CLI/CLI.hpp>

#include "tools/vellux/command.h"

namespace vellux::tool {

void AddSampleFrameCommand(CLI::App& app, Action& action);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_SAMPLE_FRAME_COMMAND_H
