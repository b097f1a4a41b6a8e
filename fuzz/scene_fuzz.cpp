// Scene and settings-file readers: any text either reads or gives errors, never both; what reads
// writes a text that reads back into the same text. Frame lists: any text either throws
// std::invalid_argument or gives frames within bounds, none twice.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <set>
#include <stdexcept>
#include <string_view>

#include "engine/frame_list.h"
#include "engine/frame_sequence.h"
#include "engine/scene.h"

namespace {

void CheckSettingsFile(std::string_view text) {
    const vellux::engine::SettingsReadResult read = vellux::engine::ReadSettingsText(text);
    if (read.settings.has_value() == !read.errors.empty()) std::abort();
    if (!read.settings) return;
    const std::string written = vellux::engine::WriteSettingsText(*read.settings);
    const vellux::engine::SettingsReadResult again = vellux::engine::ReadSettingsText(written);
    if (!again.settings || vellux::engine::WriteSettingsText(*again.settings) != written) std::abort();
}

void CheckFrameList(std::string_view text) {
    if (text.size() > 64) return;   // a frame list is a short line
    std::vector<int32_t> frames;
    try {
        frames = vellux::engine::ParseFrameList("--frames", std::string(text));
    } catch (const std::invalid_argument&) {
        return;
    }
    const std::set<int32_t> distinct(frames.begin(), frames.end());
    if (frames.empty() || distinct.size() != frames.size() || *distinct.begin() < 0 ||
        *distinct.rbegin() > vellux::engine::kMaxFrameNumber)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    CheckSettingsFile(text);
    CheckFrameList(text);
    const vellux::engine::SceneReadResult read = vellux::engine::ReadScene(text);
    if (read.scene.has_value() == !read.errors.empty()) std::abort();
    if (!read.scene) return 0;
    const std::string written = vellux::engine::WriteScene(*read.scene);
    const vellux::engine::SceneReadResult again = vellux::engine::ReadScene(written);
    if (!again.scene || vellux::engine::WriteScene(*again.scene) != written) std::abort();
    for (int32_t frame : {read.scene->firstFrame, read.scene->lastFrame, -1}) (void)vellux::engine::LightAt(*read.scene, frame);
    return 0;
}
