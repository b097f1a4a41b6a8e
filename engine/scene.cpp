#include "engine/scene.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <set>
#include <sstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "host/resource_file.h"
#include "engine/frame_sequence.h"
#include "engine/scene_keys.h"
#include "engine/setting_names.h"

namespace vellux::engine {

namespace {

using Json = nlohmann::ordered_json;

constexpr double kUnbounded = std::numeric_limits<double>::infinity();

constexpr SceneChannel kChannels[] = {
    {"Intensity", 2, kChannelReal, 0.0, kUnbounded, "flare-intensity"},
    {"Dissolve", 3, kChannelReal, 0.0, 1.0, "dissolve"},
    {"Anamorphic Factor", 4, kChannelReal, 0.0, kUnbounded, "anamorphic-factor"},
    {"Ring Size", 5, kChannelReal, 0.0, kUnbounded, "ring-size"},
    {"Ring Color", 6, kChannelColor, -32768.0, 32767.0, "ring-color"},
    {"Star Rotation", 7, kChannelReal, -kUnbounded, kUnbounded, "star-rotation"},
    {"Streak Density", 8, kChannelReal, 0.0, kUnbounded, "streak-density"},
    {"Streak Intensity", 9, kChannelReal, 0.0, kUnbounded, "streak-intensity"},
    {"Streak Sharpness", 10, kChannelReal, 0.0, kUnbounded, "streak-sharpness"},
};

constexpr double kLowestFNumber = 0.5, kHighestFNumber = 100.0;

const SceneChannel* ChannelNamed(std::string_view name) {
    for (const SceneChannel& channel : kChannels)
        if (channel.name == name) return &channel;
    return nullptr;
}

const char* OrderName(ByteOrder order) { return order == ByteOrder::little ? "little" : "big"; }

// ---- Reading ----

std::string Key(const std::string& path, std::string_view key) {
    return path.empty() ? std::string(key) : path + "." + std::string(key);
}
std::string Index(const std::string& path, size_t index) { return path + "[" + std::to_string(index) + "]"; }

// Frame numbers as object keys: plain decimal, 0 or more, within 32 bits ("07" and "+7" would
// name the same frame as "7" twice over).
std::optional<int32_t> FrameOfKey(const std::string& key) {
    if (key.empty() || key.size() > 10 || (key.size() > 1 && key[0] == '0')) return std::nullopt;
    int64_t value = 0;
    for (char c : key) {
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + (c - '0');
    }
    if (value > std::numeric_limits<int32_t>::max()) return std::nullopt;
    return int32_t(value);
}

// Exactly one frame number field (frame_sequence.h).
bool IsSequencePattern(const std::string& text) {
    try {
        return FramePattern::Parse(text).HasField();
    } catch (const std::invalid_argument&) {
        return false;
    }
}

class Reader {
public:
    std::vector<SceneError> errors;

    void Error(std::string path, std::string message) { errors.push_back({std::move(path), std::move(message)}); }

    // The object at `path`, with every key not in `known` reported.
    bool Object(const Json& value, const std::string& path, std::initializer_list<std::string_view> known) {
        if (!value.is_object()) {
            Error(path, "must be an object");
            return false;
        }
        for (const auto& [key, member] : value.items()) {
            bool found = false;
            for (std::string_view k : known) found = found || k == key;
            if (!found) Error(Key(path, key), "unknown key");
        }
        return true;
    }

    const Json* Member(const Json& object, const std::string& path, std::string_view key, bool required = true) {
        const auto found = object.find(std::string(key));
        if (found == object.end()) {
            if (required) Error(Key(path, key), "is missing");
            return nullptr;
        }
        return &*found;
    }

    std::optional<int64_t> Integer(const Json* value, const std::string& path, int64_t low, int64_t high) {
        if (value == nullptr) return std::nullopt;
        if (!value->is_number_integer()) {
            Error(path, "must be a whole number in " + std::to_string(low) + ".." + std::to_string(high));
            return std::nullopt;
        }
        const bool isUnsigned = value->is_number_unsigned();
        const int64_t number = isUnsigned ? int64_t(std::min<uint64_t>(value->get<uint64_t>(), uint64_t(high) + 1))
                                          : value->get<int64_t>();
        if (number < low || number > high) {
            Error(path, "must be a whole number in " + std::to_string(low) + ".." + std::to_string(high));
            return std::nullopt;
        }
        return number;
    }

    // A finite number, at least `low` when given.
    std::optional<double> Number(const Json* value, const std::string& path, std::optional<double> low = {}) {
        if (value == nullptr) return std::nullopt;
        if (!value->is_number()) {
            Error(path, "must be a number");
            return std::nullopt;
        }
        const double number = value->get<double>();
        if (!std::isfinite(number)) {
            Error(path, "must be a finite number");
            return std::nullopt;
        }
        if (low && number < *low) {
            Error(path, "must not be less than " + Json(*low).dump());
            return std::nullopt;
        }
        return number;
    }

    std::optional<std::string> String(const Json* value, const std::string& path) {
        if (value == nullptr) return std::nullopt;
        if (!value->is_string()) {
            Error(path, "must be a string");
            return std::nullopt;
        }
        return value->get<std::string>();
    }

    std::optional<Interpolation> InterpolationOf(const Json* value, const std::string& path) {
        const auto name = String(value, path);
        if (!name) return std::nullopt;
        const auto interpolation = host::InterpolationNamed(*name);
        if (!interpolation)
            Error(path, std::string("must be ") + host::kInterpolationNames + ", not " + Json(*name).dump());
        return interpolation;
    }

    // An array of exactly `count` elements.
    bool Array(const Json* value, const std::string& path, size_t count) {
        if (value == nullptr) return false;
        if (!value->is_array() || value->size() != count) {
            Error(path, "must be an array of " + std::to_string(count) + " numbers");
            return false;
        }
        return true;
    }

    // An object keyed by frame numbers; calls `read(frame, value, path)` for each valid key.
    template <typename Read>
    void Frames(const Json& value, const std::string& path, Read read) {
        if (!value.is_object()) {
            Error(path, "must be an object keyed by frame numbers");
            return;
        }
        for (const auto& [key, member] : value.items()) {
            const std::optional<int32_t> frame = FrameOfKey(key);
            if (!frame) {
                Error(Key(path, key), "is not a frame number (a whole number 0 or more, plain decimal)");
                continue;
            }
            read(*frame, member, Key(path, key));
        }
    }
};

void ReadFrames(Reader& in, const Json& root, Scene& scene) {
    const Json* frames = in.Member(root, "", "frames");
    if (frames == nullptr || !in.Object(*frames, "frames", {"first", "last"})) return;
    constexpr int64_t kMaxFrame = std::numeric_limits<int32_t>::max();
    const auto first = in.Integer(in.Member(*frames, "frames", "first"), "frames.first", 0, kMaxFrame);
    const auto last = in.Integer(in.Member(*frames, "frames", "last"), "frames.last", 0, kMaxFrame);
    if (first && last && *last < *first) in.Error("frames.last", "must not be before frames.first (" + std::to_string(*first) + ")");
    if (first) scene.firstFrame = int32_t(*first);
    if (last) scene.lastFrame = int32_t(*last);
}

void ReadImage(Reader& in, const Json& root, Scene& scene) {
    const Json* image = in.Member(root, "", "image");
    if (image == nullptr || !in.Object(*image, "image", {"width", "height", "input"})) return;
    if (image->contains("input")) {
        if (image->contains("width") || image->contains("height"))
            in.Error("image", "give either \"input\" or \"width\" and \"height\", not both");
        const auto input = in.String(in.Member(*image, "image", "input"), "image.input");
        if (input && !IsSequencePattern(*input))
            in.Error("image.input", "must hold exactly one frame number field, #### (zero padded to the run's length), %d or %0Nd "
                     "(%% for a percent sign)");
        else if (input) scene.input = *input;
        return;
    }
    const auto width = in.Integer(in.Member(*image, "image", "width"), "image.width", 1, 65535);
    const auto height = in.Integer(in.Member(*image, "image", "height"), "image.height", 1, 65535);
    if (width) scene.width = int32_t(*width);
    if (height) scene.height = int32_t(*height);
}

std::optional<LightKey> ReadLightKey(Reader& in, const Json& value, const std::string& path, int32_t frame,
                                    KeyModes& modes) {
    const size_t before = in.errors.size();
    if (!in.Object(value, path, {"position", "color", "intensity", "radius", "interpolation"})) return std::nullopt;
    if (const auto interpolation = in.InterpolationOf(in.Member(value, path, "interpolation", false), Key(path, "interpolation")))
        modes.byKey[frame] = *interpolation;
    LightKey key;
    const std::string positionPath = Key(path, "position");
    if (const Json* position = in.Member(value, path, "position"); in.Array(position, positionPath, 2)) {
        key.x = in.Number(&(*position)[0], Index(positionPath, 0)).value_or(0.0);
        key.y = in.Number(&(*position)[1], Index(positionPath, 1)).value_or(0.0);
    }
    const std::string colorPath = Key(path, "color");
    if (const Json* color = in.Member(value, path, "color"); in.Array(color, colorPath, 3)) {
        for (size_t i = 0; i < 3; ++i)
            key.color[i] = int(in.Integer(&(*color)[i], Index(colorPath, i), 0, 255).value_or(0));
    }
    key.intensity = in.Number(in.Member(value, path, "intensity"), Key(path, "intensity"), 0.0).value_or(0.0);
    key.radius = in.Number(in.Member(value, path, "radius"), Key(path, "radius"), 0.0).value_or(0.0);
    if (in.errors.size() != before) return std::nullopt;
    return key;
}

void ReadLight(Reader& in, const Json& root, Scene& scene) {
    const Json* light = in.Member(root, "", "light");
    if (light == nullptr || !in.Object(*light, "light", {"units", "interpolation", "keys"})) return;
    if (const auto all = in.InterpolationOf(in.Member(*light, "light", "interpolation", false), "light.interpolation"))
        scene.lightModes.all = *all;
    if (const auto units = in.String(in.Member(*light, "light", "units"), "light.units")) {
        if (*units == "pixels") scene.lightUnits = LightUnits::pixels;
        else if (*units == "fraction") scene.lightUnits = LightUnits::fraction;
        else in.Error("light.units", "must be \"pixels\" or \"fraction\"");
    }
    const Json* keys = in.Member(*light, "light", "keys");
    if (keys == nullptr) return;
    in.Frames(*keys, "light.keys", [&](int32_t frame, const Json& value, const std::string& path) {
        if (auto key = ReadLightKey(in, value, path, frame, scene.lightModes)) scene.light[frame] = *key;
    });
    if (keys->is_object() && keys->empty()) in.Error("light.keys", "must hold at least one key");
}

std::optional<std::vector<uint8_t>> ReadHex(Reader& in, const std::string& text, const std::string& path) {
    if (text.size() % 2 != 0) {
        in.Error(path, "has an odd number of hex digits (" + std::to_string(text.size()) + ")");
        return std::nullopt;
    }
    auto digit = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < text.size(); i += 2) {
        const int high = digit(text[i]), low = digit(text[i + 1]);
        if (high < 0 || low < 0) {
            in.Error(path, "holds a character that is not a hex digit at " + std::to_string(high < 0 ? i : i + 1));
            return std::nullopt;
        }
        bytes.push_back(uint8_t(high << 4 | low));
    }
    return bytes;
}

std::optional<ByteOrder> ReadByteOrder(Reader& in, const Json& settings) {
    const auto order = in.String(in.Member(settings, "settings", "byteOrder"), "settings.byteOrder");
    if (!order) return std::nullopt;
    if (*order == "little") return ByteOrder::little;
    if (*order == "big") return ByteOrder::big;
    in.Error("settings.byteOrder", "must be \"little\" or \"big\"");
    return std::nullopt;
}

// The record as hex in its stated byte order.
std::optional<SettingsRecord> ReadRecord(Reader& in, const Json& settings) {
    SettingsRecord record;
    const auto order = ReadByteOrder(in, settings);
    if (order) record.byteOrder = *order;
    const auto hex = in.String(in.Member(settings, "settings", "hex"), "settings.hex");
    const auto bytes = hex ? ReadHex(in, *hex, "settings.hex") : std::nullopt;
    if (!bytes) return std::nullopt;
    if (bytes->size() != sizeof(ControlDataRec)) {
        in.Error("settings.hex", "holds " + std::to_string(bytes->size()) + " bytes; the settings record has " +
                                     std::to_string(sizeof(ControlDataRec)));
        return std::nullopt;
    }
    // The record starts with the owner code; read in the stated order it must say VLUX.
    uint32_t owner = 0;
    for (int i = 0; i < 4; ++i) {
        const uint8_t byte = (*bytes)[record.byteOrder == ByteOrder::big ? i : 3 - i];
        owner = owner << 8 | byte;
    }
    if (order && owner != kVelluxOwner) {
        in.Error("settings.hex", std::string("does not start with the plug-in's owner code in ") +
                                     OrderName(record.byteOrder) + " byte order");
        return std::nullopt;
    }
    record.bytes = *bytes;
    return record;
}

// The settings by name (setting_names.h) over the record when one is given, else over the
// plug-in's defaults; the record alone is kept as it was written. The result is laid out in the
// stated byte order ("byteOrder" may stand beside the names without a record), else in this
// machine's.
void ReadSettings(Reader& in, const Json& root, Scene& scene) {
    const Json* settings = in.Member(root, "", "settings", false);
    if (settings == nullptr) return;
    if (!settings->is_object()) {
        in.Error("settings", "must be an object");
        return;
    }
    SettingEdits named;
    size_t names = 0;
    const size_t before = in.errors.size();
    for (const auto& [key, value] : settings->items()) {
        if (key == "byteOrder" || key == "hex") continue;
        const std::string path = Key("settings", key);
        const SettingName* setting = FindSetting(key);
        if (setting == nullptr) {
            in.Error(path, "unknown key");
            continue;
        }
        try {
            SetEdit(*setting, ReadSettingJson(*setting, value), named);
            ++names;
        } catch (const std::invalid_argument& error) {
            in.Error(path, error.what());
        }
    }
    std::optional<SettingsRecord> record;
    ByteOrder order = NativeByteOrder();
    if (names == 0 || settings->contains("hex")) {
        record = ReadRecord(in, *settings);
        if (!record) return;
        order = record->byteOrder;
    } else if (settings->contains("byteOrder")) {
        const auto stated = ReadByteOrder(in, *settings);
        if (!stated) return;
        order = *stated;
    }
    if (in.errors.size() != before) return;
    if (names > 0) {
        std::vector<uint8_t> bytes = DefaultSettingsRecord();
        if (record) {
            const ControlDataRec control = DecodeSettings(*record);
            std::memcpy(bytes.data(), &control, sizeof(control));
        }
        ApplySettingEdits(named, bytes);
        ControlDataRec control;
        std::memcpy(&control, bytes.data(), sizeof(control));
        record = EncodeSettings(control, order);
    }
    scene.settings = std::move(record);
}

void ReadTable(Reader& in, const Json& root, std::string& table) {
    if (const auto name = in.String(in.Member(root, "", "table", false), "table")) {
        if (name->empty()) in.Error("table", "must name a table");
        table = *name;
    }
}

// A channel's keys: {frame: value}, or the long form {"interpolation": name, "keys": {frame: value
// or {"value": value, "interpolation": name}}}. Calls `read(frame, value, path)` for each value.
template <typename Read>
void ReadKeyed(Reader& in, const Json& keyed, const std::string& path, KeyModes& modes, Read read) {
    const Json* keys = &keyed;
    if (keyed.is_object() && (keyed.contains("keys") || keyed.contains("interpolation"))) {
        if (!in.Object(keyed, path, {"interpolation", "keys"})) return;
        if (const auto all = in.InterpolationOf(in.Member(keyed, path, "interpolation", false), Key(path, "interpolation")))
            modes.all = *all;
        keys = in.Member(keyed, path, "keys");
        if (keys == nullptr) return;
    }
    in.Frames(*keys, keys == &keyed ? path : Key(path, "keys"), [&](int32_t frame, const Json& value, const std::string& keyPath) {
        if (!value.is_object()) return read(frame, value, keyPath);
        if (!in.Object(value, keyPath, {"value", "interpolation"})) return;
        if (const auto one = in.InterpolationOf(in.Member(value, keyPath, "interpolation"), Key(keyPath, "interpolation")))
            modes.byKey[frame] = *one;
        if (const Json* inner = in.Member(value, keyPath, "value")) read(frame, *inner, Key(keyPath, "value"));
    });
}

void ReadChannels(Reader& in, const Json& root, Scene& scene) {
    const Json* channels = in.Member(root, "", "channels", false);
    if (channels == nullptr) return;
    if (!channels->is_object()) {
        in.Error("channels", "must be an object keyed by channel names");
        return;
    }
    for (const auto& [name, keys] : channels->items()) {
        const std::string path = Key("channels", name);
        const SceneChannel* channel = ChannelNamed(name);
        if (channel == nullptr) {
            in.Error(path, "is not one of the plug-in's channels");
            continue;
        }
        ChannelKeys& out = scene.channels[name];
        KeyModes modes;
        ReadKeyed(in, keys, path, modes, [&](int32_t frame, const Json& value, const std::string& keyPath) {
            if (channel->type == kChannelReal) {
                if (auto number = in.Number(&value, keyPath)) out[frame] = *number;
                return;
            }
            if (!in.Array(&value, keyPath, 3)) return;
            std::array<int16_t, 3> color{};
            bool good = true;
            for (size_t i = 0; i < 3; ++i) {
                const auto component = in.Integer(&value[i], Index(keyPath, i), -32768, 32767);
                good = good && component.has_value();
                color[i] = int16_t(component.value_or(0));
            }
            if (good) out[frame] = color;
        });
        if (modes != KeyModes{}) scene.channelModes[name] = modes;
    }
}

// ---- Writing ----

// One value on one line: {"a": 1, "b": [1, 2]}.
void ReadLens(Reader& in, const Json& root, Scene& scene) {
    const Json* lens = in.Member(root, "", "lens", false);
    if (lens == nullptr || !in.Object(*lens, "lens", {"fNumber"})) return;
    const Json* keys = in.Member(*lens, "lens", "fNumber");
    if (keys == nullptr) return;
    ReadKeyed(in, *keys, "lens.fNumber", scene.fNumberModes, [&](int32_t frame, const Json& value, const std::string& path) {
        const std::optional<double> n = in.Number(&value, path, kLowestFNumber);
        if (n && *n <= kHighestFNumber) scene.fNumber[frame] = *n;
        else if (n) in.Error(path, "must be an f-number from 0.5 to 100");
    });
}


std::string Inline(const Json& value) {
    std::string text;
    if (value.is_object()) {
        text = "{";
        for (auto it = value.begin(); it != value.end(); ++it) {
            if (it != value.begin()) text += ", ";
            text += Json(it.key()).dump() + ": " + Inline(it.value());
        }
        return text + "}";
    }
    if (value.is_array()) {
        text = "[";
        for (size_t i = 0; i < value.size(); ++i) text += (i > 0 ? ", " : "") + Inline(value[i]);
        return text + "]";
    }
    return value.dump();
}

// An object of inline members, one per line at `indent`.
std::string Lines(const std::vector<std::pair<std::string, std::string>>& members, const std::string& indent) {
    if (members.empty()) return "{}";
    std::string text = "{\n";
    for (size_t i = 0; i < members.size(); ++i)
        text += indent + "  " + Json(members[i].first).dump() + ": " + members[i].second + (i + 1 < members.size() ? ",\n" : "\n");
    return text + indent + "}";
}

// A channel's keys {frame: value} as written: as they are when linear throughout, else the long
// form with the keys that ask for their own interpolation as {"value": v, "interpolation": i}.
Json Keyed(const Json& values, const KeyModes& modes) {
    if (modes == KeyModes{}) return values;
    Json keys = Json::object();
    for (const auto& [frame, value] : values.items()) {
        const auto one = modes.byKey.find(*FrameOfKey(frame));
        keys[frame] = one == modes.byKey.end() ? value
                                               : Json{{"value", value}, {"interpolation", std::string(host::InterpolationName(one->second))}};
    }
    return Json{{"interpolation", std::string(host::InterpolationName(modes.all))}, {"keys", keys}};
}

std::string Hex(const std::vector<uint8_t>& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

// The settings by name, and the record beside them only when the names cannot say all of it.
std::vector<std::pair<std::string, std::string>> SettingsMembers(const SettingsRecord& record) {
    std::vector<std::pair<std::string, std::string>> members;
    const ControlDataRec control = DecodeSettings(record);
    SettingEdits named;
    for (const SettingName& setting : SettingNames()) {
        const std::optional<SettingValue> value = RecordValue(setting, control);
        if (!value) continue;
        SetEdit(setting, *value, named);
        members.emplace_back(std::string(setting.name), SettingJson(*value).dump());
    }
    std::vector<uint8_t> rebuilt = DefaultSettingsRecord();
    ApplySettingEdits(named, rebuilt);
    const bool whole = std::memcmp(rebuilt.data(), &control, sizeof(control)) == 0;
    // A record of the other byte order says so, so that it is read back in its own order.
    if (!whole || record.byteOrder != NativeByteOrder())
        members.emplace_back("byteOrder", Json(OrderName(record.byteOrder)).dump());
    if (!whole) members.emplace_back("hex", Json(Hex(record.bytes)).dump());
    return members;
}

}  // namespace

// ---- The scene ----

std::optional<double> FNumberAt(const Scene& scene, int32_t frame) {
    if (scene.fNumber.empty()) return std::nullopt;
    const double n = host::CurveAt(scene.fNumber, scene.fNumberModes, frame, [](double key) { return key; });
    return std::clamp(n, kLowestFNumber, kHighestFNumber);
}

ByteOrder NativeByteOrder() { return std::endian::native == std::endian::big ? ByteOrder::big : ByteOrder::little; }

LightState LightAt(const Scene& scene, int32_t frame) {
    if (scene.light.empty()) return {};
    auto at = [&](auto value) { return host::CurveAt(scene.light, scene.lightModes, frame, value); };
    auto color = [&](size_t i) {
        return std::clamp(at([i](const LightKey& key) { return double(key.color[i]); }), 0.0, 255.0);
    };
    return {at([](const LightKey& key) { return key.x; }),
            at([](const LightKey& key) { return key.y; }),
            {color(0), color(1), color(2)},
            std::max(at([](const LightKey& key) { return key.intensity; }), 0.0),
            std::max(at([](const LightKey& key) { return key.radius; }), 0.0)};
}

std::span<const SceneChannel> SceneChannels() { return kChannels; }

std::vector<std::string> KeyChannels(const Scene& scene, host::ChannelStore& store) {
    std::vector<std::string> missing;
    for (const auto& [name, keys] : scene.channels) {
        host::Channel* channel = store.FindByName(name);
        const SceneChannel* known = ChannelNamed(name);
        if (channel == nullptr || known == nullptr || channel->type != known->type) {
            missing.push_back(name);
            continue;
        }
        const auto modes = scene.channelModes.find(name);
        channel->modes = modes == scene.channelModes.end() ? KeyModes{} : modes->second;
        channel->low = known->low;
        channel->high = known->high;
        for (const auto& [frame, value] : keys) {
            if (const auto* real = std::get_if<double>(&value)) host::ChannelStore::SetKey(*channel, frame, real);
            else host::ChannelStore::SetKey(*channel, frame, std::get<std::array<int16_t, 3>>(value).data());
        }
    }
    return missing;
}

// ---- Reading and writing ----

std::string SceneError::Text() const { return path.empty() ? message : path + ": " + message; }

namespace {

// The text as JSON (comments allowed), or the parser's complaint in `errors`.
std::optional<Json> ParseJson(std::string_view text, std::vector<SceneError>& errors) {
    try {
        return Json::parse(text, nullptr, true, true);
    } catch (const Json::exception& error) {
        std::string message = error.what();
        if (const size_t tag = message.find("] "); message.starts_with("[json.exception") && tag != std::string::npos)
            message.erase(0, tag + 2);
        errors.push_back({"", message});
        return std::nullopt;
    }
}

std::optional<std::string> ReadText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (file) text << file.rdbuf();
    if (!file || file.bad()) return std::nullopt;
    return text.str();
}

}  // namespace

SettingsReadResult ReadSettingsText(std::string_view text) {
    SettingsReadResult result;
    const std::optional<Json> root = ParseJson(text, result.errors);
    if (!root) return result;
    Reader in;
    Scene holder;
    if (in.Object(*root, "", {"table", "lens", "settings"})) {
        if (!root->contains("settings")) in.Error("", "needs \"settings\"");
        if (root->contains("table") && root->contains("lens")) in.Error("", "give \"table\" or \"lens\", not both");
        ReadTable(in, *root, result.source.table);
        const Json* lens = in.Member(*root, "", "lens", false);
        if (lens != nullptr && in.Object(*lens, "lens", {"name", "f-number", "blades", "blade-curvature", "aperture-rotation"})) {
            LookLens look;
            look.name = in.String(in.Member(*lens, "lens", "name"), "lens.name").value_or("");
            look.fNumber = in.Number(in.Member(*lens, "lens", "f-number", false), "lens.f-number", 0.5);
            if (const auto blades = in.Integer(in.Member(*lens, "lens", "blades", false), "lens.blades", 0, 32))
                look.blades = int(*blades);
            look.bladeCurvature = in.Number(in.Member(*lens, "lens", "blade-curvature", false), "lens.blade-curvature", 0.0);
            look.apertureRotation = in.Number(in.Member(*lens, "lens", "aperture-rotation", false), "lens.aperture-rotation");
            result.source.lens = look;
        }
        ReadSettings(in, *root, holder);
    }
    result.errors = std::move(in.errors);
    if (result.errors.empty()) result.settings = std::move(holder.settings);
    return result;
}

std::string WriteSettingsText(const SettingsRecord& settings, const LookSource& source) {
    std::vector<std::pair<std::string, std::string>> top;
    if (!source.table.empty()) top.emplace_back("table", Json(source.table).dump());
    if (source.lens) {
        Json lens{{"name", source.lens->name}};
        if (source.lens->fNumber) lens["f-number"] = *source.lens->fNumber;
        if (source.lens->blades) lens["blades"] = *source.lens->blades;
        if (source.lens->bladeCurvature) lens["blade-curvature"] = *source.lens->bladeCurvature;
        if (source.lens->apertureRotation) lens["aperture-rotation"] = *source.lens->apertureRotation;
        top.emplace_back("lens", Inline(lens));
    }
    top.emplace_back("settings", Lines(SettingsMembers(settings), "  "));
    return Lines(top, "") + "\n";
}

SettingsReadResult ReadSettingsFile(const std::filesystem::path& path) {
    const std::optional<std::string> text = ReadText(path);
    if (!text) {
        SettingsReadResult result;
        result.errors.push_back({"", "cannot read " + path.string()});
        return result;
    }
    return ReadSettingsText(*text);
}

SettingsReadResult LoadLookFile(const std::filesystem::path& path) {
    SettingsReadResult read = ReadSettingsFile(path);
    if (read.errors.empty()) return read;
    std::string message = path.string() + ":";
    for (const SceneError& problem : read.errors) message += (read.errors.size() > 1 ? "\n  " : " ") + problem.Text();
    throw std::runtime_error(message);
}

SettingsRecord LoadSettingsFile(const std::filesystem::path& path) { return *LoadLookFile(path).settings; }

SceneReadResult ReadScene(std::string_view text) {
    SceneReadResult result;
    const std::optional<Json> parsed = ParseJson(text, result.errors);
    if (!parsed) return result;
    const Json& root = *parsed;
    Reader in;
    Scene scene;
    if (in.Object(root, "", {"frames", "image", "light", "table", "settings", "channels", "lens"})) {
        ReadFrames(in, root, scene);
        ReadImage(in, root, scene);
        ReadLight(in, root, scene);
        ReadTable(in, root, scene.table);
        ReadSettings(in, root, scene);
        ReadChannels(in, root, scene);
        ReadLens(in, root, scene);
    }
    result.errors = std::move(in.errors);
    if (result.errors.empty()) result.scene = std::move(scene);
    return result;
}

SceneReadResult ReadSceneFile(const std::filesystem::path& path) {
    const std::optional<std::string> text = ReadText(path);
    if (!text) {
        SceneReadResult result;
        result.errors.push_back({"", "cannot read " + path.string()});
        return result;
    }
    return ReadScene(*text);
}

std::string WriteScene(const Scene& scene) {
    std::vector<std::pair<std::string, std::string>> top;
    top.emplace_back("frames", Inline(Json{{"first", scene.firstFrame}, {"last", scene.lastFrame}}));
    top.emplace_back("image", scene.input.empty() ? Inline(Json{{"width", scene.width}, {"height", scene.height}})
                                                  : Inline(Json{{"input", scene.input}}));

    std::vector<std::pair<std::string, std::string>> keys;
    for (const auto& [frame, key] : scene.light) {
        Json value{{"position", {key.x, key.y}}, {"color", key.color}, {"intensity", key.intensity}, {"radius", key.radius}};
        if (const auto one = scene.lightModes.byKey.find(frame); one != scene.lightModes.byKey.end())
            value["interpolation"] = std::string(host::InterpolationName(one->second));
        keys.emplace_back(std::to_string(frame), Inline(value));
    }
    const std::string units = scene.lightUnits == LightUnits::pixels ? "pixels" : "fraction";
    std::vector<std::pair<std::string, std::string>> light{{"units", Json(units).dump()}};
    if (scene.lightModes.all != Interpolation::linear)
        light.emplace_back("interpolation", Json(std::string(host::InterpolationName(scene.lightModes.all))).dump());
    light.emplace_back("keys", Lines(keys, "    "));
    top.emplace_back("light", Lines(light, "  "));

    if (!scene.table.empty()) top.emplace_back("table", Json(scene.table).dump());
    if (scene.settings) top.emplace_back("settings", Lines(SettingsMembers(*scene.settings), "  "));
    if (!scene.channels.empty()) {
        std::vector<std::pair<std::string, std::string>> channels;
        for (const SceneChannel& channel : kChannels) {
            const auto found = scene.channels.find(std::string(channel.name));
            if (found == scene.channels.end()) continue;
            Json values = Json::object();
            for (const auto& [frame, value] : found->second)
                std::visit([&, f = frame](const auto& v) { values[std::to_string(f)] = v; }, value);
            const auto modes = scene.channelModes.find(found->first);
            channels.emplace_back(std::string(channel.name),
                                  Inline(modes == scene.channelModes.end() ? values : Keyed(values, modes->second)));
        }
        top.emplace_back("channels", Lines(channels, "  "));
    }
    if (!scene.fNumber.empty()) {
        Json fNumbers = Json::object();
        for (const auto& [frame, n] : scene.fNumber) fNumbers[std::to_string(frame)] = n;
        top.emplace_back("lens", Inline(Json{{"fNumber", Keyed(fNumbers, scene.fNumberModes)}}));
    }
    return Lines(top, "") + "\n";
}

void WriteSceneFile(const std::filesystem::path& path, const Scene& scene) {
    const std::string text = WriteScene(scene);
    rsc::WriteFileAtomically(path, std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

}  // namespace vellux::engine
