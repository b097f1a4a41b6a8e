#include "tools/vellux/lens_command.h"
#include "tools/vellux/image_actions.h"
#include "tools/vellux/rsc_command.h"

#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine/table_search.h"
#include "host/resource_file.h"
#include "host/table_export.h"
#include "host/table_source.h"
#include "lens/glass.h"
#include "lens/paraxial.h"
#include "lens/prescription.h"

namespace vellux::tool {

namespace {

using lens::Ghost;
using lens::GhostOptions;
using lens::Prescription;

std::string Format(const char* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

GhostOptions GhostOptionsOf(const LensOptions& options) {
    GhostOptions ghost;
    ghost.fNumber = options.fNumber;
    double width = 0.0, height = 0.0;
    char end = 0;
    if (std::sscanf(options.sensor.c_str(), "%lfx%lf%c", &width, &height, &end) != 2 || !(width > 0.0) || !(height > 0.0))
        throw std::runtime_error("--sensor: '" + options.sensor + "' is not WIDTHxHEIGHT in mm (36x24)");
    ghost.sensorWidth = width, ghost.sensorHeight = height;
    if (!options.coating.empty()) {
        ghost.coating = lens::CoatingNamed(options.coating);
        if (!ghost.coating) throw std::runtime_error("--coating: '" + options.coating + "' is not none, mgf2 or multi");
    }
    return ghost;
}

std::string Surfaces(const Ghost& ghost) { return std::to_string(ghost.first + 1) + "-" + std::to_string(ghost.second + 1); }

rsc::Json ShowJson(const Prescription& lens, const lens::ParaxialData& data, double fNumber, const std::vector<Ghost>& ghosts) {
    rsc::Json out = {{"name", lens.name}, {"focalLength", data.focalLength}, {"backFocus", data.backFocus},
                     {"pupilDiameter", data.pupilDiameter}, {"pupilPosition", data.pupilPosition},
                     {"fullAperture", data.fNumber}, {"fNumber", fNumber}, {"ghosts", rsc::Json::array()}};
    for (const Ghost& ghost : ghosts)
        out["ghosts"].push_back({{"surfaces", {ghost.first + 1, ghost.second + 1}}, {"position", ghost.position},
                                 {"radius", ghost.radius}, {"brightness", ghost.brightness}});
    return out;
}

// A table's resources other than the flare and its elements (the settings dialog and the kit's
// messages), as table source: the given table's, or the default one's.
rsc::Json DialogSource(const std::filesystem::path& from) {
    const std::filesystem::path table = from.empty() ? FindDefaultTable() : FindTable(from.string());
    if (table.empty()) throw std::runtime_error("no default flare table found to take the settings dialog from (vellux tables)");
    rsc::Json source = TableSourceFromFile(rsc::ReadResourceFile(table));
    rsc::Json kept = rsc::Json::array();
    for (const rsc::Json& resource : source["resources"])
        if (resource.value("type", "") != "FLAR" && resource.value("type", "") != "RING") kept.push_back(resource);
    return {{"resources", kept}};
}

void AddLensShow(CLI::App& group, Action& action) {
    auto options = std::make_shared<LensOptions>();
    CLI::App* show = group.add_subcommand("show", "A lens's paraxial data and its ghosts, brightest first");
    show->add_option("lens", options->lens, "Lens prescription (JSON)")->required();
    show->add_option("--f-number", options->fNumber, "Aperture (default: the lens's stated one)")->check(CLI::PositiveNumber);
    show->add_option("--sensor", options->sensor, "Sensor size in mm, WIDTHxHEIGHT (default 36x24)");
    show->add_option("--coating", options->coating, "Every surface's coating: none, mgf2 or multi");
    show->add_flag("--json", options->json, "Write the figures as JSON");
    show->callback([options, &action] { action = [options] { return ShowLens(*options, std::cout); }; });
}

void AddLensCompile(CLI::App& group, Action& action) {
    auto options = std::make_shared<LensOptions>();
    CLI::App* compile = group.add_subcommand("compile", "A flare table of a lens's brightest ghosts");
    compile->add_option("lens", options->lens, "Lens prescription (JSON)")->required();
    compile->add_option("-o,--output", options->output, "The table to write (.rsc, or table source with --json)")->required();
    compile->add_option("--f-number", options->fNumber, "Aperture (default: the lens's stated one)")->check(CLI::PositiveNumber);
    compile->add_option("--sensor", options->sensor, "Sensor size in mm, WIDTHxHEIGHT (default 36x24)");
    compile->add_option("--coating", options->coating, "Every surface's coating: none, mgf2 or multi");
    compile->add_option("--ghosts", options->ghosts, "How many of the brightest ghosts (default 24)")->check(CLI::Range(0, 900));
    compile->add_option("--exposure", options->exposure, "Brightness of the ghosts (default 1)")->check(CLI::NonNegativeNumber);
    compile->add_option("--dialogs", options->dialogs, "The table whose settings dialog it carries (default: the default table)");
    compile->add_flag("--json", options->json, "Write the table source instead, for tuning by hand");
    compile->callback([options, &action] { action = [options] { return CompileLens(*options, std::cerr); }; });
}

void AddPreview(CLI::App& group, Action& action) {
    struct Options {
        std::string lens;
        std::filesystem::path output, plate;
        std::vector<double> fNumbers;
        std::optional<int> blades;
        std::string size = "480x270";
    };
    auto options = std::make_shared<Options>();
    CLI::App* preview = group.add_subcommand("preview", "A contact sheet of a lens's own flare: a row per f-number, a column per light position");
    preview->add_option("lens", options->lens, "A lens's name or prescription (JSON)")->required();
    preview->add_option("-o,--output", options->output, "The sheet to write (8-bit); its extension picks the format")->required();
    preview->add_option("--f-numbers", options->fNumbers, "The rows (default: the lens's widest, 4 and 8)")
        ->delimiter(',')->type_name("N,N,...")->check(CLI::PositiveNumber);
    preview->add_option("--blades", options->blades, "The iris's blades, 0 for round, 3 to 32 (default: the lens's)")->type_name("K");
    preview->add_option("--size", options->size, "Each cell's size")->type_name("WxH")->capture_default_str();
    preview->add_option("-i,--input", options->plate, "A plate to show the flare on instead of black");
    preview->callback([options, &action] {
        action = [options] {
            LensSheetRequest request;
            request.lens.lens = options->lens;
            request.lens.blades = options->blades;
            request.fNumbers = options->fNumbers;
            request.cell = ParseFrameSize("--size", options->size);
            request.plate = options->plate;
            request.output = options->output;
            LoadImageActions().writeLensSheet(request);
            return 0;
        };
    });
}

}  // namespace

void AddLensCommands(CLI::App& app, Action& action) {
    CLI::App* group = app.add_subcommand("lens", "Flare tables computed from real lens designs");
    group->require_subcommand(1);
    AddLensShow(*group, action);
    AddLensCompile(*group, action);
    AddPreview(*group, action);
}

int ShowLens(const LensOptions& options, std::ostream& out) {
    const Prescription lens = lens::ReadPrescription(options.lens);
    const GhostOptions ghostOptions = GhostOptionsOf(options);
    const lens::ParaxialData data = lens::Paraxial(lens, lens::kLineD);
    const double fNumber = lens::UsedFNumber(lens, ghostOptions);
    const std::vector<Ghost> ghosts = lens::Ghosts(lens, ghostOptions);
    if (options.json) {
        out << ShowJson(lens, data, fNumber, ghosts).dump(2) << "\n";
        return 0;
    }
    out << lens.name << "\n";
    if (!lens.source.empty()) out << "  source               " << lens.source << "\n";
    out << "  focal length         " << Format("%.2f mm", data.focalLength) << Format(" (stated %g)", lens.focalLength) << "\n";
    out << "  back focal distance  " << Format("%.2f mm", data.backFocus) << "\n";
    out << "  entrance pupil       " << Format("%.2f mm across", data.pupilDiameter)
        << Format(", %.2f mm behind the first vertex", data.pupilPosition) << "\n";
    out << "  f-number             " << Format("f/%.3g", fNumber) << Format(" (full aperture f/%.3g)", data.fNumber) << "\n";
    out << "\nGhosts at " << Format("f/%.3g", fNumber) << " on a " << options.sensor
        << " mm sensor, brightest first (surfaces numbered from 1, the stop counted; position 1 at the light,\n"
           "0 at the centre; radius in flare units, the frame's smaller side; brightness red, green, blue):\n";
    out << "  surfaces  position   radius   brightness\n";
    for (const Ghost& ghost : ghosts) {
        char line[160];
        std::snprintf(line, sizeof line, "  %-8s %9.3f %8.4f   %.3g %.3g %.3g\n", Surfaces(ghost).c_str(), ghost.position[1],
                      ghost.radius[1], ghost.brightness[0], ghost.brightness[1], ghost.brightness[2]);
        out << line;
    }
    return 0;
}

int CompileLens(const LensOptions& options, std::ostream& messages) {
    const Prescription lens = lens::ReadPrescription(options.lens);
    const GhostOptions ghostOptions = GhostOptionsOf(options);
    const double fNumber = lens::UsedFNumber(lens, ghostOptions);
    rsc::Json source = lens::LensTableSource(lens, lens::Ghosts(lens, ghostOptions), fNumber, {options.ghosts, options.exposure});
    const rsc::Json dialogs = DialogSource(options.dialogs);   // kept: the loop walks a member of it
    for (const rsc::Json& resource : dialogs["resources"]) source["resources"].push_back(resource);
    const std::string text = FormatTableSource(source);
    const CompiledTable table = CompileTableSource(text);
    if (const int failed = ReportCompilation(table, options.lens.string(), options.output, messages)) return failed;
    if (options.json) rsc::WriteFileAtomically(options.output, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
    else rsc::WriteResourceFile(options.output, table.file);
    return 0;
}

}  // namespace vellux::tool
