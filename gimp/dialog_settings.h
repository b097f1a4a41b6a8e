// The settings as the dialog holds them. The dialog shows every setting, so it keeps them all
// given: the base (the settings file's record, else the plug-in's defaults) with the procedure's
// NAME=VALUE text over it. What it hands back as text is only what differs from the base, so a
// run that changes nothing reads "" as a run from the menu with no dialog would.
#ifndef VELLUX_GIMP_DIALOG_SETTINGS_H
#define VELLUX_GIMP_DIALOG_SETTINGS_H

#include <filesystem>
#include <string>

#include "engine/plugin_settings.h"
#include "vellux/plugin_records.h"

namespace vellux::gimp {

// The record the settings start from. Throws naming the file when a settings file does not read.
ControlDataRec BaseSettings(const std::filesystem::path& settingsFile);

// Every named setting given: the text's where it says one, else the base's. Throws
// std::invalid_argument (as the procedure would) when the text does not read.
engine::SettingEdits FullSettings(const ControlDataRec& base, const std::string& text);

// The settings of `full` that differ from the base, as NAME=VALUE text.
std::string ChangedSettingsText(const ControlDataRec& base, const engine::SettingEdits& full);

}  // namespace vellux::gimp

#endif  // VELLUX_GIMP_DIALOG_SETTINGS_H
