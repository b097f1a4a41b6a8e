#include "tools/vellux/tables_command.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include "tools/vellux/image_actions.h"

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
    struct Options {
        std::filesystem::path sheet, plate;
        std::string size = "320x180";
        int columns = 4;
    };
    auto options = std::make_shared<Options>();
    CLI::App* tables = app.add_subcommand("tables", "The flare tables --table NAME finds, and where they are looked for");
    CLI::Option* sheet = tables->add_option("--sheet", options->sheet, "Instead, write a contact sheet of every table and lens")
                             ->type_name("FILE");
    tables->add_option("-i,--input", options->plate, "With --sheet: a plate to show each look on instead of black")->needs(sheet);
    tables->add_option("--size", options->size, "With --sheet: each cell's size")->type_name("WxH")->capture_default_str()->needs(sheet);
    tables->add_option("--columns", options->columns, "With --sheet: cells across")->capture_default_str()->needs(sheet);
    tables->callback([options, &action] {
        action = [options] {
            if (options->sheet.empty()) {
                std::cout << TablesText(ListTables(), TableFolders());
                return 0;
            }
            engine::LookSheetRequest request;
            request.cell = engine::ParseFrameSize("--size", options->size);
            request.columns = options->columns;
            request.plate = options->plate;
            request.output = options->sheet;
            LoadImageActions().writeLookSheet(request);
            return 0;
        };
    });
}

}  // namespace vellux::tool
