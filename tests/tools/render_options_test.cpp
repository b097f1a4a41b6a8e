// The render command's options: what a user types, what it becomes, and the one message a wrong
// value gets.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "engine/setting_names.h"
#include "tools/vellux/render_options.h"
#include "vellux/plugin_records.h"

namespace {

using namespace vellux::tool;

// Parses a render command line; CLI11 takes the arguments last to first.
RenderOptions Parse(std::vector<std::string> arguments) {
    CLI::App app;
    RenderOptions options;
    AddRenderOptions(app, options);
    std::reverse(arguments.begin(), arguments.end());
    app.parse(arguments);
    return options;
}

RenderRequest Check(std::vector<std::string> arguments) { return CheckRenderOptions(Parse(std::move(arguments))); }

std::string ErrorOf(std::vector<std::string> arguments) {
    try {
        Check(std::move(arguments));
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "no error";
}

TEST(RenderOptions, DefaultsAndTypedValues) {
    const RenderRequest defaults = Check({"--size", "64x32", "-o", "out.png"});
    EXPECT_EQ(defaults.blackFrame.width, 64);
    EXPECT_EQ(defaults.blackFrame.height, 32);
    EXPECT_TRUE(defaults.lightIsFraction);
    EXPECT_DOUBLE_EQ(defaults.lightX, 0.3);
    EXPECT_DOUBLE_EQ(defaults.lightY, 0.35);
    EXPECT_EQ(defaults.color.red + defaults.color.green + defaults.color.blue, 3 * 255);
    EXPECT_EQ(defaults.bandRows, 0);
    EXPECT_EQ(defaults.threads, 0);   // every core
    const int32_t cores = int32_t(std::max(1u, std::thread::hardware_concurrency()));
    EXPECT_EQ(defaults.jobs, cores);
    // Threads asked for a sequence's frames leave the workers the cores over them, and the other way round.
    EXPECT_EQ(Check({"--size", "8x8", "-o", "o.png", "--threads", "2"}).jobs, std::max(1, cores / 2));
    EXPECT_EQ(Check({"--size", "8x8", "-o", "o.png", "--threads", "2", "--jobs", "3"}).jobs, 3);
    EXPECT_FALSE(defaults.settings.dissolve.has_value());

    const RenderRequest typed = Check({"-i", "in.exr", "-o", "out.exr", "--light", " 12.5, -4", "--color", "255,128,0",
                                       "--band-rows", "16", "--star-filter", "-3", "--dissolve", "1"});
    EXPECT_EQ(typed.input, "in.exr");
    EXPECT_FALSE(typed.lightIsFraction);
    EXPECT_DOUBLE_EQ(typed.lightX, 12.5);
    EXPECT_DOUBLE_EQ(typed.lightY, -4.0);   // off the frame is allowed: the flare still shows
    EXPECT_EQ(typed.color.green, 128);
    const RenderRequest hex = Check({"--size", "8x8", "-o", "o.png", "--color", "#FF80a0"});
    EXPECT_EQ(std::vector<int>({hex.color.red, hex.color.green, hex.color.blue}), std::vector<int>({255, 128, 160}));
    EXPECT_EQ(typed.bandRows, 16);
    EXPECT_EQ(typed.settings.starFilter, -3);
    EXPECT_EQ(typed.settings.dissolve, 1.0);
}

TEST(RenderOptions, OutOfRangeValuesNameTheOption) {
    const std::vector<std::string> frame = {"--size", "8x8", "-o", "o.png"};
    const auto with = [&](std::vector<std::string> more) {
        more.insert(more.begin(), frame.begin(), frame.end());
        return ErrorOf(more);
    };
    EXPECT_EQ(with({"--color", "256,0,0"}), "--color: '256,0,0' must be three whole numbers from 0 to 255");
    EXPECT_EQ(with({"--color", "1.5,0,0"}).rfind("--color:", 0), 0u);
    EXPECT_EQ(with({"--color", "255,255"}).rfind("--color:", 0), 0u);
    for (const char* hex : {"#fff", "#ff80a0f", "#gg0000", "#"})
        EXPECT_EQ(with({"--color", hex}), std::string("--color: '") + hex + "' must be #RRGGBB, six hexadecimal digits");
    EXPECT_EQ(with({"--frames", "1-3"}), "--frames: only with --scene or an -i frame pattern");
    EXPECT_EQ(with({"--intensity", "nan"}), "--intensity: nan is out of range (at least 0)");
    EXPECT_EQ(with({"--intensity", "inf"}).rfind("--intensity:", 0), 0u);
    EXPECT_EQ(with({"--radius", "-1"}).rfind("--radius:", 0), 0u);
    EXPECT_EQ(with({"--band-rows", "0"}), "--band-rows: 0 must be at least 1");
    EXPECT_EQ(with({"--threads", "-1"}), "--threads: -1 must be at least 0 (0: every core)");
    EXPECT_EQ(with({"--dissolve", "1.5"}), "--dissolve: 1.5 is out of range (from 0 to 1)");
    EXPECT_EQ(with({"--ring-size", "0"}).rfind("--ring-size:", 0), 0u);
    EXPECT_EQ(with({"--light-fraction", "0.5"}), "--light-fraction: '0.5' is not two numbers X,Y");
    EXPECT_EQ(with({"--light", "1,2,"}).rfind("--light:", 0), 0u);
    EXPECT_EQ(with({"--light", "1,,2"}).rfind("--light:", 0), 0u);
    for (const char* size : {"0x8", "8x", "x8", "8*8", "65536x1", "-2x4", "8x8x8"})
        EXPECT_EQ(ErrorOf({"--size", size, "-o", "o.png"}).rfind("--size: '", 0), 0u) << size;
}

// Fractions typed to --light are warned of; pixels, whole corners and --light-fraction are not.
TEST(RenderOptions, WarnOfFractionsGivenAsPixels) {
    const struct {
        std::vector<std::string> light;
        bool warned;
    } cases[] = {
        {{"--light", "0.3,0.35"}, true},
        {{"--light", "1,0.5"}, true},
        {{"--light", "300,350"}, false},
        {{"--light", "0.5,20"}, false},
        {{"--light", "0,0"}, false},
        {{"--light", "1,1"}, false},
        {{"--light-fraction", "0.3,0.35"}, false},
    };
    for (const auto& c : cases) {
        std::vector<std::string> arguments{"--size", "64x48", "-o", "o.png"};
        arguments.insert(arguments.end(), c.light.begin(), c.light.end());
        const std::vector<std::string> warnings = RenderWarnings(Parse(arguments));
        ASSERT_EQ(warnings.size(), c.warned ? 1u : 0u) << c.light[1];
        if (c.warned) EXPECT_NE(warnings[0].find("did you mean --light-fraction " + c.light[1] + "?"), std::string::npos) << warnings[0];
    }
}

TEST(RenderOptions, FrameAndLightChoicesAreExclusive) {
    EXPECT_THROW(Parse({"-o", "o.png"}), CLI::ParseError);
    EXPECT_THROW(Parse({"-i", "a.png", "--size", "8x8", "-o", "o.png"}), CLI::ParseError);
    EXPECT_THROW(Parse({"--size", "8x8", "-o", "o.png", "--light", "1,2", "--light-fraction", "0.1,0.2"}),
                 CLI::ParseError);
    EXPECT_THROW(Parse({"--size", "8x8"}), CLI::ParseError);   // no output
}

// Each setting reaches the record under its own option name; a switch given alone is on.
TEST(RenderOptions, EverySettingIsAnOptionOfItsName) {
    const struct {
        const char* option;
        const char* text;
        SettingValue value;
    } cases[] = {
        {"--flare-intensity", "0.8", 0.8},        {"--dissolve", "0.25", 0.25},
        {"--anamorphic-factor", "2.4", 2.4},      {"--ring-size", "0.3", 0.3},
        {"--ring-color", "#FF8000", LightColor{255, 128, 0}}, {"--star-rotation", "-22.5", -22.5},
        {"--star-filter", "6", int32_t(6)},       {"--streak-density", "40", 40.0},
        {"--streak-intensity", "0.05", 0.05},     {"--streak-sharpness", "4", 4.0},
        {"--glow", "off", false},                 {"--glow-in-light-color", "no", false},
        {"--halo", "off", false},                 {"--reflections", "false", false},
        {"--anamorphic", "on", true},             {"--anamorphic-streak", "", true},
        {"--random-streaks", "off", false},       {"--streaks-off-frame", "off", false},
        {"--follow-light-size", "", true},        {"--wireframe-preview", "on", true},
    };
    std::set<std::string> covered;
    for (const auto& c : cases) {
        std::vector<std::string> arguments{"--size", "8x8", "-o", "o.png", c.option};
        if (*c.text) arguments.push_back(c.text);
        const RenderRequest request = Check(arguments);
        std::vector<uint8_t> bytes = DefaultSettingsRecord();
        ApplySettingEdits(request.settings, bytes);
        ControlDataRec control;
        std::memcpy(&control, bytes.data(), sizeof(control));
        const SettingName& setting = *FindSetting(std::string(c.option).substr(2));
        const std::optional<SettingValue> got = RecordValue(setting, control);
        ASSERT_TRUE(got) << c.option;
        EXPECT_EQ(SettingJson(*got), SettingJson(c.value)) << c.option;
        covered.insert(c.option);
    }
    EXPECT_EQ(covered.size(), SettingNames().size());
}

TEST(RenderOptions, SettingValuesOutOfRangeOrUnreadableAreNamed) {
    const struct {
        std::vector<std::string> option;
        const char* message;
    } cases[] = {
        {{"--dissolve", "1.5"}, "--dissolve: 1.5 is out of range (from 0 to 1)"},
        {{"--ring-size", "0"}, "--ring-size: 0 is out of range (more than 0)"},
        {{"--streak-intensity", "-1"}, "--streak-intensity: -1 is out of range (at least 0)"},
        {{"--star-rotation", "inf"}, "--star-rotation: inf is out of range (a finite number)"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> arguments{"--size", "8x8", "-o", "o.png"};
        arguments.insert(arguments.end(), c.option.begin(), c.option.end());
        EXPECT_EQ(ErrorOf(arguments), c.message);
    }
    const struct {
        std::vector<std::string> option;
        const char* message;
    } unreadable[] = {
        {{"--halo", "maybe"}, "--halo: 'maybe' is not on or off"},
        {{"--streak-sharpness", "sharp"}, "--streak-sharpness: 'sharp' is not a number"},
        {{"--star-filter", "1.5"}, "--star-filter: '1.5' is not a whole number"},
        {{"--ring-color", "300,0,0"}, "--ring-color: '300,0,0' must be three whole numbers from 0 to 255"},
    };
    for (const auto& c : unreadable) {
        std::vector<std::string> arguments{"--size", "8x8", "-o", "o.png"};
        arguments.insert(arguments.end(), c.option.begin(), c.option.end());
        try {
            Parse(arguments);
            ADD_FAILURE() << c.message;
        } catch (const CLI::ParseError& error) {
            EXPECT_NE(std::string(error.what()).find(c.message), std::string::npos) << error.what();
        }
    }
}

// A switch alone is on wherever it stands, and a negative number after an option is its value,
// not another option.
TEST(RenderOptions, SwitchesAloneAndNegativeValuesParse) {
    const struct {
        std::vector<std::string> arguments;
        std::optional<bool> halo, anamorphic;
        std::optional<double> starRotation;
        std::optional<int32_t> starFilter;
    } cases[] = {
        {{"--halo", "-o", "o.png", "--size", "8x8"}, true, {}, {}, {}},
        {{"--halo", "off", "-o", "o.png", "--size", "8x8"}, false, {}, {}, {}},
        {{"--size", "8x8", "-o", "o.png", "--halo=off", "--anamorphic"}, false, true, {}, {}},
        {{"--size", "8x8", "-o", "o.png", "--anamorphic", "--star-rotation", "-30"}, {}, true, -30.0, {}},
        {{"--size", "8x8", "-o", "o.png", "--star-filter", "-3", "--halo"}, true, {}, {}, -3},
        {{"--size", "8x8", "-o", "o.png", "--star-rotation=-22.5", "--star-filter=-1"}, {}, {}, -22.5, -1},
    };
    for (const auto& c : cases) {
        const RenderRequest request = Check(c.arguments);
        const std::string line = ::testing::PrintToString(c.arguments);
        EXPECT_EQ(request.settings.halo, c.halo) << line;
        EXPECT_EQ(request.settings.anamorphic, c.anamorphic) << line;
        EXPECT_EQ(request.settings.starRotation, c.starRotation) << line;
        EXPECT_EQ(request.settings.starFilter, c.starFilter) << line;
    }
    EXPECT_EQ(ErrorOf({"--size", "8x8", "-o", "o.png", "--dissolve", "-0.5"}), "--dissolve: -0.5 is out of range (from 0 to 1)");
}

TEST(PluginSettings, EditsChangeOnlyTheirFieldsAndNeedAWholeRecord) {
    ControlDataRec control{};
    control.flareIntensity = 0.5;
    control.flareRingSize = 0.22;
    control.flareFlags = 0x7B000000u;
    std::vector<uint8_t> bytes(sizeof(control));
    std::memcpy(bytes.data(), &control, sizeof(control));

    SettingEdits edits;
    edits.dissolve = 0.25;
    edits.starFilter = 6;
    edits.anamorphicStreak = true;
    edits.halo = false;
    edits.ringColor = LightColor{255, 128, 0};
    edits.starRotation = 30.0;
    ApplySettingEdits(edits, bytes);
    ControlDataRec edited;
    std::memcpy(&edited, bytes.data(), sizeof(edited));
    EXPECT_EQ(edited.flareDissolve, 0.25);
    EXPECT_EQ(edited.flareStarFilter, 6);
    EXPECT_EQ(edited.flareFlags, (0x7B000000u | kFlagAnamorphicStreak) & ~kFlagHalo);
    EXPECT_EQ(edited.flareRingColor.red, -1);            // 0xFF as the record's 0xFFFF
    EXPECT_EQ(uint16_t(edited.flareRingColor.green), 128 * 257);
    EXPECT_EQ(edited.flareRingColor.blue, 0);
    EXPECT_EQ(edited.flareStarRotation, 30.0);
    EXPECT_EQ(edited.flareIntensity, 0.5);
    EXPECT_EQ(edited.flareRingSize, 0.22);

    std::vector<uint8_t> shortRecord(sizeof(control) - 1);
    EXPECT_THROW(ApplySettingEdits(edits, shortRecord), std::runtime_error);
}

}  // namespace
