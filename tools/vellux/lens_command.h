// The "lens" command group: flare tables computed from lens prescriptions (lens/).
//
//   vellux lens show LENS.json [--f-number N] [--sensor WxH] [--coating C] [--json]
//       the lens's paraxial data and its ghosts, brightest first
//   vellux lens compile LENS.json -o TABLE.rsc [--f-number N] [--sensor WxH] [--coating C]
//                       [--ghosts K] [--exposure E] [--dialogs TABLE.rsc] [--json]
//       a flare table of the K brightest ghosts after a glow and a halo, with the settings dialog
//       of the default table, compiled as vellux rsc compile does (written atomically; nothing
//       written on an error); --json writes the table source instead
//   vellux lens preview LENS -o SHEET.png [--f-numbers N,N,...] [--blades K] [--size WxH] [-i PLATE]
//       a contact sheet of the lens's own flare (engine/lens_sheet.h), drawn in the image module
#ifndef VELLUX_TOOLS_LENS_COMMAND_H
#define VELLUX_TOOLS_LENS_COMMAND_H

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>

#include <CLI/CLI.hpp>

#include "lens/ghosts.h"
#include "lens/lens_table.h"
#include "tools/vellux/command.h"

namespace vellux::tool {

struct LensOptions {
    std::filesystem::path lens;
    double fNumber = 0.0;          // 0: the lens's stated f-number
    std::string sensor = "36x24";  // mm
    std::string coating;           // empty: the prescription's
    int ghosts = 24;
    double exposure = 1.0;
    bool json = false;
    std::filesystem::path output;
    std::filesystem::path dialogs;   // the table whose settings dialog the new one carries; empty: the default table
};

void AddLensCommands(CLI::App& app, Action& action);

// The work of the subcommands; each returns the exit code.
int ShowLens(const LensOptions& options, std::ostream& out);
int CompileLens(const LensOptions& options, std::ostream& messages);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_LENS_COMMAND_H
