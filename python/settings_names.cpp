// The flare's settings by their Python names. See settings_names.h.
#include "python/settings_names.h"

#include <algorithm>
#include <array>
#include <climits>
#include <stdexcept>

#include "engine/closest_match.h"
#include "engine/setting_names.h"

namespace py = pybind11;

namespace vellux::python {

namespace {

using engine::SettingKind;
using engine::SettingName;
using engine::SettingValue;

const SettingName& Named(const std::string& name) {
    for (const SettingName& setting : engine::SettingNames())
        if (PythonName(setting.name) == name) return setting;
    const std::string closest = engine::ClosestMatch(name, SettingNames());
    throw py::value_error("no setting named '" + name + "'" + (closest.empty() ? "" : "; did you mean '" + closest + "'?"));
}

[[noreturn]] void WrongType(const std::string& name, const char* wanted, const py::handle& value) {
    throw py::type_error(name + ": wants " + wanted + ", not " + std::string(py::str(py::type::of(value).attr("__name__"))));
}

bool IsWhole(const py::handle& value) { return py::isinstance<py::int_>(value) && !py::isinstance<py::bool_>(value); }

bool IsNumber(const py::handle& value) { return IsWhole(value) || py::isinstance<py::float_>(value); }

engine::LightColor ColorOf(const std::string& name, const py::handle& value) {
    if (py::isinstance<py::str>(value)) {
        try {
            return engine::ParseColor(name, value.cast<std::string>());
        } catch (const std::invalid_argument& error) {
            throw py::value_error(error.what());
        }
    }
    if (!py::isinstance<py::sequence>(value) || py::len(value) != 3) WrongType(name, "(red, green, blue) or \"#RRGGBB\"", value);
    std::array<uint8_t, 3> rgb{};
    for (size_t i = 0; i < 3; ++i) {
        const py::object part = value[py::int_(i)];
        if (!IsWhole(part)) WrongType(name, "whole numbers 0 to 255", part);
        const long long v = part.cast<long long>();
        if (v < 0 || v > 255) throw py::value_error(name + ": " + std::to_string(v) + " is outside 0..255");
        rgb[i] = uint8_t(v);
    }
    return {rgb[0], rgb[1], rgb[2]};
}

// The value in the setting's unit, checked as the engine checks it.
SettingValue ValueOf(const SettingName& setting, const std::string& name, const py::handle& value) {
    switch (setting.kind) {
    case SettingKind::number: {
        if (!IsNumber(value)) WrongType(name, "a number", value);
        const double number = value.cast<double>();
        if (const auto problem = engine::RangeProblem(setting, number)) throw py::value_error(name + ": " + *problem);
        return number;
    }
    case SettingKind::whole: {
        if (!IsWhole(value)) WrongType(name, "a whole number", value);
        int overflow = 0;
        const long long whole = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
        if (overflow != 0 || whole < INT32_MIN || whole > INT32_MAX)
            throw py::value_error(name + ": " + std::string(py::str(value)) + " is not a 32-bit whole number");
        return int32_t(whole);
    }
    case SettingKind::color: return ColorOf(name, value);
    case SettingKind::onOff:
        if (!py::isinstance<py::bool_>(value)) WrongType(name, "True or False", value);
        return value.cast<bool>();
    }
    throw py::type_error(name + ": cannot be set");
}

py::object ObjectOf(const SettingValue& value) {
    if (const auto* number = std::get_if<double>(&value)) return py::float_(*number);
    if (const auto* whole = std::get_if<int32_t>(&value)) return py::int_(*whole);
    if (const auto* color = std::get_if<engine::LightColor>(&value)) return py::make_tuple(color->red, color->green, color->blue);
    return py::bool_(std::get<bool>(value));
}

}  // namespace

std::string PythonName(std::string_view name) {
    std::string spelt(name);
    std::replace(spelt.begin(), spelt.end(), '-', '_');
    return spelt;
}

std::vector<std::string> SettingNames() {
    std::vector<std::string> names;
    for (const SettingName& setting : engine::SettingNames()) names.push_back(PythonName(setting.name));
    return names;
}

py::object GetSetting(const engine::SettingEdits& edits, const std::string& name) {
    const SettingName& setting = Named(name);
    const std::optional<SettingValue> value = engine::EditOf(setting, edits);
    if (!value) throw py::value_error(name + ": has no value");   // a Flare's edits hold every setting
    return ObjectOf(*value);
}

void SetSetting(engine::SettingEdits& edits, const std::string& name, const py::handle& value) {
    const SettingName& setting = Named(name);
    engine::SetEdit(setting, ValueOf(setting, name, value), edits);
}

}  // namespace vellux::python
