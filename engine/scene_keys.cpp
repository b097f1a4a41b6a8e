// Keying a scene's settings into its channels, and reading settings records and channel keys.
// See scene_keys.h.
#include "engine/scene_keys.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <stdexcept>

#include "engine/plugin_location.h"
#include "engine/scene_session.h"

namespace vellux::engine {

namespace fs = std::filesystem;

namespace {

// Copies the record field by field, each field's bytes reversed when `reverse`: from either byte
// order to the other, so it both reads and writes a record of the other order.
void CopyFields(const uint8_t* from, uint8_t* to, bool reverse) {
    const auto take = [&](size_t offset, size_t size) {
        std::memcpy(to + offset, from + offset, size);
        if (reverse) std::reverse(to + offset, to + offset + size);
    };
    take(offsetof(ControlDataRec, ownerType), 4);
    take(offsetof(ControlDataRec, ownerVersion), 4);
    for (size_t offset = offsetof(ControlDataRec, flareIntensity); offset <= offsetof(ControlDataRec, flareStreakSharpness);
         offset += 8)
        take(offset, 8);
    for (size_t i = 0; i < 4; ++i) take(offsetof(ControlDataRec, flareRingColor) + 2 * i, 2);
    take(offsetof(ControlDataRec, flareFlags), 4);
    take(offsetof(ControlDataRec, flareStarFilter), 4);
}

}  // namespace

ControlDataRec DecodeSettings(const SettingsRecord& record) {
    if (record.bytes.size() != sizeof(ControlDataRec))
        throw std::runtime_error("the settings record has " + std::to_string(record.bytes.size()) + " bytes, not " +
                                 std::to_string(sizeof(ControlDataRec)));
    ControlDataRec c{};
    CopyFields(record.bytes.data(), reinterpret_cast<uint8_t*>(&c), record.byteOrder != NativeByteOrder());
    return c;
}

SettingsRecord EncodeSettings(const ControlDataRec& control, ByteOrder order) {
    SettingsRecord record{order, std::vector<uint8_t>(sizeof(ControlDataRec))};
    CopyFields(reinterpret_cast<const uint8_t*>(&control), record.bytes.data(), order != NativeByteOrder());
    return record;
}

std::map<std::string, ChannelKeys> ChannelKeysOf(const host::ChannelStore& store) {
    std::map<std::string, ChannelKeys> channels;
    for (const SceneChannel& known : SceneChannels()) {
        for (const host::Channel& channel : store.All()) {
            if (channel.name != known.name || channel.type != known.type || channel.keys.empty()) continue;
            ChannelKeys& keys = channels[channel.name];
            for (const auto& [frame, bytes] : channel.keys) {
                if (known.type == kChannelReal) {
                    double value = 0.0;
                    std::memcpy(&value, bytes.data(), sizeof(value));
                    keys[frame] = value;
                } else {
                    std::array<int16_t, 3> rgb{};
                    std::memcpy(rgb.data(), bytes.data(), sizeof(rgb));
                    keys[frame] = rgb;
                }
            }
        }
    }
    return channels;
}

Scene KeySceneFrames(const KeyRequest& request) {
    FlareSetup setup;
    setup.plugin = FindPlugin(request.plugin);
    setup.table = request.table;
    setup.copy = host::PluginCopy::shared;
    Scene scene = LoadScene(request.scene);
    const FrameRange frames = FramesWithin(scene, request.frames, "--frames");
    SceneSession session(setup, request.scene, scene);
    if (session.host().Channels().All().empty())
        throw std::runtime_error(request.scene.string() + ": the plug-in published no channels to key (its flare has no elements)");
    session.instance().UpdateChannels(frames.first, frames.last);
    scene.channels = ChannelKeysOf(session.host().Channels());
    session.Finish();
    WriteSceneFile(request.scene, scene);
    return scene;
}

}  // namespace vellux::engine
