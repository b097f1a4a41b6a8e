// The plug-in's settings by name. See setting_names.h.
#include "engine/setting_names.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <stdexcept>

namespace vellux::engine {

namespace {

using Json = nlohmann::ordered_json;
using K = SettingKind;
using E = SettingEdits;
using R = ControlDataRec;

constexpr double kNone = HUGE_VAL;

// In the order of the settings dialog: the flare, the ring, the streaks, then the switches.
const SettingName kSettings[] = {
    {"flare-intensity", "Overall flare intensity (plug-in default 0.5)", "0 or more", K::number, 0.0, true, kNone,
     &E::flareIntensity, &R::flareIntensity},
    {"dissolve", "Fade the flare out, 0 to 1 (plug-in default 0)", "0..1", K::number, 0.0, true, 1.0, &E::dissolve,
     &R::flareDissolve},
    {"anamorphic-factor", "How far --anamorphic stretches rings and streaks (plug-in default 1.77)", "more than 0",
     K::number, 0.0, false, kNone, &E::anamorphicFactor, &R::flareAnamorphicFactor},
    {"ring-size", "Halo size in flare units (plug-in default 0.22)", "more than 0", K::number, 0.0, false, kNone,
     &E::ringSize, &R::flareRingSize},
    {"ring-color", "Ring colour, #RRGGBB or R,G,B from 0 to 255 (plug-in default #50140A)", "#RRGGBB or R,G,B 0..255",
     K::color},
    {"star-rotation", "Star filter rotation in degrees (plug-in default 0)", "degrees", K::number, -kNone, false, kNone,
     &E::starRotation, &R::flareStarRotation},
    {"star-filter", "Star filter, 0 = none (plug-in default 0)", "a whole number, 0 = none", K::whole},
    {"streak-density", "Density of the streaks (plug-in default 50)", "0 or more", K::number, 0.0, true, kNone,
     &E::streakDensity, &R::flareStreakDensity},
    {"streak-intensity", "Streak intensity (plug-in default 0.03)", "0 or more", K::number, 0.0, true, kNone,
     &E::streakIntensity, &R::flareStreakIntensity},
    {"streak-sharpness", "Streak sharpness (plug-in default 6)", "0 or more", K::number, 0.0, true, kNone,
     &E::streakSharpness, &R::flareStreakSharpness},
    {"glow", "Glow elements shown, on/off (plug-in default on)", "on/off", K::onOff, 0, false, 0, nullptr, nullptr,
     &E::glow, kFlagGlow},
    {"glow-in-light-color", "Glow in the light's colour instead of white, on/off (plug-in default on)", "on/off",
     K::onOff, 0, false, 0, nullptr, nullptr, &E::glowInLightColor, kFlagGlowInLightColor},
    {"halo", "Halo shown, on/off (plug-in default on)", "on/off", K::onOff, 0, false, 0, nullptr, nullptr, &E::halo,
     kFlagHalo},
    {"reflections", "Reflections shown, on/off (plug-in default on)", "on/off", K::onOff, 0, false, 0, nullptr, nullptr,
     &E::reflections, kFlagReflections},
    {"anamorphic", "Stretch rings and streaks by --anamorphic-factor, on/off (plug-in default off)", "on/off",
     K::onOff, 0, false, 0, nullptr, nullptr, &E::anamorphic, kFlagAnamorphic},
    {"anamorphic-streak", "Add the horizontal anamorphic streak, on/off (plug-in default off)", "on/off", K::onOff, 0,
     false, 0, nullptr, nullptr, &E::anamorphicStreak, kFlagAnamorphicStreak},
    {"random-streaks", "The random spray of streaks, on/off (plug-in default on)", "on/off", K::onOff, 0, false, 0,
     nullptr, nullptr, &E::randomStreaks, kFlagRandomStreaks},
    {"streaks-off-frame", "Streaks even when the light is off the frame, on/off (plug-in default on)", "on/off",
     K::onOff, 0, false, 0, nullptr, nullptr, &E::streaksOffFrame, kFlagStreaksOffFrame},
    {"follow-light-size", "Size the glow by the light's --radius, on/off (plug-in default off)", "on/off", K::onOff, 0,
     false, 0, nullptr, nullptr, &E::followLightSize, kFlagFollowLightSize},
    {"wireframe-preview", "The settings dialog's preview sketches outlines, on/off (plug-in default off)", "on/off",
     K::onOff, 0, false, 0, nullptr, nullptr, &E::wireframePreview, kFlagWireframePreview},
};

std::string Option(const SettingName& setting) { return "--" + std::string(setting.name); }

std::optional<bool> OnOff(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    if (text == "on" || text == "true" || text == "yes" || text == "1") return true;
    if (text == "off" || text == "false" || text == "no" || text == "0") return false;
    return std::nullopt;
}

// The value as text; a number's range is for CheckSettingEdits, which names it as the tool does.
SettingValue ParseValue(const SettingName& setting, const std::string& text, const std::string& option) {
    const auto fail = [&](const std::string& expected) -> SettingValue {
        throw std::invalid_argument(option + ": '" + text + "' is not " + expected);
    };
    const char* begin = text.data();
    const char* end = begin + text.size();
    switch (setting.kind) {
    case K::number: {
        double value = 0.0;
        const auto [ptr, error] = std::from_chars(begin, end, value);
        if (error != std::errc() || ptr != end || text.empty()) return fail("a number");
        return value;
    }
    case K::whole: {
        int32_t value = 0;
        const auto [ptr, error] = std::from_chars(begin, end, value);
        if (error != std::errc() || ptr != end || text.empty()) return fail("a whole number");
        return value;
    }
    case K::color:
        return ParseColor(option, text);
    case K::onOff:
        if (const auto value = OnOff(text)) return *value;
        return fail("on or off");
    }
    return fail("a value");
}

}  // namespace

std::span<const SettingName> SettingNames() { return kSettings; }

const SettingName* FindSetting(std::string_view name) {
    for (const SettingName& setting : kSettings)
        if (setting.name == name) return &setting;
    return nullptr;
}

std::optional<SettingValue> EditOf(const SettingName& setting, const SettingEdits& edits) {
    switch (setting.kind) {
    case K::number:
        if (const auto& v = edits.*setting.edit) return *v;
        return std::nullopt;
    case K::whole:
        if (edits.starFilter) return *edits.starFilter;
        return std::nullopt;
    case K::color:
        if (edits.ringColor) return *edits.ringColor;
        return std::nullopt;
    case K::onOff:
        if (const auto& v = edits.*setting.onOff) return *v;
        return std::nullopt;
    }
    return std::nullopt;
}

void SetEdit(const SettingName& setting, const SettingValue& value, SettingEdits& edits) {
    switch (setting.kind) {
    case K::number: edits.*setting.edit = std::get<double>(value); break;
    case K::whole: edits.starFilter = std::get<int32_t>(value); break;
    case K::color: edits.ringColor = std::get<LightColor>(value); break;
    case K::onOff: edits.*setting.onOff = std::get<bool>(value); break;
    }
}

std::optional<SettingValue> RecordValue(const SettingName& setting, const ControlDataRec& control) {
    switch (setting.kind) {
    case K::number: {
        const double value = control.*setting.field;
        if (RangeProblem(setting, value)) return std::nullopt;
        return value;
    }
    case K::whole:
        return control.flareStarFilter;
    case K::color: {
        const RGB_Color rgb{control.flareRingColor.red, control.flareRingColor.green, control.flareRingColor.blue};
        LightColor color;
        for (auto [wide, narrow] : {std::pair{rgb.red, &color.red}, {rgb.green, &color.green}, {rgb.blue, &color.blue}}) {
            if (uint16_t(wide) % 257 != 0) return std::nullopt;
            *narrow = uint8_t(uint16_t(wide) / 257);
        }
        return color;
    }
    case K::onOff:
        return (control.flareFlags & setting.flag) != 0;
    }
    return std::nullopt;
}

std::optional<std::string> RangeProblem(const SettingName& setting, double v) {
    if (setting.kind != K::number) return std::nullopt;
    if (std::isfinite(v) && (setting.minIncluded ? v >= setting.min : v > setting.min) && v <= setting.max)
        return std::nullopt;
    std::string range = "a finite number";
    if (std::isfinite(setting.min))
        range = std::string(setting.minIncluded ? "at least " : "more than ") + NumberText(setting.min);
    if (std::isfinite(setting.max)) range = "from " + NumberText(setting.min) + " to " + NumberText(setting.max);
    return NumberText(v) + " is out of range (" + range + ")";
}

SettingValue ParseSettingText(const SettingName& setting, const std::string& text, const std::string& as) {
    return ParseValue(setting, text, as.empty() ? Option(setting) : as);
}

Json SettingJson(const SettingValue& value) {
    if (const auto* color = std::get_if<LightColor>(&value)) {
        static const char digits[] = "0123456789ABCDEF";
        std::string text = "#";
        for (uint8_t v : {color->red, color->green, color->blue}) {
            text += digits[v >> 4];
            text += digits[v & 15];
        }
        return text;
    }
    if (const auto* number = std::get_if<double>(&value)) return *number;
    if (const auto* whole = std::get_if<int>(&value)) return *whole;
    return std::get<bool>(value);
}

SettingValue ReadSettingJson(const SettingName& setting, const Json& value) {
    switch (setting.kind) {
    case K::number: {
        if (!value.is_number()) throw std::invalid_argument("must be a number, not " + value.dump());
        const double number = value.get<double>();
        if (const auto problem = RangeProblem(setting, number)) throw std::invalid_argument(*problem);
        return number;
    }
    case K::whole:
        if (!value.is_number_integer() || (value.is_number_unsigned() && value.get<uint64_t>() > INT32_MAX) ||
            (!value.is_number_unsigned() && (value.get<int64_t>() < INT32_MIN || value.get<int64_t>() > INT32_MAX)))
            throw std::invalid_argument("must be a whole number (32 bits), not " + value.dump());
        return int32_t(value.get<int64_t>());
    case K::color:
        if (value.is_string()) {
            try {
                return ParseColor("colour", value.get<std::string>());
            } catch (const std::invalid_argument&) {
                throw std::invalid_argument("must be \"#RRGGBB\" or \"R,G,B\" from 0 to 255, not " + value.dump());
            }
        }
        if (value.is_array() && value.size() == 3 &&
            std::all_of(value.begin(), value.end(), [](const Json& v) { return v.is_number_integer() && v.get<int64_t>() >= 0 && v.get<int64_t>() <= 255; }))
            return LightColor{uint8_t(value[0].get<int>()), uint8_t(value[1].get<int>()), uint8_t(value[2].get<int>())};
        throw std::invalid_argument("must be \"#RRGGBB\" or [r, g, b] from 0 to 255, not " + value.dump());
    case K::onOff:
        if (value.is_boolean()) return value.get<bool>();
        if (value.is_string())
            if (const auto on = OnOff(value.get<std::string>())) return *on;
        throw std::invalid_argument("must be true or false (on or off), not " + value.dump());
    }
    throw std::invalid_argument("cannot be read");
}

std::vector<uint8_t> DefaultSettingsRecord() {
    ControlDataRec control{};
    control.ownerType = kVelluxOwner;
    control.ownerVersion = kVelluxVersion;
    control.flareRingColor.alpha = int16_t(-1);
    std::vector<uint8_t> bytes(sizeof(control));
    std::memcpy(bytes.data(), &control, sizeof(control));
    ApplySettingEdits(DefaultSettingEdits(), bytes);
    return bytes;
}

}  // namespace vellux::engine
