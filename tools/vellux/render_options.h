// The options of `vellux render`: declared on the command line (AddRenderOptions), then checked
// into a RenderRequest (CheckRenderOptions), which throws std::invalid_argument with one message
// naming the option and what is wrong. Whether files exist is for the render itself to find out.
#ifndef VELLUX_TOOLS_RENDER_OPTIONS_H
#define VELLUX_TOOLS_RENDER_OPTIONS_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "tools/vellux/frame_sequence.h"
#include "tools/vellux/option_values.h"
#include "tools/vellux/plugin_settings.h"

namespace vellux::tool {

// The options as typed.
struct RenderOptions {
    std::string input;
    std::string size;
    std::string scene;
    std::string frames;
    std::string output;
    std::string light;              // X,Y in pixels
    std::string lightFraction;      // X,Y as fractions of the width and height
    std::string color = "255,255,255";
    double intensity = 1.0;
    double radius = 0.0;
    std::string table;
    std::optional<int32_t> bandRows;
    std::string plugin;
    bool quiet = false;
    std::string mode = "composite";
    bool half = false;
    std::string occlusion;
    SettingEdits settings;
};

// What to render, checked.
struct RenderRequest {
    std::filesystem::path input;    // empty: a black frame of blackFrame's size
    FrameSize blackFrame;
    std::filesystem::path scene;    // a scene to render as a sequence instead (no input, no light)
    std::optional<FrameRange> frames;   // with a scene: these of its frames; none: all
    std::filesystem::path output;   // with a scene: a frame pattern (frame_sequence.h)
    bool lightIsFraction = true;
    double lightX = 0.3;            // pixels, or a fraction of the width
    double lightY = 0.35;           // pixels, or a fraction of the height
    LightColor color;
    double intensity = 1.0;
    double radius = 0.0;            // the light's radius on the frame, pixels
    std::filesystem::path table;    // empty: the plug-in's own Vellux.rsc
    int32_t bandRows = 0;           // 0: the whole frame in one generate command
    std::filesystem::path plugin;   // empty: searched beside the tool
    bool quiet = false;
    bool passMode = false;          // the flare alone on black, with alpha, for compositing
    bool halfFloat = false;         // a pass written as half-float EXR
    std::filesystem::path occlusion;    // a mask hiding the light: 1 = hidden
    SettingEdits settings;
};

void AddRenderOptions(CLI::App& render, RenderOptions& options);
RenderRequest CheckRenderOptions(const RenderOptions& options);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_RENDER_OPTIONS_H
