#include "tools/vellux/tables_command.h"

#include <algorithm>
#include <iostream>

namespace vellux::tool {

std::string TablesText(const std::vector<TableEntry>& tables, const std::vector<std::filesystem::path>& folders) {
    size_t width = 4;
    for (const TableEntry& table : tables) width = std::max(width, table.name.size());
    std::string text;
    for (const TableEntry& table : tables) {
        text += table.name + std::string(width + 2 - table.name.size(), ' ');
        text += (table.description.empty() ? "(no description)" : table.description) + "\n";
        text += std::string(width + 2, ' ') + table.file.string() + "\n";
    }
    if (tables.empty()) text += "No flare tables found.\n";
    text += "\nSearched, in order:\n";
    for (const std::filesystem::path& folder : folders) text += "  " + folder.string() + "\n";
    return text;
}

void AddTablesCommand(CLI::App& app, Action& action) {
    app.add_subcommand("tables", "The flare tables --table NAME finds, and where they are looked for")->callback([&action] {
        action = [] {
            std::cout << TablesText(ListTables(), TableFolders());
            return 0;
        };
    });
}

}  // namespace vellux::tool
