// The flare's settings by the names Python uses: the engine's own names (engine/setting_names.h)
// with underscores for dashes (flare_intensity, ring_color, glow_in_light_color, ...), read from and
// written into the engine's SettingEdits in the setting's unit, with the engine's ranges.
#ifndef VELLUX_PYTHON_SETTINGS_NAMES_H
#define VELLUX_PYTHON_SETTINGS_NAMES_H

#include <string>
#include <string_view>
#include <vector>

#include <pybind11/pybind11.h>

#include "engine/plugin_settings.h"

namespace vellux::python {

// "ring-color" as Python spells it: "ring_color".
std::string PythonName(std::string_view name);

// The names, in the engine's order (the settings dialog's).
std::vector<std::string> SettingNames();

// The setting's value as a Python object: a float, an int (star_filter), a bool (the switches), or
// an (r, g, b) tuple (ring_color).
pybind11::object GetSetting(const engine::SettingEdits& edits, const std::string& name);

// Sets one setting. Raises ValueError naming an unknown setting (with the closest name) or a value
// out of the setting's range ("dissolve: 1.5 is out of range (from 0 to 1)"), TypeError for a
// value of the wrong kind; the edits are left as they were.
void SetSetting(engine::SettingEdits& edits, const std::string& name, const pybind11::handle& value);

}  // namespace vellux::python

#endif  // VELLUX_PYTHON_SETTINGS_NAMES_H
