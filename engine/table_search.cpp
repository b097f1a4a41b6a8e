#include "engine/table_search.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <stdexcept>

#include "engine/closest_match.h"
#include "engine/option_values.h"
#include "engine/plugin_location.h"
#include "host/resource_file.h"

namespace vellux::engine {

namespace fs = std::filesystem;

namespace {

constexpr int16_t kFlareListId = 1001;

fs::path UserTableFolder() {
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data != nullptr && fs::path(data).is_absolute()) return fs::path(data) / "vellux" / "tables";
    const char* home = std::getenv("HOME");
    return home != nullptr && *home != '\0' ? fs::path(home) / ".local" / "share" / "vellux" / "tables" : fs::path();
}

std::string Description(const fs::path& table) {
    try {
        const rsc::ResourceFile file = rsc::ReadResourceFile(table);
        const rsc::Resource* flare = file.Find(rsc::TypeCode("FLAR"), kFlareListId);
        return flare != nullptr && flare->name ? *flare->name : std::string();
    } catch (const std::exception&) {
        return {};
    }
}

// The first table called `name` (exactly, else ignoring case) in the folders' order.
fs::path Lookup(const std::string& name) {
    for (const bool exact : {true, false}) {
        for (const fs::path& folder : TableFolders()) {
            for (const fs::path& table : FilesIn(folder, ".rsc")) {
                const std::string stem = table.stem().string();
                if (exact ? stem == name : LowerCase(stem) == LowerCase(name)) return table;
            }
        }
    }
    return {};
}

}  // namespace

std::vector<fs::path> TableFolders() {
    std::vector<fs::path> folders;
    const auto add = [&folders](const fs::path& folder) {
        if (!folder.empty() && std::find(folders.begin(), folders.end(), folder) == folders.end()) folders.push_back(folder);
    };
    add(UserTableFolder());
    for (const fs::path& folder : FoldersIn("VELLUX_TABLE_PATH")) add(folder);
    // Shipped: an installed tree keeps them in share/vellux/tables beside bin/ and lib/; the build
    // compiles them into tools/, the command-line tool's folder, beside which the engine lies.
    for (const fs::path& base : {EngineFolder(), RunningToolFolder()}) {
        if (base.empty()) continue;
        add(base.parent_path() / "share" / "vellux" / "tables");
        add(base / "tools");
    }
    add(RunningToolFolder());
    return folders;
}

fs::path FindTable(const std::string& nameOrPath) {
    const bool path = nameOrPath.find('/') != std::string::npos || fs::path(nameOrPath).extension() == ".rsc";
    if (path) {
        std::error_code error;
        if (!fs::is_regular_file(nameOrPath, error))
            throw std::runtime_error(nameOrPath + ": " + (fs::exists(nameOrPath, error) ? "not a file" : "no such flare table file"));
        return nameOrPath;
    }
    if (fs::path found = Lookup(nameOrPath); !found.empty()) return found;
    std::vector<std::string> names;
    for (const TableEntry& entry : ListTables()) names.push_back(entry.name);
    std::string message = "no flare table named '" + nameOrPath + "'";
    const std::string closest = ClosestMatch(nameOrPath, names);
    if (!closest.empty()) message += "; did you mean '" + closest + "'?";
    std::string known;
    for (const std::string& name : names) known += (known.empty() ? "" : ", ") + name;
    message += known.empty() ? " (no tables found; vellux tables shows where they are looked for)" : " (there are: " + known + ")";
    throw std::runtime_error(message);
}

fs::path FindDefaultTable() { return Lookup(kDefaultTableName); }

std::vector<TableEntry> ListTables() {
    std::vector<TableEntry> entries;
    for (const fs::path& folder : TableFolders()) {
        for (const fs::path& table : FilesIn(folder, ".rsc")) {
            const std::string name = table.stem().string();
            const bool shadowed = std::any_of(entries.begin(), entries.end(), [&](const TableEntry& e) { return e.name == name; });
            if (!shadowed) entries.push_back({name, table, Description(table)});
        }
    }
    return entries;
}

}  // namespace vellux::engine
