#include "engine/look_sheet.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "engine/colour.h"
#include "engine/contact_sheet.h"
#include "engine/flare.h"
#include "engine/frame_memory.h"
#include "engine/frame_image.h"
#include "engine/lens_look.h"
#include "engine/plate.h"
#include "engine/plugin_location.h"
#include "engine/render_request.h"
#include "engine/table_search.h"

namespace vellux::engine {

namespace fs = std::filesystem;

std::vector<SheetLook> SheetLooks() {
    std::vector<SheetLook> looks;
    for (const TableEntry& table : ListTables()) looks.push_back({table.name, table.name, ""});
    for (const LensEntry& lens : ListLenses()) looks.push_back({"lens " + lens.name, "", lens.name});
    return looks;
}

OIIO::ImageBuf LookSheet(const LookSheetRequest& request) {
    if (request.columns < 1) throw std::invalid_argument("--columns: " + std::to_string(request.columns) + " must be at least 1");
    const std::vector<SheetLook> looks = SheetLooks();
    if (looks.empty()) throw std::runtime_error("no flare tables or lenses found");
    const FrameSize cell = request.cell;
    const int columns = std::min(request.columns, int(looks.size()));
    const int rows = int((looks.size() + size_t(columns) - 1) / size_t(columns));
    CheckFrameMemory({cell.width * columns, cell.height * rows}, 12.0 + 3.0, "--size");
    if (!request.plate.empty() && !fs::exists(request.plate)) throw std::runtime_error(request.plate.string() + ": no such file");
    const std::optional<OIIO::ImageBuf> plate =
        request.plate.empty() ? std::nullopt : std::optional(CellPlate(request.plate, cell));

    OIIO::ImageBuf sheet(OIIO::ImageSpec(cell.width * columns, cell.height * rows, 3, OIIO::TypeFloat),
                         OIIO::InitializePixels::Yes);
    // The light where a render puts it when told nothing.
    const RenderRequest defaults;
    FlareLight light;
    light.x = defaults.lightX * cell.width, light.y = defaults.lightY * cell.height;
    std::optional<std::string> font;
    bool labelled = true;
    const fs::path plugin = FindPlugin(request.plugin);
    for (size_t k = 0; k < looks.size(); ++k) {
        FlareSetup setup;
        setup.plugin = plugin;
        setup.table = looks[k].table;
        if (!looks[k].lens.empty()) {
            setup.lens.emplace();
            setup.lens->lens = looks[k].lens;
        }
        Flare flare(setup);
        const int x = int(k % size_t(columns)) * cell.width, y = int(k / size_t(columns)) * cell.height;
        PasteCell(sheet, x, y, PaintCell(flare, plate, cell, light));
        if (labelled) labelled = LabelCell(sheet, x, y, cell, looks[k].label, font);
        flare.Finish();
    }
    sheet.specmod().attribute("oiio:ColorSpace", kDisplaySpace);
    return sheet;
}

void WriteLookSheet(const LookSheetRequest& request) {
    CheckOutputFormat(request.output);
    const OIIO::ImageBuf sheet = LookSheet(request);
    WriteImageFile(sheet, request.output, OIIO::TypeUInt8);
}

}  // namespace vellux::engine
