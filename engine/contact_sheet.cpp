#include "engine/contact_sheet.h"

#include <algorithm>
#include <stdexcept>

#include <OpenImageIO/imagebufalgo.h>

#include "engine/colour.h"
#include "engine/frame_image.h"
#include "engine/plate.h"

namespace vellux::engine {

namespace fs = std::filesystem;

namespace {

// The fonts tried for the labels, in order; "" is the image library's own default.
constexpr const char* kLabelFonts[] = {"DejaVuSans", "LiberationSans-Regular", ""};

}  // namespace

OIIO::ImageBuf CellPlate(const fs::path& file, FrameSize cell) {
    const OIIO::ImageBuf read = FrameImage::Read(file).image();
    const bool floatPixels = read.spec().format.is_floating_point();
    const std::string space =
        ChooseColorspace("-i", floatPixels ? read.spec().get_string_attribute("oiio:ColorSpace") : "", floatPixels);
    OIIO::ImageBuf colour = OIIO::ImageBufAlgo::channels(read, 3, {0, 1, 2});
    if (!IsDisplaySpace(space)) {
        OIIO::ImageBuf converted;
        if (!OIIO::ImageBufAlgo::colorconvert(converted, colour, space, kDisplaySpace))
            throw std::runtime_error(file.string() + ": " + ImageErrorText(converted));
        colour = std::move(converted);
    }
    const int width = colour.spec().width, height = colour.spec().height;
    const double aspect = double(cell.width) / cell.height;
    const int cutWidth = std::min(width, int(height * aspect + 0.5)), cutHeight = std::min(height, int(width / aspect + 0.5));
    const int x0 = colour.spec().x + (width - cutWidth) / 2, y0 = colour.spec().y + (height - cutHeight) / 2;
    OIIO::ImageBuf cut = OIIO::ImageBufAlgo::cut(colour, OIIO::ROI(x0, x0 + cutWidth, y0, y0 + cutHeight, 0, 1, 0, 3));
    OIIO::ImageBuf scaled(OIIO::ImageSpec(cell.width, cell.height, 3, OIIO::TypeFloat));
    if (!OIIO::ImageBufAlgo::resize(scaled, cut)) throw std::runtime_error(file.string() + ": " + ImageErrorText(scaled));
    return scaled;
}

// Writes `text` in the lower left of the cell at (x, y); false when no font can be had.
bool LabelCell(OIIO::ImageBuf& sheet, int x, int y, FrameSize cell, const std::string& text, std::optional<std::string>& font) {
    const int size = std::max(10, cell.height / 11);
    const float colour[3] = {0.9f, 0.9f, 0.9f};
    const auto draw = [&](const char* name) {
        const bool drawn = OIIO::ImageBufAlgo::render_text(sheet, x + size / 2, y + cell.height - size / 2, text, size, name,
                                                           colour, OIIO::ImageBufAlgo::TextAlignX::Left,
                                                           OIIO::ImageBufAlgo::TextAlignY::Baseline, 1);
        if (!drawn) sheet.geterror();   // cleared: a missing font is not the sheet's failure
        return drawn;
    };
    if (font) return draw(font->c_str());
    for (const char* name : kLabelFonts) {
        if (draw(name)) {
            font = name;
            return true;
        }
    }
    return false;
}

OIIO::ImageBuf PaintCell(Flare& flare, const std::optional<OIIO::ImageBuf>& plate, FrameSize cell, const FlareLight& light) {
    // On black the flare as a PNG render gives it; on the plate, blended into its display levels.
    return plate ? flare.Composite(*plate, light, {0, kDisplaySpace, kDefaultBlend}) : flare.CompositeBlack(cell, light, {});
}

void PasteCell(OIIO::ImageBuf& sheet, int x, int y, const OIIO::ImageBuf& cell) {
    if (!OIIO::ImageBufAlgo::paste(sheet, x, y, 0, 0, cell)) throw std::runtime_error("the contact sheet: " + ImageErrorText(sheet));
}

}  // namespace vellux::engine
