// Running the plug-in's settings dialog (the interface command, INTF) for a settings source: a
// scene file, a settings file, or neither (the plug-in's defaults, nothing saved).
//
// A settings file is JSON holding the record as a scene does:
//   {"settings": {"byteOrder": "little", "hex": "58554c56..."}}
// A settings file that does not exist yet starts from the plug-in's defaults and is created when
// the dialog is accepted.
//
// The session loads the plug-in, sends INIT with the source's record, then INTF with the given
// runner installed. When the artist accepts and the plug-in answers 0, the edited record is
// written back into the source (under a temporary name, renamed over the file only when complete);
// on Cancel, or any other answer, nothing is written. When the plug-in asked the host to drop its
// animation channels (it does so after a star-filter change), a scene's channel keys go too,
// since they belong to channels that no longer exist.
//
// A runner that offers looks (host/dialog_runner.h) is told the one shown; when the artist picks
// another table there, the session ends the plug-in's dialog keeping its edits and opens the
// dialog again on the picked table, the settings carried over. Saved, the look or scene names
// the table last picked.
#ifndef VELLUX_ENGINE_DIALOG_SESSION_H
#define VELLUX_ENGINE_DIALOG_SESSION_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>


#include "host/dialog_runner.h"

namespace vellux::engine {

struct SettingsSource {
    std::filesystem::path scene;      // edit this scene's settings
    std::filesystem::path settings;   // or this settings file's
    std::filesystem::path plugin;     // empty: searched beside the tool
    std::filesystem::path table;      // a name or path (table_search.h); empty: the default (holds the dialog)

    bool HasFile() const { return !scene.empty() || !settings.empty(); }
};

struct DialogOutcome {
    bool shown = false;               // the plug-in made the dialog and ran it
    bool accepted = false;            // the runner accepted it
    int32_t result = 0;               // the plug-in's answer to INTF (4: cancelled)
    bool channelsReset = false;       // the plug-in asked the host to drop its channels
    bool saved = false;               // the source was written
    std::string look;                 // the table picked in the dialog; empty: none was
    std::vector<uint8_t> record;      // the settings record after the command
};

// Throws std::runtime_error for a source that cannot be read or written, or a table that cannot
// be found, PluginError for a plug-in that cannot be loaded or refuses INIT, and when the table
// file holds no settings dialog.
DialogOutcome RunSettingsDialog(const SettingsSource& source, host::DialogRunner& runner, bool save);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_DIALOG_SESSION_H
