// The frei0r filter's parameters: what an editor's effect panel shows, and how each value maps
// onto the flare's settings.
//
// frei0r hosts show doubles as 0..1 sliders. Each double maps linearly onto its setting's range,
// setting = min + slider x (max - min), so a host's saved slider values give the same settings
// again; the star filter is rounded to a whole number, slider x 10.
//
//   #   name                  type       setting                            range (slider 0..1)
//   0   Light position        position   the light, fractions of the frame  any (off the frame too)
//   1   Light colour          colour     the light's colour                 0..255 each
//   2   Light intensity       double     the light's intensity              0..4
//   3   Light radius          double     the light's radius, of the frame's smaller side  0..0.25
//   4   Flare intensity       double     overall strength                   0..2
//   5   Dissolve              double     fades the flare out                0..1
//   6   Ring size             double     the halo, flare units              0..1 (at least 0.001)
//   7   Ring colour           colour     the halo's colour                  0..255 each
//   8   Star filter           double     the star's points                  0..10, whole
//   9   Star rotation         double     degrees                            0..360
//   10  Streak density        double     streaks in the star                0..200
//   11  Streak intensity      double     their brightness                   0..0.3
//   12  Streak sharpness      double     their falloff                      0..30
//   13  Anamorphic factor     double     the anamorphic stretch             1..4
//   14..21 switches           bool       Glow, Glow in light colour, Halo, Reflections, Anamorphic,
//                                        Anamorphic streak, Random streaks, Follow light size
//   22  Flare only            bool       the flare alone on transparent black, for an overlay track
//   23  Flare table           string     a table's name or .rsc path; empty: the default
//   24  Light X               double     the light's x again, for hosts that   -1..2
//   25  Light Y               double     key only numbers (MLT): the last set wins  -1..2
//   26  Blend                 string     how the flare goes over the frame: display (the
//                                        plug-in's own add, the default), add (linear light), screen
//   27  Lens                  string     paint this lens's own flare (engine/lens_look.h) instead of
//                                        the table's: a lens's name or .json file; empty: the table's
//   28  F-number              double     the lens's aperture; below the lens's widest, the widest  1..22
//   29  Blades                double     the iris's blades, 0 round, whole (1 and 2 make 3)  0..16
//
// Hosts that set parameters by position (ffmpeg) need not give 24 and 25; the light's position
// comes first.
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

    static engine::SettingEdits DefaultEdits();   // the plug-in's own defaults, every field given
};

inline constexpr int kParamCount = 30;

// frei0r's description of parameter `index` (0..kParamCount-1); the texts live as long as the program.
f0r_param_info_t ParamInfo(int index);

// Sets parameter `index` from a host's value (of the parameter's frei0r type). Returns the
// problem to report, or an empty string.
std::string SetParam(FilterSettings& settings, int index, const void* value);

// The host's value of parameter `index`, written where `value` points (a string parameter's text
// stays valid until the settings change).
void GetParam(const FilterSettings& settings, int index, void* value);

// The light in pixels on a frame of this size.
engine::FlareLight LightOn(const FilterSettings& settings, int width, int height);

}  // namespace vellux::frei0r

#endif  // VELLUX_FREI0R_FILTER_PARAMS_H
