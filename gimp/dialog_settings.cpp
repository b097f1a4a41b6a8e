#include "gimp/dialog_settings.h"

#include "engine/scene.h"
#include "engine/setting_assignments.h"
#include "engine/setting_names.h"
#include "engine/settings_record.h"

namespace vellux::gimp {

ControlDataRec BaseSettings(const std::filesystem::path& settingsFile) {
    if (!settingsFile.empty()) return engine::DecodeSettings(engine::LoadSettingsFile(settingsFile));
    return engine::DecodeSettings({engine::NativeByteOrder(), engine::DefaultSettingsRecord()});
}

engine::SettingEdits FullSettings(const ControlDataRec& base, const std::string& text) {
    engine::SettingEdits full = engine::ParseSettingAssignments(text);
    for (const engine::SettingName& setting : engine::SettingNames()) {
        if (engine::EditOf(setting, full)) continue;
        if (const auto value = engine::RecordValue(setting, base)) engine::SetEdit(setting, *value, full);
    }
    return full;
}

std::string ChangedSettingsText(const ControlDataRec& base, const engine::SettingEdits& full) {
    engine::SettingEdits changed;
    for (const engine::SettingName& setting : engine::SettingNames()) {
        const auto value = engine::EditOf(setting, full);
        if (!value) continue;
        const auto was = engine::RecordValue(setting, base);
        // Compared as their JSON, which writes each kind of value exactly.
        if (!was || engine::SettingJson(*value) != engine::SettingJson(*was)) engine::SetEdit(setting, *value, changed);
    }
    return engine::SettingAssignmentsText(changed);
}

}  // namespace vellux::gimp
