// The procedure plug-in-vellux-flare: its arguments as plain data, its parameter table for the
// procedure database, and the last values GIMP keeps between runs.
//
//   run-mode, image, drawable   GIMP's own
//   light-x, light-y            the light on the image, pixels
//   color, intensity            the light's colour and intensity
//   table                       a flare table's name or .rsc file; empty: the default (Vellux)
//   lens                        a lens's name: its physical flare instead of the table's; empty: none
//   settings-file               a saved settings file to start from; empty: the table's defaults
//   settings                    then these, "ring-size=1.5 halo=off" (the render options' names)
//   blend                       display (default), add or screen
//   flare-only                  the flare alone onto a new layer above the drawable
#ifndef VELLUX_GIMP_FLARE_ARGUMENTS_H
#define VELLUX_GIMP_FLARE_ARGUMENTS_H

#include <string>

#include <libgimp/gimp.h>

#include "engine/option_values.h"
#include "engine/render_request.h"

namespace vellux::gimp {

inline constexpr const char* kProcedureName = "plug-in-vellux-flare";

struct FlareArguments {
    double lightX = 0.0, lightY = 0.0;   // image pixels
    engine::LightColor color;
    double intensity = 1.0;
    std::string table, lens, settingsFile, settings, blend;
    bool flareOnly = false;
};

// The parameters as the procedure database lists them, and how many.
const GimpParamDef* ProcedureParams(int* count);

// The arguments from a call's parameters (after run-mode, image and drawable); false, with a
// message, when there are too few.
bool ReadArguments(const GimpParam* params, int count, FlareArguments& arguments, std::string& problem);

// The first run's light: where `vellux render` puts it by default, 0.3 of the width and 0.35 of
// the height.
FlareArguments DefaultArguments(int imageWidth, int imageHeight);

// The last values of this procedure, kept by GIMP for the session; false when there are none.
bool LoadLastArguments(FlareArguments& arguments);
void SaveLastArguments(const FlareArguments& arguments);

// What the engine renders: the same request `vellux render --light X,Y ...` makes, the light on
// the drawable at `offsetX`, `offsetY` of the image.
engine::RenderRequest RequestFor(const FlareArguments& arguments, int offsetX, int offsetY);

}  // namespace vellux::gimp

#endif  // VELLUX_GIMP_FLARE_ARGUMENTS_H
