// The "info" command: what the plug-in says about itself.
//
//   vellux info [--plugin PATH]
//
// INFO (name, type and version, rights, author lines, description) and CHEK for each of the
// twelve commands a host may send. Neither needs INIT. The plug-in's texts are Mac OS Roman:
// its trade-mark byte (0xAA) is shown as ™, copyright (0xA9) as ©, registered (0xA8) as ®, any
// other byte above 127 as '?'.
#ifndef VELLUX_TOOLS_INFO_COMMAND_H
#define VELLUX_TOOLS_INFO_COMMAND_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "engine/plugin_about.h"
#include "host/plugin_library.h"
#include "tools/vellux/command.h"

namespace vellux::tool {

void AddInfoCommand(CLI::App& app, Action& action);

std::string AboutText(const PluginAbout& about);

// What --version prints: the tool's version, and the plug-in's name, version and file (or why it
// could not be loaded).
std::string VersionText();


}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_INFO_COMMAND_H
