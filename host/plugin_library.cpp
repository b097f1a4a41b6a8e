#include "host/plugin_library.h"

#include <dlfcn.h>

namespace vellux::host {

PluginLibrary::PluginLibrary(const std::string& path) : path_(path) {
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) throw std::runtime_error(path + ": cannot load the plug-in: " + dlerror());
    main_ = reinterpret_cast<int32_t (*)(IFFType, int32_t, void*)>(dlsym(handle_, "Main"));
    if (main_ == nullptr) {
        dlclose(handle_);
        throw std::runtime_error(path + ": not a plug-in (it exports no Main)");
    }
}

PluginLibrary::~PluginLibrary() { dlclose(handle_); }

std::string CodeText(IFFType code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const char c = char((code >> shift) & 0xFF);
        text += (c >= 32 && c < 127) ? c : '?';
    }
    return text;
}

}  // namespace vellux::host
