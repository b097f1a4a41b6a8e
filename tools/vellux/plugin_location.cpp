#include "tools/vellux/plugin_location.h"

#include <stdexcept>
#include <string>

namespace vellux::tool {

std::filesystem::path FindPlugin(const std::filesystem::path& requested, const std::filesystem::path& toolFolder) {
    std::error_code error;
    if (!requested.empty()) {
        if (std::filesystem::is_regular_file(requested, error)) return requested;
        throw std::runtime_error(requested.string() + ": no such plug-in file (--plugin)");
    }
    const std::filesystem::path here = toolFolder / kPluginFileName;
    const std::filesystem::path above = toolFolder.parent_path() / kPluginFileName;
    for (const std::filesystem::path& candidate : {here, above})
        if (std::filesystem::is_regular_file(candidate, error)) return candidate;
    throw std::runtime_error(std::string("no ") + kPluginFileName + " in " + here.parent_path().string() + " or " +
                             above.parent_path().string() + "; give its path with --plugin");
}

std::filesystem::path RunningToolFolder() {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::current_path() : self.parent_path();
}

}  // namespace vellux::tool
