// The settings dialog's control for each of the plug-in's settings (setting_names.h), by the item
// number the plug-in's dialog gives it: `vellux settings set` types a setting into its control,
// and the dialog's page shows each control's setting by its name.
#ifndef VELLUX_ENGINE_SETTING_CONTROLS_H
#define VELLUX_ENGINE_SETTING_CONTROLS_H

#include <span>
#include <string_view>

namespace vellux::engine {

struct SettingControl {
    std::string_view setting;   // "flare-intensity"
    int item;                   // the dialog's control
    bool inverted = false;      // a check box that is on when the setting is off
};

std::span<const SettingControl> SettingControls();
const SettingControl* FindSettingControl(std::string_view setting);   // null when none

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_SETTING_CONTROLS_H
