// Flare tables by name: the user's folder, then VELLUX_TABLE_PATH, then the shipped tables; paths
// as they are; unknown names answered with the names there are.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "engine/table_search.h"

namespace {

using namespace vellux::engine;
namespace fs = std::filesystem;

class TableSearch : public testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("vellux_tables_" + std::to_string(getpid()));
        for (const char* folder : {"data/vellux/tables", "one", "two"}) fs::create_directories(dir_ / folder);
        setenv("XDG_DATA_HOME", (dir_ / "data").c_str(), 1);
        setenv("VELLUX_TABLE_PATH", ((dir_ / "one").string() + ":" + (dir_ / "two").string()).c_str(), 1);
    }
    void TearDown() override {
        unsetenv("XDG_DATA_HOME");
        unsetenv("VELLUX_TABLE_PATH");
        fs::remove_all(dir_);
    }
    // A copy of a shipped table under another folder and name.
    fs::path Put(const std::string& folder, const std::string& name, const char* shipped = "LongZoom") const {
        const fs::path file = dir_ / folder / (name + ".rsc");
        fs::copy_file(fs::path(VELLUX_COMPILED_TABLES_DIR) / (std::string(shipped) + ".rsc"), file);
        return file;
    }
    fs::path dir_;
};

TEST_F(TableSearch, TheUserFolderBeatsThePathWhichBeatsTheShippedTables) {
    const fs::path shipped = fs::path(VELLUX_COMPILED_TABLES_DIR) / "CleanPrime.rsc";
    const fs::path mine = Put("data/vellux/tables", "Vellux"), first = Put("one", "Mine");
    Put("two", "Mine");
    const fs::path upper = Put("two", "CleanPrime");
    struct Case {
        std::string asked;
        fs::path found;
    };
    const Case cases[] = {
        {"Vellux", mine},                  // the user's own shadows the shipped default
        {"Mine", first},                   // VELLUX_TABLE_PATH in order
        {"mine", first},                   // any case when nothing matches exactly
        {"CleanPrime", upper},             // the path comes before the shipped tables
        {"LongZoom", fs::path(VELLUX_COMPILED_TABLES_DIR) / "LongZoom.rsc"},
        {shipped.string(), shipped},       // a path is used as it is
    };
    for (const Case& c : cases) EXPECT_EQ(FindTable(c.asked), c.found) << c.asked;
    EXPECT_EQ(FindDefaultTable(), mine);

    const std::vector<TableEntry> tables = ListTables();
    std::vector<std::string> names;
    for (const TableEntry& table : tables) names.push_back(table.name);
    EXPECT_EQ(names, (std::vector<std::string>{"Vellux", "Mine", "CleanPrime", "LongZoom", "double-gauss-50mm",
                                              "fisheye-10mm", "vintage-58mm", "wide-angle-22mm"}));   // each name once
    EXPECT_EQ(tables[0].description, "A long zoom lens: many ghosts with strong colour fringes");
}

TEST_F(TableSearch, UnknownNamesAndMissingPathsSayWhatThereIs) {
    const std::string kShipped = "CleanPrime, LongZoom, Vellux, double-gauss-50mm, fisheye-10mm, vintage-58mm, wide-angle-22mm";
    const struct {
        std::string asked;
        std::string message;
    } cases[] = {
        {"LongZom", "no flare table named 'LongZom'; did you mean 'LongZoom'? (there are: " + kShipped + ")"},
        {"Anamorph", "no flare table named 'Anamorph' (there are: " + kShipped + ")"},
        {"missing.rsc", "missing.rsc: no such flare table file"},
        {"/tmp", "/tmp: not a file"},
    };
    for (const auto& c : cases) {
        try {
            FindTable(c.asked);
            ADD_FAILURE() << c.asked;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(std::string(error.what()), c.message);
        }
    }
}

}  // namespace
