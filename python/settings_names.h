// The flare's settings by the names Python uses (intensity, ring_size, glow, ...), each read from
// and written into the engine's SettingEdits, checked as the tool checks its options.
#ifndef VELLUX_PYTHON_SETTINGS_NAMES_H
#define VELLUX_PYTHON_SETTINGS_NAMES_H

#include <string>
#include <vector>

#include <pybind11/pybind11.h>

#include "engine/plugin_settings.h"

namespace vellux::python {

// The names, in the order help() lists them.
std::vector<std::string> SettingNames();

// The setting's value as a Python object (float, int, bool, or an (r, g, b) tuple).
pybind11::object GetSetting(const engine::SettingEdits& edits, const std::string& name);

// Sets one setting; raises ValueError naming an unknown setting (with the closest name) or a value
// out of range (the tool's message), TypeError for a value of the wrong kind.
void SetSetting(engine::SettingEdits& edits, const std::string& name, const pybind11::handle& value);

}  // namespace vellux::python

#endif  // VELLUX_PYTHON_SETTINGS_NAMES_H
