// A contact sheet of a lens's own flare (lens_look.h): a row per f-number and a column per light
// position (near the centre, in the upper left, near the right edge, where the ghosts are cut
// into cat's eyes), each cell the flare on black or on a plate, blended as a render blends it by
// default and shown as an 8-bit sRGB image is. Each cell is labelled with its f-number where the
// image library can draw text (it needs a font: DejaVu Sans or the library's own); without one
// the cells are left unlabelled.
//
// Errors throw before anything is painted or written, as the engine's do (engine.h): the lens,
// every f-number, the blades, the cell size, the plate and the output's format are checked first.
#ifndef VELLUX_ENGINE_LENS_SHEET_H
#define VELLUX_ENGINE_LENS_SHEET_H

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>

#include "engine/lens_look.h"
#include "engine/option_values.h"

namespace vellux::engine {

struct LensSheetRequest {
    LensLookOptions lens;           // its fNumber is ignored: each row has its own
    std::vector<double> fNumbers;   // the rows, top down; empty: DefaultSheetFNumbers
    FrameSize cell{480, 270};
    std::filesystem::path plate;    // empty: black cells; else the plate, cropped to the cell's shape and scaled
    std::filesystem::path plugin;   // empty: searched beside the program (plugin_location.h)
    std::filesystem::path output;
};

// Where the light is in each column: fractions of the cell's width and height.
inline constexpr std::array<std::array<double, 2>, 3> kSheetLights{{{0.56, 0.42}, {0.2, 0.22}, {0.95, 0.62}}};

// The rows of a sheet when none are asked for: the lens's widest f-number, then f/4 and f/8 where
// they close it by more than a third of a stop.
std::vector<double> DefaultSheetFNumbers(double widest);

// An f-number as a lens's barrel writes it: 2, 2.8, 5.6, 11.
std::string FNumberText(double fNumber);

// The sheet, 8-bit RGB, kSheetLights.size() cells across and a row per f-number.
OIIO::ImageBuf LensSheet(const LensSheetRequest& request);

// The sheet written to request.output (atomically, its format by extension).
void WriteLensSheet(const LensSheetRequest& request);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_LENS_SHEET_H
