// Scene and settings-file readers: any text either reads or gives errors, never both; what reads
// writes a text that reads back into the same text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "tools/vellux/scene.h"

namespace {

void CheckSettingsFile(std::string_view text) {
    const vellux::tool::SettingsReadResult read = vellux::tool::ReadSettingsText(text);
    if (read.settings.has_value() == !read.errors.empty()) std::abort();
    if (!read.settings) return;
    const std::string written = vellux::tool::WriteSettingsText(*read.settings);
    const vellux::tool::SettingsReadResult again = vellux::tool::ReadSettingsText(written);
    if (!again.settings || vellux::tool::WriteSettingsText(*again.settings) != written) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    CheckSettingsFile(text);
    const vellux::tool::SceneReadResult read = vellux::tool::ReadScene(text);
    if (read.scene.has_value() == !read.errors.empty()) std::abort();
    if (!read.scene) return 0;
    const std::string written = vellux::tool::WriteScene(*read.scene);
    const vellux::tool::SceneReadResult again = vellux::tool::ReadScene(written);
    if (!again.scene || vellux::tool::WriteScene(*again.scene) != written) std::abort();
    for (int32_t frame : {read.scene->firstFrame, read.scene->lastFrame, -1}) (void)vellux::tool::LightAt(*read.scene, frame);
    return 0;
}
