// Every setting of the flare by its one name, from every front end: the tool's --NAME, Python's
// keyword (NAME with underscores), and the frei0r filter's parameter NAME, set through the frei0r
// API in this process. The tool's settings record (as its EXR's Vellux:Settings keeps it) is the
// reference: Python's record must be the same, byte for byte; the filter's frame must be the
// engine's frame painted from the tool's record, and that frame must differ from the one without
// the setting, so that the comparison can fail.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <nlohmann/json.hpp>

#include "engine/setting_names.h"
#include "tests/frei0r/filter_support.h"

namespace {

using namespace vellux;
namespace fs = std::filesystem;

// One setting at a value other than its default, as each front end writes it. `context`: other
// settings (at their own cases' values) without which the setting would not show in the frame.
struct Case {
    const char* name;
    const char* text;        // after the tool's --NAME
    const char* python;      // a Python literal
    double slider;           // the filter's number (a colour parameter takes `text`'s colour)
    std::vector<const char*> context = {};
    double lightX = 0.4;     // across the frame; the light is at 0.3 down it
};

const Case kCases[] = {
    {"flare-intensity", "1.5", "1.5", 0.75},
    {"dissolve", "0.25", "0.25", 0.25},
    {"anamorphic-factor", "2.5", "2.5", 0.5, {"anamorphic"}},
    {"ring-size", "0.5", "0.5", 0.5},
    {"ring-color", "#2040C0", "(32, 64, 192)", 0.0},
    {"star-rotation", "45", "45.0", 0.125, {"star-filter"}},
    {"star-filter", "6", "6", 0.6},
    {"streak-density", "100", "100.0", 0.5, {"star-filter"}},
    {"streak-intensity", "0.15", "0.15", 0.5, {"star-filter"}},
    {"streak-sharpness", "15", "15.0", 0.5, {"star-filter"}},
    {"glow", "off", "False", 0.0},
    {"glow-in-light-color", "off", "False", 0.0},
    {"halo", "off", "False", 0.0},
    {"reflections", "off", "False", 0.0},
    {"anamorphic", "on", "True", 1.0},
    {"anamorphic-streak", "on", "True", 1.0},
    {"random-streaks", "off", "False", 0.0},
    {"streaks-off-frame", "off", "False", 0.0, {"star-filter"}, 1.1},
    {"follow-light-size", "on", "True", 1.0},
    {"wireframe-preview", "on", "True", 1.0},
};

// What a front end does not carry, and why.
const std::map<std::string, std::string> kFilterLeavesOut = {
    {"wireframe-preview", "it shapes only the settings dialog's preview, a dialog no video host opens"},
};

const Case& CaseOf(const std::string& name) {
    for (const Case& c : kCases)
        if (name == c.name) return c;
    throw std::invalid_argument("no case for " + name);
}

std::string PythonName(std::string name) {
    for (char& c : name)
        if (c == '-') c = '_';
    return name;
}

constexpr int kWidth = 160, kHeight = 90;
constexpr double kLightY = 0.3, kRadius = 0.4;   // the radius slider: 0.1 of the frame's height
const f0r_param_color_t kLightColour{1.0f, 0.75f, 0.5f};

class SettingNames : public testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("vellux_setting_names_" + std::to_string(getpid()));
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    // The case's setting (after its context) for the tool: --NAME VALUE each.
    static std::string ToolOptions(const Case& c) {
        std::string options;
        for (const char* other : c.context) options += " --" + std::string(other) + " '" + CaseOf(other).text + "'";
        return options + " --" + c.name + " '" + c.text + "'";
    }

    // The record the tool's render kept in its EXR.
    engine::SettingsRecord ToolRecord(const Case& c) const {
        const fs::path exr = dir_ / (std::string(c.name) + ".exr");
        const std::string command = "'" VELLUX_TOOL_PATH "' render -q --size " + std::to_string(kWidth) + "x" +
                                    std::to_string(kHeight) + ToolOptions(c) + " -o '" + exr.string() + "'";
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        OIIO::ImageBuf image(exr.string());
        image.read();
        const engine::SettingsReadResult read = engine::ReadSettingsText(image.spec().get_string_attribute("Vellux:Settings"));
        EXPECT_TRUE(read.settings.has_value()) << c.name;
        return read.settings.value_or(engine::SettingsRecord{});
    }

    // Python's look for every case, by the Flare's keyword arguments, in the cases' order.
    std::vector<engine::SettingsRecord> PythonRecords() const {
        nlohmann::json cases = nlohmann::json::array();
        for (const Case& c : kCases) {
            nlohmann::json arguments = nlohmann::json::object();
            for (const char* other : c.context) arguments[PythonName(other)] = CaseOf(other).python;
            arguments[PythonName(c.name)] = c.python;
            cases.push_back(arguments);
        }
        std::ofstream(dir_ / "cases.json") << cases.dump();
        std::ofstream(dir_ / "looks.py") << "import ast, json, sys, vellux\n"
                                             "for arguments in json.load(open(sys.argv[1])):\n"
                                             "    flare = vellux.Flare(**{k: ast.literal_eval(v) for k, v in arguments.items()})\n"
                                             "    print(json.dumps(flare.look()))\n";
        const std::string command = "PYTHONPATH='" VELLUX_PYTHON_DIR "' /usr/bin/python3 '" + (dir_ / "looks.py").string() +
                                    "' '" + (dir_ / "cases.json").string() + "' > '" + (dir_ / "looks.txt").string() + "'";
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        std::vector<engine::SettingsRecord> records;
        std::ifstream looks(dir_ / "looks.txt");
        for (std::string line; std::getline(looks, line);) {
            const engine::SettingsReadResult read = engine::ReadSettingsText(nlohmann::json::parse(line).get<std::string>());
            EXPECT_TRUE(read.settings.has_value()) << line;
            records.push_back(read.settings.value_or(engine::SettingsRecord{}));
        }
        return records;
    }

    fs::path dir_;
};

// Sets a setting's parameter on a filter instance to its case's value.
void SetFilterParam(f0r_instance_t instance, const Case& c) {
    const test::Filter& filter = test::TheFilter();
    const int index = filter.Index(c.name);
    ASSERT_GE(index, 0) << c.name;
    if (filter.Param(index).type == F0R_PARAM_COLOR) {
        const engine::LightColor rgb = engine::ParseColor(c.name, c.text);
        f0r_param_color_t colour{rgb.red / 255.0f, rgb.green / 255.0f, rgb.blue / 255.0f};
        filter.set(instance, &colour, index);
    } else {
        test::SetDouble(instance, index, c.slider);
    }
}

// The filter's frame with the case's setting (and its context) on a busy frame.
std::vector<uint32_t> FilterFrame(const Case& c, const std::vector<uint32_t>& in) {
    const test::Filter& filter = test::TheFilter();
    f0r_instance_t instance = filter.construct(kWidth, kHeight);
    f0r_param_position_t at{c.lightX, kLightY};
    filter.set(instance, &at, filter.Index("light-fraction"));
    f0r_param_color_t colour = kLightColour;
    filter.set(instance, &colour, filter.Index("color"));
    test::SetDouble(instance, filter.Index("radius"), kRadius);
    for (const char* other : c.context) SetFilterParam(instance, CaseOf(other));
    SetFilterParam(instance, c);
    const std::vector<uint32_t> out = test::Render(instance, in);
    filter.destruct(instance);
    return out;
}

// The light the filter's parameters above make, in pixels.
engine::FlareLight Light(const Case& c) {
    engine::FlareLight light;
    light.x = c.lightX * kWidth, light.y = kLightY * kHeight;
    light.color = {255, 191, 128};
    light.radius = kRadius * 0.25 * std::min(kWidth, kHeight);
    return light;
}

TEST_F(SettingNames, EverySettingReachesThePlugInByItsNameFromEveryFrontEnd) {
    std::vector<std::string> named;
    for (const engine::SettingName& setting : engine::SettingNames()) named.emplace_back(setting.name);
    std::vector<std::string> cased;
    for (const Case& c : kCases) cased.emplace_back(c.name);
    ASSERT_EQ(cased, named) << "every setting has its case, in the engine's order";

    const std::vector<engine::SettingsRecord> python = PythonRecords();
    ASSERT_EQ(python.size(), std::size(kCases));
    const std::vector<uint8_t> defaults = engine::DefaultSettingsRecord();
    const std::vector<uint32_t> in = test::Frame(kWidth, kHeight);
    for (size_t i = 0; i < std::size(kCases); ++i) {
        const Case& c = kCases[i];
        SCOPED_TRACE(c.name);
        const engine::SettingsRecord tool = ToolRecord(c);
        ASSERT_EQ(tool.bytes.size(), defaults.size());
        EXPECT_NE(tool.bytes, defaults);
        EXPECT_EQ(python[i].bytes, tool.bytes) << "Python's " << PythonName(c.name) << "=" << c.python;

        const auto leftOut = kFilterLeavesOut.find(c.name);
        if (leftOut != kFilterLeavesOut.end()) {
            EXPECT_EQ(test::TheFilter().Index(c.name), -1) << "the filter has it now, though " << leftOut->second;
            continue;
        }
        engine::FlareSetup fromTool;
        fromTool.settings = tool;
        engine::FlareSetup withoutIt;   // the context alone
        for (const char* other : c.context) {
            const engine::SettingName& setting = *engine::FindSetting(other);
            engine::SetEdit(setting, engine::ParseSettingText(setting, CaseOf(other).text), withoutIt.edits);
        }
        const std::vector<uint32_t> expected = test::EnginesComposite(fromTool, kWidth, kHeight, in, Light(c));
        EXPECT_NE(expected, test::EnginesComposite(withoutIt, kWidth, kHeight, in, Light(c))) << "the setting shows";
        EXPECT_EQ(FilterFrame(c, in), expected) << "the filter's " << c.name;
    }
}

}  // namespace
