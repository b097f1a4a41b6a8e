// The cells of a contact sheet (a lens's, lens_sheet.h; every look's, look_sheet.h): a flare
// painted on black or on the user's plate, pasted into the sheet and labelled.
#ifndef VELLUX_ENGINE_CONTACT_SHEET_H
#define VELLUX_ENGINE_CONTACT_SHEET_H

#include <filesystem>
#include <optional>
#include <string>

#include <OpenImageIO/imagebuf.h>

#include "engine/flare.h"

namespace vellux::engine {

// The plate as a cell's background: its colour in display (sRGB) levels as float, cut to the
// cell's shape about its centre and scaled to the cell. Throws naming the file.
OIIO::ImageBuf CellPlate(const std::filesystem::path& file, FrameSize cell);

// The flare of `light` on black, as a PNG render gives it, or blended into the plate's display
// levels as a render blends it by default.
OIIO::ImageBuf PaintCell(Flare& flare, const std::optional<OIIO::ImageBuf>& plate, FrameSize cell, const FlareLight& light);

// `cell` into the sheet with its top left at (x, y).
void PasteCell(OIIO::ImageBuf& sheet, int x, int y, const OIIO::ImageBuf& cell);

// Writes `text` in the lower left of the cell at (x, y); false when no font can be had. `font`
// remembers the one found, for the next labels.
bool LabelCell(OIIO::ImageBuf& sheet, int x, int y, FrameSize cell, const std::string& text, std::optional<std::string>& font);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_CONTACT_SHEET_H
