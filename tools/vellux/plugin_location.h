// Where `vellux render` finds the plug-in: the --plugin path when given (it must exist), else
// Vellux.so in the tool's own folder, else in the folder above it (the build puts the tool in
// build/<preset>/tools and the plug-in in build/<preset>).
#ifndef VELLUX_TOOLS_PLUGIN_LOCATION_H
#define VELLUX_TOOLS_PLUGIN_LOCATION_H

#include <filesystem>

namespace vellux::tool {

inline constexpr const char* kPluginFileName = "Vellux.so";

// Throws naming every place looked in when there is no plug-in.
std::filesystem::path FindPlugin(const std::filesystem::path& requested, const std::filesystem::path& toolFolder);

std::filesystem::path RunningToolFolder();   // from /proc/self/exe

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_PLUGIN_LOCATION_H
