// Loading a plug-in library and calling its entry, as a host does.
#ifndef VELLUX_HOST_PLUGIN_LIBRARY_H
#define VELLUX_HOST_PLUGIN_LIBRARY_H

#include <stdexcept>
#include <string>

#include "vellux/plugin_records.h"

namespace vellux::host {

// How a plug-in is loaded.
//   shared    the file itself: every PluginLibrary of one path in a process is the same loaded
//             copy, with one set of the plug-in's process statics
//   private_  a copy of its bytes in an anonymous memory file, loaded as a library of its own: its
//             statics are its own, so one private copy per thread lets threads render at once
//             (the plug-in serves one caller at a time by design)
enum class PluginCopy { shared, private_ };

// A loaded plug-in: dlopen on construction, dlclose on destruction. Throws std::runtime_error
// naming the file when it cannot be loaded or exports no Main.
//
// The plug-in finds the host's services by name in the process's global scope. When this library
// was itself loaded into a local scope (a program that loads its plug-ins with RTLD_LOCAL, as
// video hosts and Python do), its services are not there: loading a plug-in first promotes the
// host library into the global scope, so the plug-in finds them however the host was loaded.
class PluginLibrary {
public:
    explicit PluginLibrary(const std::string& path, PluginCopy copy = PluginCopy::shared);
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    const std::string& path() const { return path_; }
    int32_t Call(IFFType command, int32_t size, void* block) const { return main_(command, size, block); }

private:
    std::string path_;
    void* handle_ = nullptr;
    // A private copy's memory file stays open while the copy is loaded: the loader knows a library
    // by its path too, and another copy must never be given the same /proc/self/fd path.
    int copyFile_ = -1;
    int32_t (*main_)(IFFType, int32_t, void*) = nullptr;
};

// Puts this host library's exported services into the global scope (once per process); throws
// std::runtime_error when the loader refuses.
void MakeHostServicesGlobal();

// A four-character code as text ("INIT").
std::string CodeText(IFFType code);

}  // namespace vellux::host

#endif  // VELLUX_HOST_PLUGIN_LIBRARY_H
