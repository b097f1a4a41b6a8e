// The plug-in's settings by name: one row per setting of its persistent record (ControlDataRec),
// the one vocabulary of the command line (--ring-color), of the "settings" object of a look file
// and of a scene, and of an EXR's Vellux:Settings.
//
// A setting's JSON key is its option name without the dashes ("ring-color", "star-rotation"),
// not a camelCase spelling, so that what is typed and what is saved read alike.
//
// Units as a person sees them, and how they sit in the record:
//   numbers      the record's double itself; every finite value in the setting's range is kept
//                bit for bit (JSON numbers are written with enough digits to read back exactly)
//   star-filter  the record's 32-bit number itself
//   ring-color   #RRGGBB or R,G,B from 0 to 255; the record holds each as v x 257 (0xFF is 0xFFFF),
//                so a channel that is not a multiple of 257 cannot be written this way
//   switches     on/off, one flag bit each
// What no name covers: the colour's alpha, the flag bits 21 to 0, and values outside a setting's
// range (a NaN, a negative intensity); a look keeps those in the record's hex alongside the names.
#ifndef VELLUX_ENGINE_SETTING_NAMES_H
#define VELLUX_ENGINE_SETTING_NAMES_H

#include <cmath>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

#include "engine/option_values.h"
#include "engine/plugin_settings.h"
#include "vellux/plugin_records.h"

namespace vellux::engine {

enum class SettingKind { number, whole, color, onOff };

struct SettingName {
    std::string_view name;       // "ring-color": the option --ring-color and the JSON key
    std::string_view meaning;    // the option's help
    std::string_view unit;       // as a person writes it
    SettingKind kind;
    // numbers: the range; max is included, min when minIncluded
    double min = -HUGE_VAL;
    bool minIncluded = false;
    double max = HUGE_VAL;
    std::optional<double> SettingEdits::*edit = nullptr;   // numbers
    double ControlDataRec::*field = nullptr;
    std::optional<bool> SettingEdits::*onOff = nullptr;    // switches
    uint32_t flag = 0;
};

using SettingValue = std::variant<double, int32_t, LightColor, bool>;

std::span<const SettingName> SettingNames();
const SettingName* FindSetting(std::string_view name);   // exact name; null when none

std::optional<SettingValue> EditOf(const SettingName& setting, const SettingEdits& edits);
void SetEdit(const SettingName& setting, const SettingValue& value, SettingEdits& edits);

// The record's value in the setting's unit; none when the unit cannot say it (see above).
std::optional<SettingValue> RecordValue(const SettingName& setting, const ControlDataRec& control);

// "1.5 is out of range (from 0 to 1)" for a number outside the setting's range; none when inside.
std::optional<std::string> RangeProblem(const SettingName& setting, double value);

// The value as typed after --NAME; throws std::invalid_argument "--NAME: 'x' is not a number" for
// text that is not one. A number's range is checked by CheckSettingEdits.
// `as` names the value in the message instead of --NAME (NAME=VALUE assignments say NAME).
SettingValue ParseSettingText(const SettingName& setting, const std::string& text, const std::string& as = "");

// JSON: numbers as numbers, the colour as "#RRGGBB" (R,G,B text and [r, g, b] are read too),
// switches as true/false ("on"/"off" read too). Reading throws std::invalid_argument with what is
// wrong (no path: the caller knows it).
nlohmann::ordered_json SettingJson(const SettingValue& value);
SettingValue ReadSettingJson(const SettingName& setting, const nlohmann::ordered_json& value);

// The plug-in's default record, built from DefaultSettingEdits and the rest of its defaults (the
// colour's alpha 0xFFFF, no other flag bits), in this machine's byte order.
std::vector<uint8_t> DefaultSettingsRecord();

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_SETTING_NAMES_H
