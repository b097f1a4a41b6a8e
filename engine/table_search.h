// Flare tables by name: where the front ends look for them, and what they hold.
//
// A table is a compiled resource file NAME.rsc. A name is looked up in these folders, the first
// that has it winning:
//   1. the user's own: $XDG_DATA_HOME/vellux/tables (default ~/.local/share/vellux/tables)
//   2. each folder of $VELLUX_TABLE_PATH, colon-separated, in order
//   3. the shipped tables: share/vellux/tables of an installed tree (beside bin/ and lib/), or the
//      build folder's tools/ where the build compiles them
// A name is matched exactly, else ignoring case. Text with a '/' or ending in .rsc is a path, used
// as it is. The default table is the one named Vellux; when none is found the plug-in reads
// Vellux.rsc from the host's home folder itself.
#ifndef VELLUX_ENGINE_TABLE_SEARCH_H
#define VELLUX_ENGINE_TABLE_SEARCH_H

#include <filesystem>
#include <string>
#include <vector>

namespace vellux::engine {

inline constexpr const char* kDefaultTableName = "Vellux";

// The folders searched, in order (missing ones included).
std::vector<std::filesystem::path> TableFolders();

// The table a name or path names. Throws std::runtime_error for a path that is not a file, and
// for an unknown name, listing the names there are and the closest to the one given.
std::filesystem::path FindTable(const std::string& nameOrPath);

// The default table's file, or empty when no folder has one.
std::filesystem::path FindDefaultTable();

struct TableEntry {
    std::string name;                 // the file name without .rsc
    std::filesystem::path file;
    std::string description;          // the flare's resource name (FLAR 1001); empty if unreadable
};

// Every table found, in search order, a name shadowed by an earlier folder left out.
std::vector<TableEntry> ListTables();

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_TABLE_SEARCH_H
