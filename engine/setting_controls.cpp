// The settings dialog's control for each setting. See setting_controls.h.
#include "engine/setting_controls.h"

namespace vellux::engine {

namespace {

// The painted-preview box is on when the wireframe preview is off.
constexpr SettingControl kSettingControls[] = {
    {"flare-intensity", 17},  {"dissolve", 16},          {"anamorphic-factor", 25},   {"ring-size", 14},
    {"ring-color", 21},       {"star-rotation", 15},     {"star-filter", 22},         {"streak-density", 18},
    {"streak-intensity", 19}, {"streak-sharpness", 20},  {"glow", 7},                 {"glow-in-light-color", 8},
    {"halo", 9},              {"reflections", 10},       {"anamorphic", 6},           {"anamorphic-streak", 11},
    {"random-streaks", 13},   {"streaks-off-frame", 12}, {"follow-light-size", 5},    {"wireframe-preview", 26, true},
};

}  // namespace

std::span<const SettingControl> SettingControls() { return kSettingControls; }

const SettingControl* FindSettingControl(std::string_view setting) {
    for (const SettingControl& control : kSettingControls)
        if (control.setting == setting) return &control;
    return nullptr;
}

}  // namespace vellux::engine
