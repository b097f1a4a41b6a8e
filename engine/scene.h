// Scenes: a shot for the flare as a JSON file. What the shot covers (a frame range and either a
// frame size or an image sequence), the light animated by keys, the plug-in's persistent
// settings record as the plug-in wrote it, and keys for the plug-in's animation channels.
//
//   {
//     "frames": {"first": 1, "last": 48},
//     "image": {"width": 1920, "height": 1080},        // or {"input": "plates/shot.####.exr"}
//     "light": {"units": "pixels",                      // or "fraction" (of width and height)
//               "keys": {"1": {"position": [1400.0, 300.0], "color": [255, 255, 255],
//                              "intensity": 1.0, "radius": 0.0}}},
//     "table": "Vellux",                                // optional: the flare table's name
//     "settings": {"flare-intensity": 0.8, "ring-color": "#50140A", "halo": false},   // optional
//     "channels": {"Intensity": {"1": 0.5, "10": 1.0}, "Ring Color": {"1": [20560, 5140, 2570]}},
//     "lens": {"fNumber": {"1": 2.0, "48": 8.0}}         // optional: an aperture pull, for --lens
//   }
//
// Frame numbers (the range and every key) are whole numbers 0 or more, written as keys in plain
// decimal. Light keys, channel keys and f-numbers move between keys as their interpolation says
// (host/key_curve.h: "linear" unless asked otherwise, "smooth" or "constant"), and hold their first
// and last values outside them (the channels do so in the host's channel store). The light takes
// "interpolation" beside its "keys", and each key may take its own; a channel, or the f-number,
// asks for one in its long form, whose keys may each be a value or {"value": v, "interpolation": i}:
//
//     "light": {"units": "pixels", "interpolation": "smooth", "keys": {...}},
//     "channels": {"Dissolve": {"interpolation": "smooth", "keys": {"1": 0, "9": {"value": 1, "interpolation": "constant"}}}}
//
// Interpolated values are kept within each setting's range (colours 0..255, intensities and radii
// 0 or more, the dissolve 0..1, ...).
//
// "settings" names the plug-in's settings as the command line does (setting_names.h); those not
// named keep the plug-in's defaults. It may also hold the record itself, {"byteOrder": "little",
// "hex": "58554c56..."}, as the plug-in wrote it (files of earlier versions hold only that), and
// the names then change it. The writer names every setting and adds the record only when the
// names cannot say all of it; a record of the other byte order than this machine's gets its
// "byteOrder" beside the names all the same, so it is read back in that order, byte for byte.
//
// Reading reports every problem with the JSON path of the value concerned ("light.keys.12.color[1]:
// must be a whole number in 0..255"); a scene is produced only when there is none. Writing gives
// one canonical text: a file this code wrote reads and writes back byte for byte.
#ifndef VELLUX_ENGINE_SCENE_H
#define VELLUX_ENGINE_SCENE_H

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "host/channel_store.h"
#include "host/key_curve.h"
#include "vellux/plugin_records.h"

namespace vellux::engine {

// ---- The scene ----

using host::Interpolation;
using host::KeyModes;

enum class LightUnits { pixels, fraction };
enum class ByteOrder { little, big };

ByteOrder NativeByteOrder();

struct LightKey {
    double x = 0.0, y = 0.0;                      // in LightUnits, from the top-left, y down
    std::array<int, 3> color{255, 255, 255};      // red, green, blue, 0..255
    double intensity = 1.0;                       // 0 or more
    double radius = 0.0;                          // the light's on-frame radius in pixels, 0 or more
};

// The light at one frame: the keys interpolated, so the colour is no longer whole.
struct LightState {
    double x = 0.0, y = 0.0;
    std::array<double, 3> color{255.0, 255.0, 255.0};
    double intensity = 1.0;
    double radius = 0.0;
};

// The persistent settings record exactly as the plug-in wrote it, in the byte order of the
// machine that wrote it (the plug-in converts a record of the other order itself).
struct SettingsRecord {
    ByteOrder byteOrder = ByteOrder::little;
    std::vector<uint8_t> bytes;                   // sizeof(ControlDataRec) bytes
};

using ChannelValue = std::variant<double, std::array<int16_t, 3>>;   // REAL, CRGB
using ChannelKeys = std::map<int32_t, ChannelValue>;

struct Scene {
    int32_t firstFrame = 1;
    int32_t lastFrame = 1;
    int32_t width = 0, height = 0;                // the frame size, when `input` is empty
    std::string input;                            // image sequence: one ####, %d or %0Nd field
    LightUnits lightUnits = LightUnits::pixels;
    std::map<int32_t, LightKey> light;            // at least one key
    std::string table;                            // the flare table's name; empty: none named
    std::optional<SettingsRecord> settings;
    std::map<std::string, ChannelKeys> channels;  // by channel name
    std::map<int32_t, double> fNumber;            // the lens's f-number by frame (the lens look); none: not keyed
    KeyModes lightModes;                          // how the light moves between its keys
    std::map<std::string, KeyModes> channelModes; // by channel name; a channel not here: linear
    KeyModes fNumberModes;
};

// The keyed f-number at a frame (interpolated like the light); none when the scene keys none.
std::optional<double> FNumberAt(const Scene& scene, int32_t frame);

LightState LightAt(const Scene& scene, int32_t frame);

// The plug-in's value channels a scene may key, in the plug-in's ID order.
struct SceneChannel {
    std::string_view name;
    int32_t id;
    IFFType type;
    double low, high;   // the setting's range (a REAL one's)
    std::string_view setting;   // the setting it animates, by its name (setting_names.h)
};
std::span<const SceneChannel> SceneChannels();

// Keys the published channels of `store` with the scene's channel keys, by name. Returns the
// names of the scene's channels that the store does not hold.
std::vector<std::string> KeyChannels(const Scene& scene, host::ChannelStore& store);

// ---- Reading and writing ----

struct SceneError {
    std::string path;       // "light.keys.12.color[1]"; empty for the text as a whole
    std::string message;
    std::string Text() const;   // "path: message"
};

struct SceneReadResult {
    std::optional<Scene> scene;       // only when there are no errors
    std::vector<SceneError> errors;
};

SceneReadResult ReadScene(std::string_view text);
SceneReadResult ReadSceneFile(const std::filesystem::path& path);   // an unreadable file is an error

std::string WriteScene(const Scene& scene);

// Look files (settings files): the settings by the rules of a scene's "settings", with what made
// them besides: the table by name, or the lens look's lens and aperture.
//   {
//     "table": "Vellux",                                // or "lens": {"name": "double-gauss-50mm",
//                                                       //   "f-number": 4, "blades": 6, "blade-curvature": 0.2,
//                                                       //   "aperture-rotation": 15}
//     "settings": {"flare-intensity": 0.5, ...}
//   }
// An EXR's Vellux:Settings holds the same text.
struct LookLens {
    std::string name;                          // a lens's name or prescription file, as --lens takes it
    std::optional<double> fNumber, bladeCurvature, apertureRotation;
    std::optional<int> blades;
};
struct LookSource {
    std::string table;                         // a table's name; empty: none named
    std::optional<LookLens> lens;
};
struct SettingsReadResult {
    std::optional<SettingsRecord> settings;   // only when there are no errors
    LookSource source;
    std::vector<SceneError> errors;
};
SettingsReadResult ReadSettingsText(std::string_view text);
SettingsReadResult ReadSettingsFile(const std::filesystem::path& path);
std::string WriteSettingsText(const SettingsRecord& settings, const LookSource& source = {});
// The look a settings file holds; throws std::runtime_error naming the file and each problem.
SettingsReadResult LoadLookFile(const std::filesystem::path& path);
// A settings file's record; throws std::runtime_error naming the file and each problem.
SettingsRecord LoadSettingsFile(const std::filesystem::path& path);
// Written under a temporary name and renamed over `path`; throws std::runtime_error on failure.
void WriteSceneFile(const std::filesystem::path& path, const Scene& scene);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_SCENE_H
