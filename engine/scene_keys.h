// Keying a scene: the plug-in run as a host runs it (INIT with the scene's settings, ICHN, the
// scene's keys, UCHN over the frames), and the keys read back from the host's channel store.
#ifndef VELLUX_ENGINE_SCENE_KEYS_H
#define VELLUX_ENGINE_SCENE_KEYS_H

#include <filesystem>
#include <map>
#include <string>

#include "engine/frame_sequence.h"
#include "engine/scene.h"
#include "engine/settings_record.h"
#include "host/channel_store.h"
#include "vellux/plugin_records.h"

namespace vellux::engine {

// Every key of the plug-in's value channels in `store`, as scene channel keys.
std::map<std::string, ChannelKeys> ChannelKeysOf(const host::ChannelStore& store);

struct KeyRequest {
    std::filesystem::path scene;
    FrameRange frames;
    std::filesystem::path plugin;   // empty: searched beside the tool
    std::filesystem::path table;    // a name or path (table_search.h); empty: the default
};
// The work of `scene key`; returns the keyed scene as written.
Scene KeySceneFrames(const KeyRequest& request);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_SCENE_KEYS_H
