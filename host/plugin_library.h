// Loading a plug-in library and calling its entry, as a host does.
#ifndef VELLUX_HOST_PLUGIN_LIBRARY_H
#define VELLUX_HOST_PLUGIN_LIBRARY_H

#include <stdexcept>
#include <string>

#include "vellux/plugin_records.h"

namespace vellux::host {

// A loaded plug-in: dlopen on construction, dlclose on destruction. Throws std::runtime_error
// naming the file when it cannot be loaded or exports no Main.
class PluginLibrary {
public:
    explicit PluginLibrary(const std::string& path);
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    const std::string& path() const { return path_; }
    int32_t Call(IFFType command, int32_t size, void* block) const { return main_(command, size, block); }

private:
    std::string path_;
    void* handle_ = nullptr;
    int32_t (*main_)(IFFType, int32_t, void*) = nullptr;
};

// A four-character code as text ("INIT").
std::string CodeText(IFFType code);

}  // namespace vellux::host

#endif  // VELLUX_HOST_PLUGIN_LIBRARY_H
