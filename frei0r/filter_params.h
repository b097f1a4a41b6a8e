// The frei0r filter's parameters: what an editor's effect panel shows, and how each value maps
// onto the flare's settings.
//
// Names. A parameter that carries one of the flare's settings has the setting's own name
// (engine/setting_names.h: "flare-intensity", "ring-color") and the setting's meaning as its
// explanation; the light's parameters are named after the vellux tool's options ("light-fraction",
// "color", "intensity", "radius", "table", "lens", "f-number", "blades", "blend"). The name is the
// dashed one, not words: MLT sets a frei0r parameter by its name, so it is what an artist types
// after a melt filter (flare-intensity=0.4, with nothing to quote) and what an editor's project
// keeps, and it is the name the tool, look files, scenes and (with underscores) Python and Blender
// use. An editor shows it in words ("Flare intensity": the Kdenlive description).
//
// Values. Hosts show numbers as 0..1 sliders; each maps onto its setting's unit in a straight line,
// unit = min + slider x (max - min), so a host's saved slider values give the same settings again.
// The ranges are kept in filter_params.cpp's tables; the README describes them once, for artists.
// Hosts that set parameters by position (ffmpeg) see them in a fixed order: a new parameter only
// ever goes at the end.
//
// A value out of range is clamped, and one that is not a number ignored; either way the problem
// is reported once (the caller prints it), and rendering goes on.
#ifndef VELLUX_FREI0R_FILTER_PARAMS_H
#define VELLUX_FREI0R_FILTER_PARAMS_H

#include <string>

#include "frei0r/frei0r_api.h"

#include "engine/blend.h"
#include "engine/flare_instance.h"
#include "engine/plugin_settings.h"

namespace vellux::frei0r {

// Everything the parameters set, in the flare's own terms.
struct FilterSettings {
    double lightX = 0.3, lightY = 0.35;   // fractions of the frame
    engine::LightColor lightColor;
    double lightIntensity = 1.0;
    double lightRadius = 0.0;            // fraction of the frame's smaller side
    engine::SettingEdits edits = DefaultEdits();
    bool flareOnly = false;
    std::string table;
    engine::Blend blend = engine::kDefaultBlend;
    std::string lens;        // empty: the table's look
    double fNumber = 8.0;
    int blades = 0;
    bool followBrightest = false;   // the light is found in each frame and followed (light_follower.h)

    static engine::SettingEdits DefaultEdits();   // the plug-in's own defaults, every field given
};

inline constexpr int kParamCount = 32;

// frei0r's description of parameter `index` (0..kParamCount-1); the texts live as long as the program.
f0r_param_info_t ParamInfo(int index);

// Sets parameter `index` from a host's value (of the parameter's frei0r type). Returns the
// problem to report, or an empty string.
std::string SetParam(FilterSettings& settings, int index, const void* value);

// The host's value of parameter `index`, written where `value` points (a string parameter's text
// stays valid until the settings change).
void GetParam(const FilterSettings& settings, int index, void* value);

// The light in pixels on a frame of this size, where the parameters put it.
engine::FlareLight LightOn(const FilterSettings& settings, int width, int height);

}  // namespace vellux::frei0r

#endif  // VELLUX_FREI0R_FILTER_PARAMS_H
