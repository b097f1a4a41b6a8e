// A contact sheet of every look there is to choose from: each flare table (table_search.h) and
// each lens's own flare (lens_look.h, at its default f-number), a cell each, labelled with the name
// --table or --lens takes, the light where a render puts it by default, on black or on the user's
// plate (cut to the cell's shape). For choosing a look by sight.
//
// Errors throw before anything is painted or written: the cell size, the plate and the output's
// format are checked first.
#ifndef VELLUX_ENGINE_LOOK_SHEET_H
#define VELLUX_ENGINE_LOOK_SHEET_H

#include <filesystem>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>

#include "engine/option_values.h"

namespace vellux::engine {

struct LookSheetRequest {
    FrameSize cell{320, 180};
    int columns = 4;
    std::filesystem::path plate;    // empty: black cells
    std::filesystem::path plugin;   // empty: searched beside the program (plugin_location.h)
    std::filesystem::path output;
};

// What the sheet shows, in order: the tables by name, then "lens NAME" for each lens.
struct SheetLook {
    std::string label;
    std::string table;   // a table's name, or empty
    std::string lens;    // a lens's name, or empty
};
std::vector<SheetLook> SheetLooks();

// The sheet, 8-bit RGB: `columns` cells across, as many rows as the looks need.
OIIO::ImageBuf LookSheet(const LookSheetRequest& request);

// The sheet written to request.output (atomically, its format by extension).
void WriteLookSheet(const LookSheetRequest& request);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_LOOK_SHEET_H
