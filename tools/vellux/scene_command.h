// The "scene" command group: looking at a scene file and keying the plug-in's settings into it.
//
//   vellux scene show S.json                  frames, image, light keys, channel keys, and the
//                                             settings record decoded field by field
//   vellux scene key S.json --frames A-B      keys the scene's settings (the plug-in's defaults
//                                             when it has none) on every frame of A-B and writes
//                                             every channel's keys back into the scene
//
// `key` runs the plug-in as a host does (INIT with the scene's settings, ICHN, the scene's keys,
// UCHN A..B) and reads the keys from the host's channel store. The scene is written under a
// temporary name and renamed over the file only when complete. Rendering a scene is
// `vellux render --scene` (scene_render.h).
#ifndef VELLUX_TOOLS_SCENE_COMMAND_H
#define VELLUX_TOOLS_SCENE_COMMAND_H

#include <filesystem>
#include <ostream>
#include <string>

#include <CLI/CLI.hpp>

#include "host/channel_store.h"
#include "tools/vellux/command.h"
#include "engine/frame_sequence.h"
#include "engine/scene.h"
#include "engine/scene_keys.h"

namespace vellux::tool {

void AddSceneCommands(CLI::App& app, Action& action);

// The listing of `scene show`.
std::string SceneListing(const Scene& scene);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_SCENE_COMMAND_H
