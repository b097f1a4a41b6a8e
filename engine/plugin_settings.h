// Changes to the plug-in's persistent settings record (ControlDataRec) asked for on the command
// line. The plug-in fills the record with its defaults on INIT; the host edits the fields it was
// asked to change before SETF, exactly as a host's settings panel would.
#ifndef VELLUX_ENGINE_PLUGIN_SETTINGS_H
#define VELLUX_ENGINE_PLUGIN_SETTINGS_H

#include <cstdint>
#include <optional>
#include <vector>

#include "engine/option_values.h"

namespace vellux::engine {

struct SettingEdits {
    std::optional<double> flareIntensity;   // >= 0
    std::optional<double> dissolve;         // 0 to 1
    std::optional<double> ringSize;         // > 0, flare units
    std::optional<double> streakDensity;    // >= 0
    std::optional<int32_t> starFilter;      // any value; 0 = none
    std::optional<double> anamorphicFactor; // > 0: how far the anamorphic switch stretches
    std::optional<double> starRotation;     // degrees, any finite value
    std::optional<double> streakIntensity;  // >= 0
    std::optional<double> streakSharpness;  // >= 0
    std::optional<LightColor> ringColor;    // 8-bit; the record holds each as v x 257
    // The switches (flag bits of the record): set or cleared when given.
    std::optional<bool> glow, glowInLightColor, halo, reflections, anamorphic;
    std::optional<bool> anamorphicStreak;   // the one horizontal streak
    std::optional<bool> randomStreaks;
    std::optional<bool> followLightSize;    // the glow follows the light's radius
    std::optional<bool> streaksOffFrame;    // streaks even when the light is off the frame
    std::optional<bool> wireframePreview;   // the dialog's preview sketches outlines
};

// Every field given, at the plug-in's own defaults: a front end that keeps every setting itself
// (the frei0r filter, the Python module) starts from these.
SettingEdits DefaultSettingEdits();

// Throws std::invalid_argument naming the option when a value is out of range (the ranges are
// those of setting_names.h).
void CheckSettingEdits(const SettingEdits& edits);

// Edits the record in place; throws std::runtime_error when it is smaller than a ControlDataRec.
void ApplySettingEdits(const SettingEdits& edits, std::vector<uint8_t>& controlRecord);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_PLUGIN_SETTINGS_H
