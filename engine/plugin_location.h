// Where a front end finds the plug-in and the flare tables.
//
// The plug-in: the path given (it must exist), else Vellux.so in the running program's folder or
// the folder above it (the build puts the tool in build/<preset>/tools and the plug-in in
// build/<preset>), else beside this engine library or the folder above it (a front end loaded
// into another program: a video host's filter, a Python module).
#ifndef VELLUX_ENGINE_PLUGIN_LOCATION_H
#define VELLUX_ENGINE_PLUGIN_LOCATION_H

#include <filesystem>
#include <vector>

namespace vellux::engine {

inline constexpr const char* kPluginFileName = "Vellux.so";

// Throws naming every place looked in when there is no plug-in.
std::filesystem::path FindPlugin(const std::filesystem::path& requested);

std::filesystem::path RunningToolFolder();   // from /proc/self/exe
std::filesystem::path EngineFolder();        // the folder of this engine library

// The folders searched for the plug-in, in order.
std::vector<std::filesystem::path> PluginFolders();

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_PLUGIN_LOCATION_H
