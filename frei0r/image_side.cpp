#include "frei0r/image_side.h"

#include <dlfcn.h>

#include <mutex>
#include <stdexcept>
#include <string>

namespace vellux::frei0r {

// dlopen by name from this library's code searches this library's own run path, the folders it
// finds the engine in. The library stays loaded for the life of the process, as the engine does.
const ImageSide& TheImageSide() {
    static std::mutex mutex;
    static const ImageSide* side = nullptr;
    const std::lock_guard lock(mutex);
    if (side != nullptr) return *side;
    void* library = dlopen(kImageSideLibrary, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        throw std::runtime_error(std::string(kImageSideLibrary) + ": cannot load the filter's image side: " + dlerror());
    using Entry = const ImageSide* (*)();
    const auto entry = reinterpret_cast<Entry>(dlsym(library, kImageSideEntry));
    if (entry == nullptr) {
        dlclose(library);
        throw std::runtime_error(std::string(kImageSideLibrary) + ": not the filter's image side (no " + kImageSideEntry + ")");
    }
    side = entry();
    return *side;
}

}  // namespace vellux::frei0r
