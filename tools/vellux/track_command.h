// The "track" command: lights found in an image sequence and followed through it, written as
// scenes for `vellux render --scene` (engine/footage_tracking.h).
//
//   vellux track -i plate.####.exr -o lights.json [--frames LIST] [--lights N] [--at X,Y[@FRAME]]
//                [--threshold T] [--smooth S] [--colorspace NAME] [-q]
#ifndef VELLUX_TOOLS_TRACK_COMMAND_H
#define VELLUX_TOOLS_TRACK_COMMAND_H

#include <string>

#include <CLI/CLI.hpp>

#include "engine/footage_tracking.h"
#include "tools/vellux/command.h"

namespace vellux::tool {

void AddTrackCommand(CLI::App& app, Action& action);

// "X,Y" or "X,Y@FRAME"; throws std::invalid_argument naming --at.
TrackPoint ParseTrackPoint(const std::string& text);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_TRACK_COMMAND_H
