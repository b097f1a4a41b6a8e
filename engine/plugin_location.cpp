#include "engine/plugin_location.h"

#include <cstdlib>

#include <dlfcn.h>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace vellux::engine {

namespace fs = std::filesystem;

std::vector<fs::path> PluginFolders() {
    std::vector<fs::path> folders;
    const auto add = [&folders](const fs::path& folder) {
        if (!folder.empty() && std::find(folders.begin(), folders.end(), folder) == folders.end()) folders.push_back(folder);
    };
    for (const fs::path& base : {RunningToolFolder(), EngineFolder()}) {
        add(base);                                  // beside it
        add(base.parent_path());                    // the build: tools/.. holds the plug-in
        add(base.parent_path() / "lib" / "vellux"); // an installed tree: bin/../lib/vellux
        add(base / "vellux");                       // the same from lib/
    }
    return folders;
}

fs::path FindPlugin(const fs::path& requested) {
    std::error_code error;
    if (!requested.empty()) {
        if (fs::is_regular_file(requested, error)) return requested;
        throw std::runtime_error(requested.string() + ": no such plug-in file (--plugin)");
    }
    std::string places;
    for (const fs::path& folder : PluginFolders()) {
        const fs::path candidate = folder / kPluginFileName;
        if (fs::is_regular_file(candidate, error)) return candidate;
        places += (places.empty() ? "" : ", ") + folder.string();
    }
    throw std::runtime_error(std::string("no ") + kPluginFileName + " in " + places + "; give its path with --plugin");
}

fs::path RunningToolFolder() {
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    return error ? fs::current_path() : self.parent_path();
}

fs::path EngineFolder() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&EngineFolder), &info) == 0 || info.dli_fname == nullptr) return {};
    std::error_code error;
    const fs::path library = fs::canonical(info.dli_fname, error);
    return error ? fs::path(info.dli_fname).parent_path() : library.parent_path();
}

std::vector<std::filesystem::path> FoldersIn(const char* variable) {
    std::vector<std::filesystem::path> folders;
    const char* value = std::getenv(variable);
    if (value == nullptr) return folders;
    const std::string text = value;
    for (size_t start = 0; start <= text.size();) {
        const size_t colon = std::min(text.find(':', start), text.size());
        folders.emplace_back(text.substr(start, colon - start));
        start = colon + 1;
    }
    return folders;
}

std::vector<std::filesystem::path> FilesIn(const std::filesystem::path& folder, const std::string& extension) {
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        if (it->path().extension() == extension && it->is_regular_file(error)) files.push_back(it->path());
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace vellux::engine
