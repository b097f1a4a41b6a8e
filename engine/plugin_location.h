// Where a front end finds the plug-in and the flare tables.
//
// The plug-in: the path given (it must exist), else Vellux.so found from the running program's
// folder, then from this engine library's (a front end loaded into another program: a video
// host's filter, a Python module): beside it, in the folder above it (the build puts the tool in
// build/<preset>/tools and the plug-in in build/<preset>), or in lib/vellux of an installed tree
// (bin/vellux, lib/libvellux_engine.so, lib/vellux/Vellux.so).
#ifndef VELLUX_ENGINE_PLUGIN_LOCATION_H
#define VELLUX_ENGINE_PLUGIN_LOCATION_H

#include <filesystem>
#include <string>
#include <vector>

namespace vellux::engine {

inline constexpr const char* kPluginFileName = "Vellux.so";

// Throws naming every place looked in when there is no plug-in.
std::filesystem::path FindPlugin(const std::filesystem::path& requested);

std::filesystem::path RunningToolFolder();   // from /proc/self/exe
std::filesystem::path EngineFolder();        // the folder of this engine library

// The folders a colon-separated list in the environment variable names, in order; none when it is
// not set (VELLUX_TABLE_PATH, VELLUX_LENS_PATH).
std::vector<std::filesystem::path> FoldersIn(const char* variable);

// The regular files of `folder` whose names end in `extension` (".rsc"), sorted; none when the
// folder cannot be read.
std::vector<std::filesystem::path> FilesIn(const std::filesystem::path& folder, const std::string& extension);

// The folders searched for the plug-in, in order.
std::vector<std::filesystem::path> PluginFolders();

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_PLUGIN_LOCATION_H
