// Scene files: reading with JSON paths in every error, the canonical writing, the light's
// interpolation, and the channel keys reaching the host's channel store.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include <nlohmann/json.hpp>

#include "host/host_session.h"
#include "host/plugin_library.h"
#include "host/resource_services.h"
#include "engine/option_values.h"
#include "engine/scene.h"
#include "engine/setting_names.h"

namespace {

using namespace vellux::engine;
using Json = nlohmann::json;

Scene Sample() {
    Scene scene;
    scene.firstFrame = 1;
    scene.lastFrame = 48;
    scene.width = 1920;
    scene.height = 1080;
    scene.light[1] = {1400.0, 300.0, {255, 200, 10}, 1.0, 0.0};
    scene.light[24] = {0.1, -3e-7, {0, 0, 0}, 1.5, 12.25};
    scene.channels["Ring Color"][1] = std::array<int16_t, 3>{20560, -5140, 2570};
    scene.channels["Intensity"][10] = 1.0 / 3.0;
    scene.channels["Intensity"][1] = 0.5;
    scene.channels["Dissolve"];   // published without keys
    scene.fNumber[1] = 2.0;
    scene.fNumber[48] = 8.0;
    return scene;
}

// The plug-in's own default settings record, as it writes it on this machine.
SettingsRecord PluginSettings() {
    vellux::host::SetHomeDirectory(VELLUX_COMPILED_TABLES_DIR);
    vellux::host::PluginLibrary plugin(VELLUX_PLUGIN_PATH);
    vellux::host::HostSession host;
    PluginInitializeRec init{host.Info()};
    EXPECT_EQ(plugin.Call(kCmdInitialize, int32_t(sizeof(init)), &init), kNoError);
    return {NativeByteOrder(), host.controlData()};
}

TEST(Scene, WritesReadBackByteForByte) {
    Scene scene = Sample();
    scene.settings = PluginSettings();
    const std::string text = WriteScene(scene);
    const SceneReadResult read = ReadScene(text);
    ASSERT_TRUE(read.scene) << read.errors.front().Text();
    EXPECT_EQ(WriteScene(*read.scene), text);
    EXPECT_EQ(read.scene->settings->bytes, scene.settings->bytes);
    EXPECT_EQ(std::get<double>(read.scene->channels.at("Intensity").at(10)), 1.0 / 3.0);
    EXPECT_EQ(read.scene->light.at(24).y, -3e-7);
    EXPECT_EQ(read.scene->fNumber, scene.fNumber);

    // A sequence instead of a size, light in fractions, no settings, no channels; through a file.
    scene = Sample();
    scene.input = "plates/shot.%04d.exr";
    scene.lightUnits = LightUnits::fraction;
    scene.channels.clear();
    const auto path = std::filesystem::temp_directory_path() / ("vellux-scene-" + std::to_string(getpid()) + ".json");
    WriteSceneFile(path, scene);
    const SceneReadResult file = ReadSceneFile(path);
    ASSERT_TRUE(file.scene);
    EXPECT_EQ(file.scene->input, scene.input);
    WriteSceneFile(path, *file.scene);
    std::ifstream in(path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), WriteScene(scene));
    std::filesystem::remove(path);
    EXPECT_FALSE(ReadSceneFile(path).scene);
}

TEST(Scene, InterpolationsWriteReadBackAndLinearIsTheDefault) {
    Scene scene = Sample();
    scene.lightModes = {Interpolation::smooth, {{24, Interpolation::constant}}};
    scene.channelModes["Intensity"] = {Interpolation::linear, {{10, Interpolation::smooth}}};
    scene.channelModes["Ring Color"] = {Interpolation::constant, {}};
    scene.fNumberModes = {Interpolation::smooth, {}};
    const std::string text = WriteScene(scene);
    const SceneReadResult read = ReadScene(text);
    ASSERT_TRUE(read.scene) << read.errors.front().Text();
    EXPECT_EQ(read.scene->lightModes, scene.lightModes);
    EXPECT_EQ(read.scene->channelModes, scene.channelModes);
    EXPECT_EQ(read.scene->fNumberModes, scene.fNumberModes);
    EXPECT_EQ(read.scene->channels, scene.channels);
    EXPECT_EQ(WriteScene(*read.scene), text);

    // Asking for linear everywhere is the scene without interpolations, written as before.
    Json linear = Json::parse(WriteScene(Sample()));
    linear["light"]["interpolation"] = "linear";
    linear["light"]["keys"]["1"]["interpolation"] = "linear";
    linear["channels"]["Intensity"] = {{"interpolation", "linear"}, {"keys", linear["channels"]["Intensity"]}};
    SceneReadResult plain = ReadScene(linear.dump());
    ASSERT_TRUE(plain.scene) << plain.errors.front().Text();
    EXPECT_EQ(LightAt(*plain.scene, 7).x, LightAt(Sample(), 7).x);
    plain.scene->lightModes = {};
    plain.scene->channelModes.clear();
    EXPECT_EQ(WriteScene(*plain.scene), WriteScene(Sample()));
}

TEST(Scene, SmoothLightKeepsItsValuesInRange) {
    Scene scene;
    scene.light = {{0, {0.0, 0.0, {0, 255, 0}, 0.0, 0.0}}, {10, {100.0, 50.0, {255, 255, 0}, 4.0, 9.0}},
                   {12, {90.0, 80.0, {255, 0, 0}, 0.0, 0.0}}};
    scene.lightModes.all = Interpolation::smooth;
    for (int32_t frame = 0; frame <= 12; ++frame) {
        const LightState light = LightAt(scene, frame);
        for (const double c : light.color) EXPECT_TRUE(c >= 0.0 && c <= 255.0) << frame;
        EXPECT_GE(light.intensity, 0.0);
        EXPECT_GE(light.radius, 0.0);
    }
    EXPECT_EQ(LightAt(scene, 10).x, 100.0);
    EXPECT_NE(LightAt(scene, 5).x, 50.0);   // eased, not the straight line
}

TEST(Scene, SettingsOfTheOtherByteOrderLoadAsStored) {
    Scene scene = Sample();
    SettingsRecord record = PluginSettings();
    // Every field reversed, as a machine of the other order writes it: only the bytes and the
    // note change hands; the owner code must read as the plug-in's in the order noted.
    std::reverse(record.bytes.begin(), record.bytes.begin() + 4);
    record.byteOrder = NativeByteOrder() == ByteOrder::little ? ByteOrder::big : ByteOrder::little;
    scene.settings = record;
    const SceneReadResult read = ReadScene(WriteScene(scene));
    ASSERT_TRUE(read.scene);
    EXPECT_EQ(read.scene->settings->bytes, record.bytes);
    EXPECT_EQ(read.scene->settings->byteOrder, record.byteOrder);
}

// The table's defaults are the plug-in's: they rebuild its own record byte for byte, a look of
// that record needs no hex, and each setting's help states the default the record holds.
TEST(Scene, TheSettingsTablesDefaultsAreThePluginsOwnRecord) {
    const SettingsRecord plugin = PluginSettings();
    EXPECT_EQ(DefaultSettingsRecord(), plugin.bytes);
    const std::string look = WriteSettingsText(plugin);
    EXPECT_EQ(look.find("\"hex\""), std::string::npos) << look;
    EXPECT_EQ(ReadSettingsText(look).settings->bytes, plugin.bytes);

    ControlDataRec control;
    std::memcpy(&control, plugin.bytes.data(), sizeof(control));
    for (const SettingName& setting : SettingNames()) {
        const std::optional<SettingValue> value = RecordValue(setting, control);
        ASSERT_TRUE(value) << setting.name;
        std::string stated;
        if (const auto* number = std::get_if<double>(&*value)) stated = NumberText(*number);
        else if (const auto* whole = std::get_if<int32_t>(&*value)) stated = std::to_string(*whole);
        else if (const auto* on = std::get_if<bool>(&*value)) stated = *on ? "on" : "off";
        else stated = SettingJson(*value).get<std::string>();
        EXPECT_NE(setting.meaning.find("(plug-in default " + stated + ")"), std::string::npos)
            << setting.name << ": " << setting.meaning;
    }
}

TEST(Scene, LightInterpolatesBetweenKeysAndHoldsOutside) {
    Scene scene;
    scene.light[10] = {0.0, 100.0, {0, 255, 10}, 0.0, 4.0};
    scene.light[20] = {10.0, 0.0, {255, 0, 10}, 2.0, 0.0};
    const LightState middle = LightAt(scene, 15);
    EXPECT_EQ(middle.x, 5.0);
    EXPECT_EQ(middle.y, 50.0);
    EXPECT_EQ(middle.color, (std::array<double, 3>{127.5, 127.5, 10.0}));
    EXPECT_EQ(middle.intensity, 1.0);
    EXPECT_EQ(middle.radius, 2.0);
    EXPECT_EQ(LightAt(scene, 0).x, 0.0);
    EXPECT_EQ(LightAt(scene, 99).x, 10.0);
    EXPECT_EQ(LightAt(scene, 20).intensity, 2.0);
    // An aperture pull interpolates the same way; unkeyed, there is none.
    EXPECT_FALSE(FNumberAt(scene, 15));
    scene.fNumber = {{10, 2.0}, {20, 8.0}};
    EXPECT_EQ(*FNumberAt(scene, 15), 5.0);
    EXPECT_EQ(*FNumberAt(scene, 0), 2.0);
    EXPECT_EQ(*FNumberAt(scene, 99), 8.0);
}

TEST(Scene, ChannelKeysReachThePublishedChannels) {
    vellux::host::ChannelStore store;
    const double fallback = 0.0;
    store.Add(2, kChannelReal, "Intensity", &fallback);
    store.Add(6, kChannelColor, "Ring Color", nullptr);
    const Scene scene = Sample();   // also keys "Dissolve", which this store has not published
    EXPECT_EQ(KeyChannels(scene, store), std::vector<std::string>{"Dissolve"});
    const auto* color = store.FindByName("Ring Color");
    int16_t green = 0;
    std::memcpy(&green, vellux::host::ChannelStore::ValueAt(*color, 7).data() + 2, 2);
    EXPECT_EQ(green, -5140);
    double intensity = 0;
    std::memcpy(&intensity, vellux::host::ChannelStore::ValueAt(*store.FindByName("Intensity"), 4).data(), 8);
    EXPECT_DOUBLE_EQ(intensity, 0.5 + (1.0 / 3.0 - 0.5) * 3 / 9);
}

// Each class of mistake, made once in an otherwise good scene, gives exactly one error at its path.
TEST(Scene, EachMistakeIsReportedAtItsPath) {
    Scene good = Sample();
    good.settings = SettingsRecord{ByteOrder::big, std::vector<uint8_t>(sizeof(ControlDataRec), 0)};
    std::memcpy(good.settings->bytes.data(), "VLUX", 4);
    const Json base = Json::parse(WriteScene(good));
    ASSERT_TRUE(ReadScene(base.dump()).scene);

    struct Case {
        const char* path;
        std::function<void(Json&)> change;
    };
    const Case cases[] = {
        {"frames.first", [](Json& j) { j["frames"]["first"] = "1"; }},
        {"frames.first", [](Json& j) { j["frames"]["first"] = -1; }},
        {"frames.first", [](Json& j) { j["frames"]["first"] = 1.5; }},
        {"frames.last", [](Json& j) { j["frames"]["last"] = 0; }},
        {"frames.last", [](Json& j) { j["frames"].erase("last"); }},
        {"image.width", [](Json& j) { j["image"]["width"] = 70000; }},
        {"image", [](Json& j) { j["image"]["input"] = "a.%d.exr"; }},
        {"image.input", [](Json& j) { j["image"] = {{"input", "a.%d.%d.exr"}}; }},
        {"light.units", [](Json& j) { j["light"]["units"] = "inches"; }},
        {"light.keys", [](Json& j) { j["light"]["keys"] = Json::object(); }},
        {"light.keys.01", [](Json& j) { j["light"]["keys"]["01"] = j["light"]["keys"]["1"]; }},
        {"light.keys.1.color[0]", [](Json& j) { j["light"]["keys"]["1"]["color"][0] = 256; }},
        {"light.keys.1.position", [](Json& j) { j["light"]["keys"]["1"]["position"] = {1.0}; }},
        {"light.keys.24.intensity", [](Json& j) { j["light"]["keys"]["24"]["intensity"] = -0.5; }},
        {"light.keys.24.radius", [](Json& j) { j["light"]["keys"]["24"].erase("radius"); }},
        {"light.keys.24.glow", [](Json& j) { j["light"]["keys"]["24"]["glow"] = 1; }},
        {"settings.hex", [](Json& j) { j["settings"]["hex"] = j["settings"]["hex"].get<std::string>() + "00"; }},
        {"settings.hex", [](Json& j) { j["settings"]["byteOrder"] = "little"; }},
        {"settings.hex", [](Json& j) { j["settings"]["hex"] = "x" + j["settings"]["hex"].get<std::string>().substr(1); }},
        {"settings.byteOrder", [](Json& j) { j["settings"]["byteOrder"] = 1; }},
        {"channels.Glare", [](Json& j) { j["channels"]["Glare"] = Json::object(); }},
        {"channels.Intensity.10", [](Json& j) { j["channels"]["Intensity"]["10"] = "high"; }},
        {"channels.Ring Color.1[2]", [](Json& j) { j["channels"]["Ring Color"]["1"][2] = 40000; }},
        {"lens.fNumber.48", [](Json& j) { j["lens"]["fNumber"]["48"] = 0.2; }},
        {"lens.fNumber.48", [](Json& j) { j["lens"]["fNumber"]["48"] = "f/8"; }},
        {"lens.blades", [](Json& j) { j["lens"]["blades"] = 6; }},
        {"channels.Ring Color.1", [](Json& j) { j["channels"]["Ring Color"]["1"] = 3; }},
        {"channels.Dissolve", [](Json& j) { j["channels"]["Dissolve"] = 0.5; }},
        {"light.interpolation", [](Json& j) { j["light"]["interpolation"] = "cubic"; }},
        {"light.keys.24.interpolation", [](Json& j) { j["light"]["keys"]["24"]["interpolation"] = "Smooth"; }},
        {"channels.Intensity.interpolation",
         [](Json& j) { j["channels"]["Intensity"] = {{"interpolation", "ease"}, {"keys", j["channels"]["Intensity"]}}; }},
        {"channels.Intensity.keys.10.interpolation",
         [](Json& j) { j["channels"]["Intensity"] = {{"keys", {{"10", {{"value", 1.0}, {"interpolation", 2}}}}}}; }},
        {"channels.Intensity.keys.10.value",
         [](Json& j) { j["channels"]["Intensity"] = {{"keys", {{"10", {{"value", "1"}, {"interpolation", "smooth"}}}}}}; }},
        {"channels.Intensity.10.glide", [](Json& j) { j["channels"]["Intensity"]["10"] = {{"value", 1.0}, {"interpolation", "smooth"}, {"glide", 1}}; }},
        {"lens.fNumber.interpolation", [](Json& j) { j["lens"]["fNumber"] = {{"interpolation", ""}, {"keys", {{"1", 2.0}}}}; }},
    };
    for (const Case& c : cases) {
        Json changed = base;
        c.change(changed);
        const SceneReadResult read = ReadScene(changed.dump());
        EXPECT_FALSE(read.scene) << c.path;
        ASSERT_EQ(read.errors.size(), 1u) << c.path << ": " << (read.errors.empty() ? "" : read.errors[0].Text());
        EXPECT_EQ(read.errors[0].path, c.path) << read.errors[0].Text();
    }

    // Numbers JSON cannot hold, and text that is not JSON, are reported for the text as a whole.
    std::string text = base.dump();
    text.replace(text.find("0.5"), 3, "1e999");
    const SceneReadResult huge = ReadScene(text);
    ASSERT_EQ(huge.errors.size(), 1u);
    EXPECT_NE(huge.errors[0].message.find("1e999"), std::string::npos) << huge.errors[0].message;
    EXPECT_EQ(ReadScene("{\"frames\": ").errors.size(), 1u);
    EXPECT_EQ(ReadScene("[]").errors.at(0).Text(), "must be an object");

    // An interpolation's name that is not one names the value given.
    Json cubic = base;
    cubic["light"]["keys"]["1"]["interpolation"] = "cubic";
    EXPECT_EQ(ReadScene(cubic.dump()).errors.at(0).Text(),
              "light.keys.1.interpolation: must be \"smooth\", \"linear\" or \"constant\", not \"cubic\"");
}

}  // namespace
