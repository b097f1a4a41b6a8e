// Settings written as text, "ring-size=1.5 halo=off star-filter=6": NAME=VALUE pairs under the
// settings' own names (setting_names.h), separated by spaces or commas. The vocabulary of
// front ends that carry the settings in one string (the GIMP plug-in's procedure argument).
#ifndef VELLUX_ENGINE_SETTING_ASSIGNMENTS_H
#define VELLUX_ENGINE_SETTING_ASSIGNMENTS_H

#include <string>

#include "engine/plugin_settings.h"

namespace vellux::engine {

// The edits the text asks for, range-checked. Throws std::invalid_argument naming the pair for a
// missing "=", an unknown name (with the closest one), a value that does not read or is out of
// range. Empty text is no edit.
SettingEdits ParseSettingAssignments(const std::string& text);

// The edits written back as such text, in the settings' order (ParseSettingAssignments reads it
// back to the same edits).
std::string SettingAssignmentsText(const SettingEdits& edits);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_SETTING_ASSIGNMENTS_H
