// Loading the tool's image module. See image_actions.h.
#include "tools/vellux/image_actions.h"

#include <dlfcn.h>

#include <mutex>
#include <stdexcept>
#include <string>

#include "engine/plugin_location.h"

namespace vellux::tool {

namespace fs = std::filesystem;

std::vector<fs::path> ImageActionsCandidates() {
    const fs::path folder = engine::RunningToolFolder();
    return {folder / kImageActionsModule, folder.parent_path() / "lib" / kImageActionsModule};
}

namespace {

const ImageActions* Load() {
    std::string reasons;
    for (const fs::path& candidate : ImageActionsCandidates()) {
        std::error_code error;
        if (!fs::exists(candidate, error)) {
            reasons += "\n  " + candidate.string() + ": not found";
            continue;
        }
        // Kept loaded: the engine it brings holds the plug-in copies of the running command.
        void* module = dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
        const char* problem = module == nullptr ? dlerror() : nullptr;
        if (module != nullptr) {
            const auto entry = reinterpret_cast<ImageActionsEntry>(dlsym(module, kImageActionsEntry));
            if (entry != nullptr) return entry();
            problem = "it has no entry point";
        }
        reasons += "\n  " + candidate.string() + ": " + problem;
    }
    throw std::runtime_error(std::string("this command needs the tool's image module, ") + kImageActionsModule +
                             ", which did not load:" + reasons);
}

}  // namespace

const ImageActions& LoadImageActions() {
    static std::once_flag once;
    static const ImageActions* actions = nullptr;
    std::call_once(once, [] { actions = Load(); });
    return *actions;
}

}  // namespace vellux::tool
