#include "python/settings_names.h"

#include <cmath>
#include <stdexcept>

#include <pybind11/stl.h>

#include "engine/closest_match.h"

namespace py = pybind11;

namespace vellux::python {

namespace {

using engine::SettingEdits;

struct NumberSetting {
    const char* name;
    const char* option;   // the tool's option, named in messages
    std::optional<double> SettingEdits::*field;
};
const NumberSetting kNumbers[] = {
    {"intensity", "--flare-intensity", &SettingEdits::flareIntensity},
    {"dissolve", "--dissolve", &SettingEdits::dissolve},
    {"ring_size", "--ring-size", &SettingEdits::ringSize},
    {"streak_density", "--streak-density", &SettingEdits::streakDensity},
    {"star_rotation", "--star-rotation", &SettingEdits::starRotation},
    {"streak_intensity", "--streak-intensity", &SettingEdits::streakIntensity},
    {"streak_sharpness", "--streak-sharpness", &SettingEdits::streakSharpness},
    {"anamorphic_factor", "--anamorphic-factor", &SettingEdits::anamorphicFactor},
};

struct SwitchSetting {
    const char* name;
    std::optional<bool> SettingEdits::*field;
};
const SwitchSetting kSwitches[] = {
    {"glow", &SettingEdits::glow},
    {"glow_in_light_color", &SettingEdits::glowInLightColor},
    {"halo", &SettingEdits::halo},
    {"reflections", &SettingEdits::reflections},
    {"anamorphic", &SettingEdits::anamorphic},
    {"anamorphic_streak", &SettingEdits::anamorphicStreak},
    {"random_streaks", &SettingEdits::randomStreaks},
    {"follow_light_size", &SettingEdits::followLightSize},
};

[[noreturn]] void WrongType(const std::string& name, const char* wanted, const py::handle& value) {
    throw py::type_error(name + ": wants " + wanted + ", not " + std::string(py::str(py::type::of(value).attr("__name__"))));
}

bool IsNumber(const py::handle& value) {
    return (py::isinstance<py::float_>(value) || py::isinstance<py::int_>(value)) && !py::isinstance<py::bool_>(value);
}

}  // namespace

std::vector<std::string> SettingNames() {
    std::vector<std::string> names;
    for (const NumberSetting& s : kNumbers) names.push_back(s.name);
    names.push_back("star_filter");
    names.push_back("ring_color");
    for (const SwitchSetting& s : kSwitches) names.push_back(s.name);
    return names;
}

py::object GetSetting(const SettingEdits& edits, const std::string& name) {
    for (const NumberSetting& s : kNumbers)
        if (name == s.name) return py::float_((edits.*(s.field)).value_or(0.0));
    for (const SwitchSetting& s : kSwitches)
        if (name == s.name) return py::bool_((edits.*(s.field)).value_or(false));
    if (name == "star_filter") return py::int_(edits.starFilter.value_or(0));
    if (name == "ring_color") {
        const engine::LightColor c = edits.ringColor.value_or(engine::LightColor{});
        return py::make_tuple(c.red, c.green, c.blue);
    }
    const std::string closest = engine::ClosestMatch(name, SettingNames());
    throw py::value_error("no setting named '" + name + "'" + (closest.empty() ? "" : "; did you mean '" + closest + "'?"));
}

void SetSetting(SettingEdits& edits, const std::string& name, const py::handle& value) {
    GetSetting(edits, name);   // an unknown name raises here
    SettingEdits changed = edits;
    if (name == "star_filter") {
        if (!py::isinstance<py::int_>(value) || py::isinstance<py::bool_>(value)) WrongType(name, "a whole number", value);
        changed.starFilter = value.cast<int32_t>();
    } else if (name == "ring_color") {
        if (!py::isinstance<py::sequence>(value) || py::len(value) != 3) WrongType(name, "(red, green, blue)", value);
        std::array<uint8_t, 3> rgb{};
        for (size_t i = 0; i < 3; ++i) {
            const py::handle part = value[py::int_(i)];
            if (!py::isinstance<py::int_>(part)) WrongType(name, "whole numbers 0 to 255", part);
            const long v = part.cast<long>();
            if (v < 0 || v > 255) throw py::value_error(name + ": " + std::to_string(v) + " is outside 0..255");
            rgb[i] = uint8_t(v);
        }
        changed.ringColor = engine::LightColor{rgb[0], rgb[1], rgb[2]};
    } else {
        bool done = false;
        for (const SwitchSetting& s : kSwitches) {
            if (name != s.name) continue;
            if (!py::isinstance<py::bool_>(value)) WrongType(name, "True or False", value);
            changed.*(s.field) = value.cast<bool>();
            done = true;
        }
        for (const NumberSetting& s : kNumbers) {
            if (done || name != s.name) continue;
            if (!IsNumber(value)) WrongType(name, "a number", value);
            changed.*(s.field) = value.cast<double>();
        }
    }
    try {
        engine::CheckSettingEdits(changed);
    } catch (const std::invalid_argument& error) {
        throw py::value_error(error.what());
    }
    edits = changed;
}

}  // namespace vellux::python
