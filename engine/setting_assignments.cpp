#include "engine/setting_assignments.h"

#include <stdexcept>
#include <vector>

#include "engine/closest_match.h"
#include "engine/setting_names.h"

namespace vellux::engine {

namespace {

std::vector<std::string> SplitAssignments(const std::string& text) {
    std::vector<std::string> pairs;
    std::string current;
    for (const char c : text) {
        if (c == ' ' || c == ',' || c == '\t' || c == '\n') {
            if (!current.empty()) pairs.push_back(std::move(current));
            current.clear();
        } else {
            current += c;
        }
    }
    if (!current.empty()) pairs.push_back(std::move(current));
    return pairs;
}

std::vector<std::string> AllSettingNames() {
    std::vector<std::string> names;
    for (const SettingName& setting : SettingNames()) names.emplace_back(setting.name);
    return names;
}

// As typed: on/off, #RRGGBB, numbers with the digits that read back exactly.
std::string ValueText(const SettingValue& value) {
    const nlohmann::ordered_json json = SettingJson(value);
    if (json.is_boolean()) return json.get<bool>() ? "on" : "off";
    if (json.is_string()) return json.get<std::string>();
    return json.dump();
}

}  // namespace

SettingEdits ParseSettingAssignments(const std::string& text) {
    SettingEdits edits;
    for (const std::string& pair : SplitAssignments(text)) {
        const size_t equals = pair.find('=');
        if (equals == std::string::npos || equals == 0)
            throw std::invalid_argument("\"" + pair + "\" is not NAME=VALUE");
        const std::string name = pair.substr(0, equals);
        const SettingName* setting = FindSetting(name);
        if (setting == nullptr) {
            std::string message = "\"" + name + "\" is not a setting";
            const std::string closest = ClosestMatch(name, AllSettingNames());
            if (!closest.empty()) message += " (did you mean " + closest + "?)";
            throw std::invalid_argument(message);
        }
        const SettingValue value = ParseSettingText(*setting, pair.substr(equals + 1), name);
        if (const auto* number = std::get_if<double>(&value))
            if (const auto problem = RangeProblem(*setting, *number)) throw std::invalid_argument(name + ": " + *problem);
        SetEdit(*setting, value, edits);
    }
    CheckSettingEdits(edits);
    return edits;
}

std::string SettingAssignmentsText(const SettingEdits& edits) {
    std::string text;
    for (const SettingName& setting : SettingNames()) {
        const std::optional<SettingValue> value = EditOf(setting, edits);
        if (!value) continue;
        if (!text.empty()) text += ' ';
        text += std::string(setting.name) + "=" + ValueText(*value);
    }
    return text;
}

}  // namespace vellux::engine
