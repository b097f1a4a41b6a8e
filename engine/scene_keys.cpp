// Keying a scene's settings into its channels, and reading channel keys.
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
