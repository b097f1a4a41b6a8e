#include "frei0r/image_side.h"

#include <dlfcn.h>

#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <string>

#include "engine/plugin_location.h"

namespace vellux::frei0r {

// Looked for in the engine's own folder, by its full path: a name alone would be searched for by
// the run path of whoever calls dlopen, which a sanitizer's interceptor changes. The library stays
// loaded for the life of the process, as the engine does.
const ImageSide& TheImageSide() {
    static std::mutex mutex;
    static const ImageSide* side = nullptr;
    const std::lock_guard lock(mutex);
    if (side != nullptr) return *side;
    const std::filesystem::path folder = engine::EngineFolder();
    const std::string path = folder.empty() ? std::string(kImageSideLibrary) : (folder / kImageSideLibrary).string();
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) throw std::runtime_error(path + ": cannot load the filter's image side: " + dlerror());
    using Entry = const ImageSide* (*)();
    const auto entry = reinterpret_cast<Entry>(dlsym(library, kImageSideEntry));
    if (entry == nullptr) {
        dlclose(library);
        throw std::runtime_error(path + ": not the filter's image side (no " + kImageSideEntry + ")");
    }
    side = entry();
    return *side;
}

}  // namespace vellux::frei0r
