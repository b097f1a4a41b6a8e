// The "settings" command group: the plug-in's settings dialog run without a display, by the
// scripted dialog runner, for scripts and for a look at the settings.
//
//   vellux settings show   [--scene S | --settings F]             every control's label and value;
//                                                                 the dialog is cancelled
//   vellux settings set    (--scene S | --settings F) NAME=VALUE... sets the controls in order,
//                                                                 each firing its hit, presses OK
//                                                                 and saves
//   vellux settings preview -o P.png [--light X,Y] [-i PLATE] [NAME=VALUE...]
//                                                                 the preview as the dialog draws
//                                                                 it, after the edits and a click
//                                                                 at X,Y (fractions of the
//                                                                 preview), on the plate if one
//                                                                 is given; nothing is saved
//
// NAME is a control's label ("Intensity", case-insensitive) or its ID; check boxes take on/off,
// the pop-up an item's text or number, the colour #RRGGBB, number fields any text (the plug-in
// reads what does not parse as 0).
#ifndef VELLUX_TOOLS_SETTINGS_COMMAND_H
#define VELLUX_TOOLS_SETTINGS_COMMAND_H

#include <filesystem>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "host/dialog_model.h"
#include "host/image_backdrop.h"
#include "engine/dialog_session.h"
#include "tools/vellux/command.h"

namespace vellux::tool {

void AddSettingsCommands(CLI::App& app, Action& action);

// --scene, --settings (exclusive), --plugin, --table: where `settings` and `edit` take the record.
void AddSettingsSourceOptions(CLI::App& command, SettingsSource& source);

// -i/--plate, --blend, --colorspace: the plate `settings preview` and `edit` show the preview on.
struct PreviewPlateChoice {
    std::filesystem::path plate;   // empty: the preview on black
    std::string blend = "display";
    std::string colorspace;
};
void AddPreviewPlateOptions(CLI::App& command, PreviewPlateChoice& choice);

// The backdrop for the preview (engine/preview_plate.h), the plate read; null without a plate.
// Throws naming the file or the option, before any dialog is shown.
std::unique_ptr<host::ImageBackdrop> LoadPreviewPlate(const PreviewPlateChoice& choice);

// The listing of `settings show`: the dialog's title, then one line per control a person edits.
std::string DialogListing(host::Dialog& dialog);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_SETTINGS_COMMAND_H
