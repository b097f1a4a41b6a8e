#include "tools/vellux/scene_command.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "engine/plugin_location.h"
#include "tools/vellux/render_command.h"
#include "engine/scene_session.h"

namespace vellux::tool {

namespace {

namespace fs = std::filesystem;

// The shortest text that reads back as the same double.
std::string Exact(double value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof(text), value).ptr;
    return std::string(text, end);
}

std::string Padded(std::string text, size_t width) {
    if (text.size() < width) text += std::string(width - text.size(), ' ');
    return text;
}

// A key's own interpolation, when it has one.
std::string KeyModeText(const KeyModes& modes, int32_t frame) {
    const auto found = modes.byKey.find(frame);
    return found == modes.byKey.end() ? "" : " (" + std::string(host::InterpolationName(found->second)) + ")";
}

std::string ValueText(const ChannelValue& value) {
    if (const auto* real = std::get_if<double>(&value)) return Exact(*real);
    const auto& rgb = std::get<std::array<int16_t, 3>>(value);
    return std::to_string(rgb[0]) + "," + std::to_string(rgb[1]) + "," + std::to_string(rgb[2]);
}

std::string FlagNames(uint32_t flags) {
    static constexpr std::pair<uint32_t, const char*> kNames[] = {
        {kFlagAnamorphic, "anamorphic"},         {kFlagGlow, "glow"},
        {kFlagGlowInLightColor, "glow in the light's colour"}, {kFlagHalo, "halo"},
        {kFlagReflections, "reflections"},       {kFlagAnamorphicStreak, "anamorphic streak"},
        {kFlagStreaksOffFrame, "streaks off the frame"}, {kFlagRandomStreaks, "random streaks"},
        {kFlagWireframePreview, "outline preview"}, {kFlagFollowLightSize, "glow follows the light's size"},
    };
    std::string names;
    for (const auto& [mask, name] : kNames)
        if (flags & mask) names += (names.empty() ? "" : ", ") + std::string(name);
    return names.empty() ? "none" : names;
}

void ListSettings(const SettingsRecord& record, std::ostream& out) {
    const ControlDataRec c = DecodeSettings(record);
    const bool native = record.byteOrder == NativeByteOrder();
    out << "settings  " << (record.byteOrder == ByteOrder::little ? "little" : "big") << " byte order"
        << (native ? "" : " (not this machine's; fields shown converted)") << "\n";
    std::string owner;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const char c8 = char(c.ownerType >> shift);
        owner += c8 >= 0x20 && c8 < 0x7f ? c8 : '?';
    }
    const auto field = [&out](const char* name, const std::string& value) { out << "  " << Padded(name, 23) << value << "\n"; };
    field("ownerType", owner);
    field("ownerVersion", std::to_string(c.ownerVersion));
    field("flareIntensity", Exact(c.flareIntensity));
    field("flareDissolve", Exact(c.flareDissolve));
    field("flareAnamorphicFactor", Exact(c.flareAnamorphicFactor));
    field("flareRingSize", Exact(c.flareRingSize));
    field("flareStarRotation", Exact(c.flareStarRotation));
    field("flareStreakDensity", Exact(c.flareStreakDensity));
    field("flareStreakIntensity", Exact(c.flareStreakIntensity));
    field("flareStreakSharpness", Exact(c.flareStreakSharpness));
    const ARGB_Color ring = c.flareRingColor;
    field("flareRingColor", "alpha " + std::to_string(ring.alpha) + ", red " + std::to_string(ring.red) + ", green " +
                                std::to_string(ring.green) + ", blue " + std::to_string(ring.blue));
    char flags[16];
    std::snprintf(flags, sizeof(flags), "0x%08x", c.flareFlags);
    field("flareFlags", std::string(flags) + " (" + FlagNames(c.flareFlags) + ")");
    field("flareStarFilter", std::to_string(c.flareStarFilter));
}

struct ShowOptions {
    std::string scene;
};

struct KeyOptions {
    std::string scene;
    std::string frames;
    std::string plugin;
    std::string table;
};

void AddSceneShow(CLI::App& group, Action& action) {
    auto options = std::make_shared<ShowOptions>();
    CLI::App* show = group.add_subcommand("show", "List a scene: frames, image, light, channels, settings");
    show->add_option("scene", options->scene, "Scene file (JSON)")->required();
    show->callback([options, &action] {
        action = [options] {
            std::cout << SceneListing(LoadScene(options->scene));
            return 0;
        };
    });
}

void AddKey(CLI::App& group, Action& action) {
    auto options = std::make_shared<KeyOptions>();
    CLI::App* key = group.add_subcommand("key", "Key the scene's settings on a range of frames");
    key->add_option("scene", options->scene, "Scene file (JSON), rewritten in place")->required();
    key->add_option("--frames", options->frames, "Frames to key, A-B or N, within the scene's")->type_name("A-B")->required();
    key->add_option("--table", options->table, "Flare table: a name (vellux tables lists them) or a .rsc file (default: Vellux)")->type_name("NAME");
    key->add_option("--plugin", options->plugin, "The plug-in (default: Vellux.so beside the tool or one folder up)")
        ->type_name("PATH");
    key->callback([options, &action] {
        action = [options] {
            const FrameRange frames = ParseFrameRange("--frames", options->frames);
            const Scene keyed = KeySceneFrames({options->scene, frames, options->plugin, options->table});
            std::cout << options->scene << ": keyed frames " << RangeText(frames) << "; " << keyed.channels.size()
                      << " channels with keys\n";
            return 0;
        };
    });
}

}  // namespace

void AddSceneCommands(CLI::App& app, Action& action) {
    CLI::App* scene = app.add_subcommand("scene", "Scene files: show and key");
    scene->require_subcommand(1);
    AddSceneShow(*scene, action);
    AddKey(*scene, action);
}

std::string SceneListing(const Scene& scene) {
    std::ostringstream out;
    out << "frames    " << scene.firstFrame << "-" << scene.lastFrame << " (" << (int64_t(scene.lastFrame) - scene.firstFrame + 1)
        << " frames)\n";
    if (scene.input.empty()) out << "image     " << scene.width << "x" << scene.height << " black frames\n";
    else out << "image     input " << scene.input << "\n";
    const bool fraction = scene.lightUnits == LightUnits::fraction;
    out << "light     " << scene.light.size() << (scene.light.size() == 1 ? " key" : " keys")
        << (fraction ? ", position as fractions of the width and height" : ", position in pixels") 
        << (scene.lightModes.all == Interpolation::linear ? "" : ", " + std::string(host::InterpolationName(scene.lightModes.all)))
        << "\n";
    for (const auto& [frame, key] : scene.light) {
        out << "  " << Padded(std::to_string(frame), 6) << "position " << Exact(key.x) << "," << Exact(key.y) << "  color "
            << key.color[0] << "," << key.color[1] << "," << key.color[2] << "  intensity " << Exact(key.intensity)
            << "  radius " << Exact(key.radius) << KeyModeText(scene.lightModes, frame) << "\n";
    }
    if (scene.channels.empty()) out << "channels  none (every channel holds the settings' value)\n";
    else out << "channels\n";
    for (const SceneChannel& channel : SceneChannels()) {
        const auto found = scene.channels.find(std::string(channel.name));
        if (found == scene.channels.end()) continue;
        out << "  " << Padded(std::string(channel.name), 19);
        const auto modes = scene.channelModes.find(found->first);
        const KeyModes mode = modes == scene.channelModes.end() ? KeyModes{} : modes->second;
        std::string keys;
        for (const auto& [frame, value] : found->second)
            keys += (keys.empty() ? "" : "  ") + std::to_string(frame) + ": " + ValueText(value) + KeyModeText(mode, frame);
        if (mode.all != Interpolation::linear) keys = "(" + std::string(host::InterpolationName(mode.all)) + ")  " + keys;
        out << (keys.empty() ? "no keys" : keys) << "\n";
    }
    if (scene.settings) ListSettings(*scene.settings, out);
    else out << "settings  none (the plug-in's defaults)\n";
    return out.str();
}

}  // namespace vellux::tool
