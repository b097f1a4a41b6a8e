// The options of `vellux render`: declared on the command line (AddRenderOptions), then checked
// into a RenderRequest (CheckRenderOptions), which throws std::invalid_argument with one message
// naming the option and what is wrong. Whether files exist is for the render itself to find out.
#ifndef VELLUX_TOOLS_RENDER_OPTIONS_H
#define VELLUX_TOOLS_RENDER_OPTIONS_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "engine/frame_sequence.h"
#include "engine/option_values.h"
#include "engine/plugin_settings.h"
#include "engine/render_request.h"

namespace vellux::tool {

using namespace vellux::engine;   // the tool is a front end of the engine

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
    std::string lens;                              // the lens's physical flare (--lens and its aperture)
    std::optional<double> fNumber, bladeCurvature, apertureRotation;
    std::optional<int> blades;
    std::optional<int32_t> bandRows;
    std::string plugin;
    bool quiet = false;
    std::string mode = "composite";
    bool half = false;
    std::string occlusion;
    std::string colorspace;
    std::string blend = "display";
    std::string compression;
    std::optional<int32_t> jobs;
    std::optional<int32_t> threads;
    std::string settingsFile;
    SettingEdits settings;
};

void AddRenderOptions(CLI::App& render, RenderOptions& options);
RenderRequest CheckRenderOptions(const RenderOptions& options);

// What the options probably did not mean, each a sentence for the user (the render goes on).
std::vector<std::string> RenderWarnings(const RenderOptions& options);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_RENDER_OPTIONS_H
