// The settings by name: every setting there and back through the record and through JSON, what
// the names cannot say kept in the record beside them, looks and scenes that name their table,
// and the message each mistake gets.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "engine/scene.h"
#include "engine/scene_keys.h"
#include "engine/setting_assignments.h"
#include "engine/setting_names.h"

namespace {

using namespace vellux::engine;

// Values each kind of setting must carry exactly, awkward ones included.
std::vector<SettingValue> Samples(const SettingName& setting) {
    switch (setting.kind) {
    case SettingKind::number: {
        std::vector<SettingValue> values{0.1 + 0.2, 1.0 / 3.0, 1e-300, 0.75};
        if (setting.minIncluded) values.push_back(setting.min);
        if (!std::isfinite(setting.max)) values.push_back(12345.678901234567);
        if (!std::isfinite(setting.min)) values.push_back(-0.0), values.push_back(-720.125);
        return values;
    }
    case SettingKind::whole: return {0, -3, std::numeric_limits<int32_t>::max(), std::numeric_limits<int32_t>::min()};
    case SettingKind::color: return {LightColor{0, 0, 0}, LightColor{255, 128, 1}, LightColor{0x50, 0x14, 0x0A}};
    case SettingKind::onOff: return {true, false};
    }
    return {};
}

bool Same(const SettingValue& a, const SettingValue& b) {
    if (a.index() != b.index()) return false;
    if (const auto* x = std::get_if<double>(&a)) return std::memcmp(x, &std::get<double>(b), sizeof(double)) == 0;
    if (const auto* x = std::get_if<LightColor>(&a)) {
        const LightColor& y = std::get<LightColor>(b);
        return x->red == y.red && x->green == y.green && x->blue == y.blue;
    }
    if (const auto* x = std::get_if<int32_t>(&a)) return *x == std::get<int32_t>(b);
    return std::get<bool>(a) == std::get<bool>(b);
}

ControlDataRec Control(const std::vector<uint8_t>& bytes) {
    ControlDataRec control;
    std::memcpy(&control, bytes.data(), sizeof(control));
    return control;
}

TEST(SettingNames, EverySettingRoundTripsThroughTheRecordAndJson) {
    std::set<std::string_view> names;
    for (const SettingName& setting : SettingNames()) {
        EXPECT_TRUE(names.insert(setting.name).second) << setting.name << " twice";
        EXPECT_EQ(FindSetting(setting.name), &setting);
        for (const SettingValue& value : Samples(setting)) {
            SettingEdits edits;
            SetEdit(setting, value, edits);
            std::vector<uint8_t> bytes = DefaultSettingsRecord();
            ApplySettingEdits(edits, bytes);
            const std::optional<SettingValue> back = RecordValue(setting, Control(bytes));
            ASSERT_TRUE(back.has_value()) << setting.name;
            EXPECT_TRUE(Same(*back, value)) << setting.name << " " << SettingJson(value).dump();
            const auto json = nlohmann::ordered_json::parse(SettingJson(value).dump());
            EXPECT_TRUE(Same(ReadSettingJson(setting, json), value)) << setting.name << " " << json.dump();
        }
    }
    // The record's every setting has a name: none of its switches or fields is left over.
    uint32_t flags = 0;
    for (const SettingName& setting : SettingNames()) flags |= setting.flag;
    EXPECT_EQ(flags, 0xFFC00000u);
}

// Settings as NAME=VALUE text (the GIMP plug-in's argument, written back by its dialog): every
// value of every setting there and back exactly, all of them in one text.
TEST(SettingNames, EverySettingRoundTripsThroughAssignmentText) {
    SettingEdits all;
    for (const SettingName& setting : SettingNames()) {
        for (const SettingValue& value : Samples(setting)) {
            if (const auto* number = std::get_if<double>(&value); number && RangeProblem(setting, *number)) continue;
            SettingEdits edits;
            SetEdit(setting, value, edits);
            const std::string text = SettingAssignmentsText(edits);
            const std::optional<SettingValue> back = EditOf(setting, ParseSettingAssignments(text));
            ASSERT_TRUE(back.has_value()) << text;
            EXPECT_TRUE(Same(*back, value)) << text;
            SetEdit(setting, value, all);
        }
    }
    const SettingEdits back = ParseSettingAssignments(SettingAssignmentsText(all));
    EXPECT_EQ(SettingAssignmentsText(back), SettingAssignmentsText(all));
    for (const SettingName& setting : SettingNames()) EXPECT_TRUE(EditOf(setting, back).has_value()) << setting.name;
    EXPECT_EQ(SettingAssignmentsText(ParseSettingAssignments(" ring-size=1.5,,halo=off\n")), "ring-size=1.5 halo=off");
    EXPECT_EQ(SettingAssignmentsText(ParseSettingAssignments("")), "");
}

TEST(SettingNames, AssignmentTextMistakesSayWhatIsWrong) {
    const struct {
        const char* text;
        const char* message;
    } cases[] = {
        {"ring-size", "\"ring-size\" is not NAME=VALUE"},
        {"=2", "\"=2\" is not NAME=VALUE"},
        {"ring-sise=2", "\"ring-sise\" is not a setting (did you mean ring-size?)"},
        {"ring-size=0", "ring-size: 0 is out of range (more than 0)"},
        {"dissolve=1.5", "dissolve: 1.5 is out of range (from 0 to 1)"},
    };
    for (const auto& c : cases) {
        try {
            ParseSettingAssignments(c.text);
            ADD_FAILURE() << c.text << " was taken";
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), c.message) << c.text;
        }
    }
    for (const char* text : {"ring-size=wide", "halo=maybe", "star-filter=1.5", "ring-color=#12"})
        EXPECT_THROW(ParseSettingAssignments(text), std::invalid_argument) << text;
}

// A scene's channel animates one setting, of its kind and over its range, which front ends key it
// by (Python's scene.key("flare_intensity", ...) is the "Intensity" channel).
TEST(SettingNames, EachSceneChannelAnimatesANamedSettingOverItsRange) {
    std::set<std::string_view> animated;
    for (const SceneChannel& channel : SceneChannels()) {
        SCOPED_TRACE(channel.name);
        const SettingName* setting = FindSetting(channel.setting);
        ASSERT_NE(setting, nullptr) << channel.setting;
        EXPECT_TRUE(animated.insert(channel.setting).second);
        if (channel.type == kChannelColor) {
            EXPECT_EQ(setting->kind, SettingKind::color);
            continue;
        }
        EXPECT_EQ(setting->kind, SettingKind::number);
        EXPECT_EQ(channel.low, setting->min);
        EXPECT_EQ(channel.high, setting->max);
    }
}

TEST(SettingNames, WhatTheNamesCannotSayStaysInTheRecord) {
    const auto control = [](auto change) {
        std::vector<uint8_t> bytes = DefaultSettingsRecord();
        ControlDataRec c = Control(bytes);
        change(c);
        std::memcpy(bytes.data(), &c, sizeof(c));
        return SettingsRecord{NativeByteOrder(), bytes};
    };
    const SettingsRecord awkward[] = {
        control([](ControlDataRec& c) { c.flareIntensity = std::nan(""); }),
        control([](ControlDataRec& c) { c.flareDissolve = 1.5; }),
        control([](ControlDataRec& c) { c.flareRingColor.green = 0x1234; }),
        control([](ControlDataRec& c) { c.flareRingColor.alpha = 0; }),
        control([](ControlDataRec& c) { c.flareFlags |= 0x5u; }),
    };
    for (const SettingsRecord& record : awkward) {
        const std::string text = WriteSettingsText(record);
        EXPECT_NE(text.find("\"hex\""), std::string::npos) << text;
        const SettingsReadResult read = ReadSettingsText(text);
        ASSERT_TRUE(read.settings) << read.errors.front().Text();
        EXPECT_EQ(read.settings->bytes, record.bytes) << text;
        EXPECT_EQ(WriteSettingsText(*read.settings), text);
    }
}

TEST(SettingNames, LooksAreReadableAndNameTheirSource) {
    SettingEdits edits;
    edits.flareIntensity = 0.8, edits.ringColor = LightColor{255, 128, 0}, edits.halo = false, edits.starFilter = 6;
    std::vector<uint8_t> bytes = DefaultSettingsRecord();
    ApplySettingEdits(edits, bytes);
    const SettingsRecord record{NativeByteOrder(), bytes};

    const LookSource sources[] = {{}, {"Vellux", std::nullopt}, {"", LookLens{"double-gauss-50mm", 4.0, 0.2, 15.0, 6}}};
    for (const LookSource& source : sources) {
        const std::string text = WriteSettingsText(record, source);
        EXPECT_EQ(text.find("\"hex\""), std::string::npos) << text;
        EXPECT_NE(text.find("\"ring-color\": \"#FF8000\""), std::string::npos) << text;
        const SettingsReadResult read = ReadSettingsText(text);
        ASSERT_TRUE(read.settings) << read.errors.front().Text();
        EXPECT_EQ(read.settings->bytes, bytes);
        EXPECT_EQ(read.source.table, source.table);
        EXPECT_EQ(read.source.lens.has_value(), source.lens.has_value());
        if (source.lens) EXPECT_EQ(read.source.lens->blades, 6);
        EXPECT_EQ(WriteSettingsText(*read.settings, read.source), text);
    }

    // A hand-written look: names not given keep the plug-in's defaults; over a record, names win.
    const SettingsReadResult some = ReadSettingsText(R"({"settings": {"halo": "off", "ring-color": [255, 128, 0]}})");
    ASSERT_TRUE(some.settings);
    EXPECT_EQ(Control(some.settings->bytes).flareFlags, 0x7B000000u & ~kFlagHalo);
    const std::string old = R"({"settings": {"byteOrder": "little", "hex": "58554c56010000009a9999999999e93f000000000000d03f52b81e85eb51fc3f333333333333d33f0000000000002e4000000000000044409a9999999999a93f0000000000001040ffffffff808000000000006f06000000", "dissolve": 0.5}})";
    const SettingsReadResult over = ReadSettingsText(old);
    ASSERT_TRUE(over.settings) << over.errors.front().Text();
    EXPECT_EQ(DecodeSettings(*over.settings).flareDissolve, 0.5);
    EXPECT_EQ(DecodeSettings(*over.settings).flareStarFilter, 6);
}

TEST(SettingNames, RecordsKeepTheirByteOrderThroughLooksAndScenes) {
    SettingEdits edits;
    edits.flareIntensity = 0.8, edits.starFilter = -3, edits.halo = false;
    std::vector<uint8_t> named = DefaultSettingsRecord();
    ApplySettingEdits(edits, named);
    std::vector<uint8_t> awkward = named;   // a colour the names cannot say: the record goes beside them
    ControlDataRec odd = Control(awkward);
    odd.flareRingColor.green = 0x1234;
    std::memcpy(awkward.data(), &odd, sizeof(odd));

    for (const ByteOrder order : {ByteOrder::little, ByteOrder::big}) {
        for (const auto& bytes : {named, awkward}) {
            const SettingsRecord record = EncodeSettings(Control(bytes), order);
            EXPECT_EQ(DecodeSettings(record).flareStarFilter, -3);
            const std::string look = WriteSettingsText(record, {"Vellux", std::nullopt});
            const SettingsReadResult read = ReadSettingsText(look);
            ASSERT_TRUE(read.settings) << read.errors.front().Text();
            EXPECT_EQ(read.settings->byteOrder, order) << look;
            EXPECT_EQ(read.settings->bytes, record.bytes) << look;
            EXPECT_EQ(WriteSettingsText(*read.settings, read.source), look);

            Scene scene;
            scene.width = scene.height = 8;
            scene.light[1] = LightKey{};
            scene.settings = record;
            const SceneReadResult back = ReadScene(WriteScene(scene));
            ASSERT_TRUE(back.scene) << back.errors.front().Text();
            EXPECT_EQ(back.scene->settings->byteOrder, order);
            EXPECT_EQ(back.scene->settings->bytes, record.bytes);
        }
    }

    // A look of an earlier version holds only the record, in the order of the machine that wrote
    // it; names beside a record change it in that order.
    const std::string hex = "564c5558000000013fe0000000000000" + std::string(176 - 32, '0');
    for (const char* names : {"", R"(, "star-filter": 5)"}) {
        const SettingsReadResult old = ReadSettingsText(R"({"settings": {"byteOrder": "big", "hex": ")" + hex + "\"" + names + "}}");
        ASSERT_TRUE(old.settings) << old.errors.front().Text();
        EXPECT_EQ(old.settings->byteOrder, ByteOrder::big);
        EXPECT_EQ(old.settings->bytes[0], 0x56);
        EXPECT_EQ(DecodeSettings(*old.settings).flareIntensity, 0.5);
        EXPECT_EQ(DecodeSettings(*old.settings).flareStarFilter, *names ? 5 : 0);
        EXPECT_EQ(ReadSettingsText(WriteSettingsText(*old.settings)).settings->bytes, old.settings->bytes);
    }
}

TEST(SettingNames, MistakesAreNamedWithTheirKeyAndValue) {
    const struct {
        const char* text;
        const char* message;
    } cases[] = {
        {R"({"settings": {"dissolve": 1.5}})", "settings.dissolve: 1.5 is out of range (from 0 to 1)"},
        {R"({"settings": {"ring-size": 0}})", "settings.ring-size: 0 is out of range (more than 0)"},
        {R"({"settings": {"glw": true}})", "settings.glw: unknown key"},
        {R"({"settings": {"halo": "maybe"}})", "settings.halo: must be true or false (on or off), not \"maybe\""},
        {R"({"settings": {"ring-color": "#12"}})", "settings.ring-color: must be \"#RRGGBB\" or \"R,G,B\" from 0 to 255, not \"#12\""},
        {R"({"settings": {"star-filter": 1.5}})", "settings.star-filter: must be a whole number (32 bits), not 1.5"},
        {R"({"settings": {"flare-intensity": "high"}})", "settings.flare-intensity: must be a number, not \"high\""},
        {R"({"settings": {"glow": true, "hex": "58554c56"}})", "settings.byteOrder: is missing"},
        {R"({"settings": {}})", "settings.byteOrder: is missing"},
        {R"({"settings": {"glow": true, "byteOrder": "middle"}})", "settings.byteOrder: must be \"little\" or \"big\""},
        {R"({"table": 3, "settings": {"glow": true}})", "table: must be a string"},
        {R"({"tabel": "Vellux", "settings": {"glow": true}})", "tabel: unknown key"},
        {R"({"lens": {"name": "x", "blades": 40}, "settings": {"glow": true}})", "lens.blades: must be a whole number in 0..32"},
    };
    for (const auto& c : cases) {
        const SettingsReadResult read = ReadSettingsText(c.text);
        EXPECT_FALSE(read.settings) << c.text;
        ASSERT_FALSE(read.errors.empty()) << c.text;
        EXPECT_EQ(read.errors.front().Text(), c.message) << c.text;
    }
}

TEST(SettingNames, ScenesNameTheirTableAndSettings) {
    const std::string text = R"({
  "frames": {"first": 1, "last": 2},
  "image": {"width": 32, "height": 16},
  "light": {"units": "fraction", "keys": {"1": {"position": [0.5, 0.5], "color": [255, 255, 255], "intensity": 1, "radius": 0}}},
  "table": "Vellux",
  "settings": {"star-rotation": 30, "reflections": false},
  "channels": {"Intensity": {"1": 0.5}}
})";
    const SceneReadResult read = ReadScene(text);
    ASSERT_TRUE(read.scene) << read.errors.front().Text();
    EXPECT_EQ(read.scene->table, "Vellux");
    const ControlDataRec control = DecodeSettings(*read.scene->settings);
    EXPECT_EQ(control.flareStarRotation, 30.0);
    EXPECT_EQ(control.flareFlags & kFlagReflections, 0u);
    const std::string written = WriteScene(*read.scene);
    EXPECT_NE(written.find("\"table\": \"Vellux\""), std::string::npos) << written;
    EXPECT_EQ(WriteScene(*ReadScene(written).scene), written);

    std::string misspelt = text;
    misspelt.replace(misspelt.find("\"table\""), 7, "\"tabel\"");
    const SceneReadResult refused = ReadScene(misspelt);
    ASSERT_FALSE(refused.errors.empty());
    EXPECT_EQ(refused.errors.front().Text(), "tabel: unknown key");
}

}  // namespace
