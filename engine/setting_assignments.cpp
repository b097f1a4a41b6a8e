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

}  // namespace vellux::engine
