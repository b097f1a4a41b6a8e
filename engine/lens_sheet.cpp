#include "engine/lens_sheet.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <stdexcept>

#include <OpenImageIO/imagebufalgo.h>

#include "engine/colour.h"
#include "engine/contact_sheet.h"
#include "engine/flare.h"
#include "engine/frame_image.h"
#include "engine/plate.h"
#include "engine/plugin_location.h"
#include "lens/exact_trace.h"
#include "lens/glass.h"
#include "lens/paraxial.h"

namespace vellux::engine {

namespace fs = std::filesystem;

namespace {

// A third of a stop: f-numbers closer than this to the widest add nothing to a sheet.
constexpr double kThirdStop = 1.1225;

// The lens look of each row, made first: a lens, f-number or aperture that cannot be used is
// refused before anything is painted.
std::vector<LensLookOptions> RowOptions(const LensSheetRequest& request) {
    std::vector<double> fNumbers = request.fNumbers;
    if (fNumbers.empty()) {
        LensLookOptions widest = request.lens;
        widest.fNumber.reset();
        fNumbers = DefaultSheetFNumbers(LensLook(widest).fNumber());
    }
    std::vector<LensLookOptions> rows;
    for (const double fNumber : fNumbers) {
        LensLookOptions row = request.lens;
        row.fNumber = fNumber;
        LensLook{row};   // throws naming the value
        rows.push_back(row);
    }
    return rows;
}

// The radius of the lens's image circle on the sensor, mm.
double ImageCircle(const LensLookOptions& options) {
    const LensLook look(options);
    const lens::Prescription& prescription = look.prescription();
    return lens::FieldRadius(prescription, lens::kLineD, lens::Paraxial(prescription, lens::kLineD).backFocus);
}

// A sheet light's place in its cell, pulled in towards the centre where it would lie outside the
// lens's image circle (a fisheye's on a wide frame), where the lens forms no image and no flare.
FlareLight SheetLight(const std::array<double, 2>& place, FrameSize cell, const LensLookOptions& options, double imageCircle) {
    const double frameMm = std::min(options.sensorWidth, options.sensorHeight) / double(std::min(cell.width, cell.height));
    double dx = (place[0] - 0.5) * cell.width, dy = (place[1] - 0.5) * cell.height;
    const double r = std::hypot(dx, dy) * frameMm, within = 0.85 * imageCircle;
    if (r > within) dx *= within / r, dy *= within / r;
    FlareLight light;
    light.x = 0.5 * cell.width + dx, light.y = 0.5 * cell.height + dy;
    return light;
}

}  // namespace

std::vector<double> DefaultSheetFNumbers(double widest) {
    std::vector<double> rows{widest};
    for (const double stop : {4.0, 8.0})
        if (stop > widest * kThirdStop) rows.push_back(stop);
    return rows;
}

std::string FNumberText(double fNumber) {
    char text[32];
    std::snprintf(text, sizeof text, fNumber < 10.0 ? "%.2g" : "%.0f", fNumber);
    return text;
}

OIIO::ImageBuf LensSheet(const LensSheetRequest& request) {
    const std::vector<LensLookOptions> rows = RowOptions(request);
    const FrameSize cell = request.cell;
    const int columns = int(kSheetLights.size());
    CheckFrameMemory({cell.width * columns, cell.height * int(rows.size())}, 12.0 + 3.0, "--size");
    if (!request.plate.empty() && !fs::exists(request.plate))
        throw std::runtime_error(request.plate.string() + ": no such file");
    const std::optional<OIIO::ImageBuf> plate =
        request.plate.empty() ? std::nullopt : std::optional(CellPlate(request.plate, cell));

    OIIO::ImageBuf sheet(OIIO::ImageSpec(cell.width * columns, cell.height * int(rows.size()), 3, OIIO::TypeFloat),
                         OIIO::InitializePixels::Yes);
    const double imageCircle = ImageCircle(rows.front());
    FlareSetup setup;
    setup.plugin = FindPlugin(request.plugin);
    std::optional<std::string> font;
    bool labelled = true;
    for (size_t row = 0; row < rows.size(); ++row) {
        setup.lens = rows[row];
        Flare flare(setup);
        for (int column = 0; column < columns; ++column) {
            const FlareLight light = SheetLight(kSheetLights[size_t(column)], cell, rows[row], imageCircle);
            const int x = column * cell.width, y = int(row) * cell.height;
            PasteCell(sheet, x, y, PaintCell(flare, plate, cell, light));
            if (labelled) labelled = LabelCell(sheet, x, y, cell, "f/" + FNumberText(*rows[row].fNumber), font);
        }
        flare.Finish();
    }
    sheet.specmod().attribute("oiio:ColorSpace", kDisplaySpace);
    return sheet;
}

void WriteLensSheet(const LensSheetRequest& request) {
    CheckOutputFormat(request.output);
    const OIIO::ImageBuf sheet = LensSheet(request);
    WriteImageFile(sheet, request.output, OIIO::TypeUInt8);
}

}  // namespace vellux::engine
