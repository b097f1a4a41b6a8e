// The "tables" command: the flare tables `--table NAME` finds, each with its description and file,
// and the folders searched (engine/table_search.h); or, with --sheet, a contact sheet of every
// table and lens (engine/look_sheet.h).
//
//   vellux tables
//   vellux tables --sheet sheet.png [-i PLATE] [--size WxH] [--columns N]
#ifndef VELLUX_TOOLS_TABLES_COMMAND_H
#define VELLUX_TOOLS_TABLES_COMMAND_H

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "engine/table_search.h"
#include "tools/vellux/command.h"

namespace vellux::tool {

void AddTablesCommand(CLI::App& app, Action& action);

// The listing: one line a table (name, description, file), then the folders searched.
std::string TablesText(const std::vector<TableEntry>& tables, const std::vector<std::filesystem::path>& folders);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_TABLES_COMMAND_H
