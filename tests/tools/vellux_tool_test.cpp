// The built vellux tool, run as a user runs it: exit codes, messages, and the files it leaves.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "host/resource_file.h"

namespace {

namespace fs = std::filesystem;

struct ToolRun {
    int exitCode = -1;
    std::string out;
    std::string err;
};

std::string Slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void Write(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

class VelluxTool : public testing::Test {
protected:
    void SetUp() override {
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        dir_ = fs::temp_directory_path() / ("vellux_tool_" + std::to_string(getpid()) + "_" + test->name());
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    fs::path Path(const std::string& name) const { return dir_ / name; }

    // Arguments are quoted as they are; the test paths hold no single quotes.
    ToolRun Vellux(const std::string& arguments) const {
        const std::string command = std::string("'") + VELLUX_TOOL_PATH + "' " + arguments + " >'" +
                                    Path("out").string() + "' 2>'" + Path("err").string() + "'";
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(Path("out")), Slurp(Path("err"))};
    }

    static std::string Quote(const fs::path& path) { return "'" + path.string() + "'"; }

    fs::path dir_;
};

const std::string kDefaultTable = std::string(VELLUX_TABLES_DIR) + "/Vellux.json";

TEST_F(VelluxTool, CompilesDumpsAndRoundTripsTheDefaultTable) {
    const fs::path rsc = Path("Vellux.rsc");
    const ToolRun compile = Vellux("rsc compile '" + kDefaultTable + "' -o " + Quote(rsc));
    ASSERT_EQ(compile.exitCode, 0) << compile.err;
    EXPECT_EQ(compile.err, "");
    EXPECT_NO_THROW(vellux::rsc::ReadResourceFile(rsc));

    const ToolRun listing = Vellux("rsc dump " + Quote(rsc));
    ASSERT_EQ(listing.exitCode, 0) << listing.err;
    EXPECT_NE(listing.out.find("FLAR 1001 \"Vellux default\", 12 bytes"), std::string::npos) << listing.out;
    EXPECT_NE(listing.out.find("type      1  white glow"), std::string::npos);
    EXPECT_NE(listing.out.find("offset    10000  = 1.0000 along the axis"), std::string::npos);
    EXPECT_NE(listing.out.find("radius   alpha     red   green    blue"), std::string::npos);

    const ToolRun json = Vellux("rsc dump --json " + Quote(rsc));
    ASSERT_EQ(json.exitCode, 0) << json.err;
    Write(Path("again.json"), json.out);
    const ToolRun again = Vellux("rsc compile " + Quote(Path("again.json")) + " -o " + Quote(Path("again.rsc")));
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_EQ(Slurp(Path("again.rsc")), Slurp(rsc));
}

TEST_F(VelluxTool, FailedCompileReportsEveryErrorAndLeavesTheOutputUntouched) {
    const fs::path source = Path("bad.json");
    Write(source, R"({"resources": [
      {"type": "FLAR", "id": 1001, "flare": {"elements": [{"type": "RING", "first": 2001, "last": 2001}]}},
      {"type": "RING", "id": 2001, "ring": {"type": 1, "units": 0, "offset": 0, "outside": 10,
        "stops": [{"position": 0, "red": 70000, "green": 0, "blue": 0}]}}]})");
    const fs::path output = Path("out.rsc");
    Write(output, "the previous table");
    const ToolRun run = Vellux("rsc compile " + Quote(source) + " -o " + Quote(output));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find(source.string() + ": error: resources[1].ring.units: must not be 0"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("resources[1].ring.stops[0].red"), std::string::npos) << run.err;
    EXPECT_EQ(Slurp(output), "the previous table");
}

TEST_F(VelluxTool, UnreadableInputsExitOneNamingTheFile) {
    const ToolRun missing = Vellux("rsc compile " + Quote(Path("none.json")) + " -o " + Quote(Path("x.rsc")));
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find(Path("none.json").string()), std::string::npos) << missing.err;
    EXPECT_FALSE(fs::exists(Path("x.rsc")));

    Write(Path("text.rsc"), "not a resource file at all");
    const ToolRun notResources = Vellux("rsc dump " + Quote(Path("text.rsc")));
    EXPECT_EQ(notResources.exitCode, 1);
    EXPECT_NE(notResources.err.find(Path("text.rsc").string()), std::string::npos) << notResources.err;
}

TEST_F(VelluxTool, UsageErrorsExitTwoAndHelpZero) {
    EXPECT_EQ(Vellux("rsc compile '" + kDefaultTable + "'").exitCode, 2);   // no -o
    EXPECT_EQ(Vellux("rsc").exitCode, 2);
    EXPECT_EQ(Vellux("render").exitCode, 2);
    const ToolRun help = Vellux("rsc --help");
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("compile"), std::string::npos);
}

}  // namespace
