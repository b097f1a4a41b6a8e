// Shared by the tests that run the built `vellux` tool: a scratch folder per test and a runner
// that captures the exit code and both output streams.
#ifndef VELLUX_TESTS_TOOLS_TOOL_FIXTURE_H
#define VELLUX_TESTS_TOOLS_TOOL_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

struct ToolRun {
    int exitCode = -1;
    std::string out;
    std::string err;
};

inline std::string Slurp(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A fresh folder named after the test, removed afterwards.
class ScratchTest : public testing::Test {
protected:
    void SetUp() override {
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        dir_ = std::filesystem::temp_directory_path() /
               ("vellux_" + std::string(test->test_suite_name()) + "_" + std::to_string(getpid()) + "_" + test->name());
        std::filesystem::create_directories(dir_);
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    std::filesystem::path Path(const std::string& name) const { return dir_ / name; }

    // Runs the tool with `arguments` (quoted as they are: the test paths hold no single quotes);
    // its output goes to the files "out" and "err" in the folder. With `seconds`, a tool still
    // running then is stopped (exit code 124): for commands that would wait for a person.
    ToolRun RunTool(const std::string& arguments, int seconds = 0) const {
        const std::string limit = seconds > 0 ? "timeout " + std::to_string(seconds) + " " : "";
        const std::string command = limit + "'" + VELLUX_TOOL_PATH + "' " + arguments + " >'" +
                                    Path("out").string() + "' 2>'" + Path("err").string() + "'";
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(Path("out")), Slurp(Path("err"))};
    }

    // For ASSERT_TRUE(Succeeded(RunTool(...))): a failure shows what the tool wrote to stderr.
    testing::AssertionResult Succeeded(const ToolRun& run) const {
        if (run.exitCode == 0) return testing::AssertionSuccess();
        std::error_code error;
        return testing::AssertionFailure() << "exit code " << run.exitCode << ", stderr: " << run.err
                                           << (std::filesystem::is_directory(dir_, error) ? "" : " (the test's folder is gone)");
    }

    std::filesystem::path dir_;
};

#endif  // VELLUX_TESTS_TOOLS_TOOL_FIXTURE_H
