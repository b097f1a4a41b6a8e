// `vellux edit` end to end without a browser: the built tool serves the plug-in's dialog, the test
// plays the page over HTTP, and the settings file shows what was saved.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "kit/host_service_types.h"
#include "tool_fixture.h"
#include "engine/scene.h"
#include "engine/scene_session.h"
#include "engine/settings_record.h"
#include "tools/vellux/scene_command.h"

namespace {

using json = nlohmann::json;
namespace fs = std::filesystem;

// The tool running `edit`, its standard output read through a pipe as it comes.
class EditProcess {
public:
    // `environment`: NAME=VALUE settings on top of the test's own.
    explicit EditProcess(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {}) {
        int out[2];
        if (pipe(out) != 0) throw std::runtime_error("pipe");
        std::vector<std::string> words{VELLUX_TOOL_PATH, "edit"};
        if (environment.empty()) words.push_back("--no-browser");
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<std::string> settings = environment;
        for (char** entry = environ; *entry != nullptr; ++entry) settings.emplace_back(*entry);   // the first of a name wins
        std::vector<char*> envp;
        for (std::string& entry : settings) envp.push_back(entry.data());
        envp.push_back(nullptr);
        std::vector<char*> argv;
        for (std::string& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(out[1], STDOUT_FILENO);
            const int null = open("/dev/null", O_WRONLY);
            dup2(null, STDERR_FILENO);
            close(out[0]);
            close(out[1]);
            execve(argv[0], argv.data(), envp.data());
            _exit(127);
        }
        close(out[1]);
        out_ = out[0];
    }
    ~EditProcess() {
        if (pid_ > 0 && exitCode_ < 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(out_);
    }

    // The address the tool printed, or empty when it ended or stayed silent for 30 s.
    std::string Address() {
        static const std::regex line("Settings dialog: (http://127\\.0\\.0\\.1:\\d+/[0-9a-f]{32}/)\n");
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        std::smatch found;
        while (!std::regex_search(output_, found, line)) {
            if (std::chrono::steady_clock::now() > deadline || !ReadSome(100)) return {};
        }
        return found[1];
    }

    // Waits for the end; the exit code, all of the output read.
    int Wait() {
        while (ReadSome(-1)) {}
        int status = 0;
        waitpid(pid_, &status, 0);
        exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return exitCode_;
    }

    void Interrupt() const { kill(pid_, SIGINT); }
    const std::string& output() const { return output_; }

private:
    bool ReadSome(int milliseconds) {
        pollfd wanted{out_, POLLIN, 0};
        if (poll(&wanted, 1, milliseconds) <= 0) return milliseconds >= 0 && !(wanted.revents & POLLHUP);
        char buffer[4096];
        const ssize_t got = read(out_, buffer, sizeof(buffer));
        if (got <= 0) return false;
        output_.append(buffer, size_t(got));
        return true;
    }

    pid_t pid_ = -1;
    int out_ = -1;
    int exitCode_ = -1;
    std::string output_;
};

// The page's side of the dialog at `address`.
struct DialogClient {
    explicit DialogClient(const std::string& address) {
        const std::string rest = address.substr(std::string("http://127.0.0.1:").size());
        client = std::make_unique<httplib::Client>("127.0.0.1", std::stoi(rest.substr(0, rest.find('/'))));
        client->set_read_timeout(30);
        root = rest.substr(rest.find('/'));   // "/TOKEN/"
    }
    json State() const {
        const auto reply = client->Get((root + "api/state").c_str());
        return reply ? json::parse(reply->body) : json();
    }
    int Post(const std::string& name, const json& body) const {
        const auto reply = client->Post((root + "api/" + name).c_str(), body.dump(), "application/json");
        return reply ? reply->status : 0;
    }
    // The reply's body, null when there was none.
    json Send(const std::string& name, const json& body) const {
        const auto reply = client->Post((root + "api/" + name).c_str(), body.dump(), "application/json");
        return reply ? json::parse(reply->body, nullptr, false) : json();
    }
    json Get(const std::string& path) const {
        const auto reply = client->Get((root + path).c_str());
        return reply ? json::parse(reply->body, nullptr, false) : json();
    }
    int IdOf(const json& state, int type, const std::string& label) const {
        for (const json& control : state["controls"])
            if (control["type"] == type && control["label"] == label) return control["id"];
        return 0;
    }

    std::unique_ptr<httplib::Client> client;
    std::string root;
};

double SavedIntensity(const fs::path& file) {
    const auto read = vellux::tool::ReadSettingsFile(file);
    EXPECT_TRUE(read.errors.empty());
    return vellux::tool::DecodeSettings(*read.settings).flareIntensity;
}

class EditCommandTest : public ScratchTest {};

TEST_F(EditCommandTest, OkSavesTheEditedSettingsIntoANewFile) {
    const fs::path file = Path("look.json");
    EditProcess tool({"--settings", file.string()});
    const std::string address = tool.Address();
    ASSERT_FALSE(address.empty()) << tool.output();
    const DialogClient page(address);
    const json state = page.State();
    const int intensity = page.IdOf(state, cKV_EditText, "Intensity");
    ASSERT_NE(intensity, 0) << state.dump();
    EXPECT_EQ(page.Post("edit", {{"id", intensity}, {"value", "0.9"}}), 200);
    EXPECT_EQ(page.Post("close", {{"accept", true}}), 200);
    EXPECT_EQ(tool.Wait(), 0) << tool.output();
    EXPECT_NE(tool.output().find("Settings saved to " + file.string()), std::string::npos) << tool.output();
    EXPECT_EQ(SavedIntensity(file), 0.9);
}

TEST_F(EditCommandTest, CancelAndCtrlCLeaveTheFileAsItWas) {
    const fs::path file = Path("kept.json");
    {
        EditProcess tool({"--settings", file.string()});
        const DialogClient page(tool.Address());
        page.Post("edit", {{"id", page.IdOf(page.State(), cKV_EditText, "Intensity")}, {"value", "1.5"}});
        page.Post("close", {{"accept", true}});
        ASSERT_EQ(tool.Wait(), 0);
    }
    const std::string before = Slurp(file);
    {
        EditProcess tool({"--settings", file.string()});
        const DialogClient page(tool.Address());
        EXPECT_EQ(page.Post("edit", {{"id", page.IdOf(page.State(), cKV_EditText, "Intensity")}, {"value", "3"}}), 200);
        EXPECT_EQ(page.Post("close", {{"accept", false}}), 200);
        EXPECT_EQ(tool.Wait(), 0);
        EXPECT_NE(tool.output().find("Cancelled, nothing saved"), std::string::npos) << tool.output();
    }
    {
        EditProcess tool({"--settings", file.string()});
        const DialogClient page(tool.Address());
        EXPECT_EQ(page.Post("edit", {{"id", page.IdOf(page.State(), cKV_EditText, "Intensity")}, {"value", "3"}}), 200);
        tool.Interrupt();
        EXPECT_EQ(tool.Wait(), 130);
        EXPECT_NE(tool.output().find("Interrupted: cancelled, nothing saved"), std::string::npos) << tool.output();
        EXPECT_EQ(page.State(), json());   // the port is closed
    }
    EXPECT_EQ(Slurp(file), before);
    EXPECT_EQ(SavedIntensity(file), 1.5);
}

// Another table picked on the page: the dialog comes back on it with the edits made so far, and OK
// saves the table into the scene with the settings, its light keys kept.
TEST_F(EditCommandTest, APickedTableCarriesTheEditsOverAndIsSavedIntoTheScene) {
    const fs::path scene = Path("shot.json");
    fs::copy_file(fs::path(VELLUX_SOURCE_DIR) / "docs" / "example-scene.json", scene);
    EditProcess tool({"--scene", scene.string()});
    const std::string address = tool.Address();
    ASSERT_FALSE(address.empty()) << tool.output();
    const DialogClient page(address);

    const json looks = page.Get("api/looks");
    EXPECT_EQ(looks["current"], "Vellux");
    std::map<std::string, std::string> groups;
    for (const json& look : looks["looks"]) groups[look["name"]] = look["group"];
    EXPECT_EQ(groups["LongZoom"], "Flare tables");
    EXPECT_EQ(groups["double-gauss-50mm"], "Built from lenses");

    const json state = page.State();
    const int intensity = page.IdOf(state, cKV_EditText, "Intensity");
    ASSERT_EQ(page.Post("edit", {{"id", intensity}, {"value", "0.9"}}), 200);
    const json picked = page.Send("look", {{"name", "LongZoom"}});
    EXPECT_EQ(picked["look"], "LongZoom");
    EXPECT_EQ(picked["dialog"], 2);
    for (const json& control : picked["controls"])
        if (control["id"] == intensity) EXPECT_EQ(control["text"], "0.9");
    EXPECT_EQ(page.Post("close", {{"accept", true}}), 200);
    EXPECT_EQ(tool.Wait(), 0) << tool.output();
    EXPECT_NE(tool.output().find("Settings saved to " + scene.string() + " (table LongZoom)"), std::string::npos)
        << tool.output();

    const vellux::engine::Scene saved = vellux::engine::LoadScene(scene);
    EXPECT_EQ(saved.table, "LongZoom");
    ASSERT_TRUE(saved.settings);
    EXPECT_EQ(vellux::tool::DecodeSettings(*saved.settings).flareIntensity, 0.9);
    EXPECT_EQ(saved.light.size(), 2u);
}

// What stops `edit` and `settings preview` before anything is served or written: a plate that
// cannot be read, a table that cannot be found, options that do not fit. One line says why.
TEST_F(EditCommandTest, PlatesAndTablesThatCannotBeHadStopItAndSaveNothing) {
    const fs::path look = Path("look.json"), strange = Path("strange.json"), plate = Path("plate.png");
    ASSERT_TRUE(Succeeded(RunTool("sample-frame --size 64x36 -o '" + plate.string() + "'")));
    { std::ofstream(Path("damaged.png")) << "not a picture"; }
    { std::ofstream(strange) << R"({"table": "NoSuchTable", "settings": {"flare-intensity": 0.7}})"; }
    const std::string strangeText = Slurp(strange);
    const std::string saveTo = " --no-browser --settings '" + look.string() + "'";
    const struct {
        std::string arguments;
        int exitCode;
        std::string says;
    } cases[] = {
        {"edit -i '" + Path("missing.png").string() + "'" + saveTo, 1, "missing.png: no such file"},
        {"edit --plate '" + Path("damaged.png").string() + "'" + saveTo, 1, "damaged.png"},
        {"edit -i '" + plate.string() + "' --colorspace Martian" + saveTo, 1, "--colorspace: 'Martian' is not a colour space"},
        {"edit -i '" + plate.string() + "' --blend multiply" + saveTo, 1, "--blend"},
        {"edit --blend add" + saveTo, 2, "--blend requires"},
        {"edit --table NoSuchTable" + saveTo, 1, "NoSuchTable"},
        {"edit --no-browser --settings '" + strange.string() + "'", 1, "NoSuchTable"},
        {"settings preview -i '" + Path("missing.png").string() + "' -o '" + Path("p.png").string() + "'", 1,
         "missing.png: no such file"},
    };
    for (const auto& c : cases) {
        const ToolRun run = RunTool(c.arguments, 60);
        EXPECT_EQ(run.exitCode, c.exitCode) << c.arguments << "\n" << run.err;
        EXPECT_NE(run.err.find(c.says), std::string::npos) << c.arguments << "\n" << run.err;
        if (c.exitCode == 1) EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_EQ(run.out.find("Settings dialog:"), std::string::npos) << c.arguments;
        EXPECT_FALSE(fs::exists(look)) << c.arguments;
        EXPECT_FALSE(fs::exists(Path("p.png"))) << c.arguments;
    }
    EXPECT_EQ(Slurp(strange), strangeText);
}

TEST_F(EditCommandTest, WithADisplayTheAddressGoesToXdgOpen) {
    // A stand-in opener on the PATH that notes what it was asked to open.
    const fs::path opened = Path("opened");
    {
        std::ofstream script(Path("xdg-open"));
        script << "#!/bin/sh\nprintf '%s' \"$1\" > '" << opened.string() << ".tmp' && mv '" << opened.string() << ".tmp' '"
               << opened.string() << "'\n";
    }
    fs::permissions(Path("xdg-open"), fs::perms::owner_all);
    const char* path = std::getenv("PATH");
    EditProcess tool({}, {"DISPLAY=:99", "PATH=" + dir_.string() + ":" + (path != nullptr ? path : "/usr/bin:/bin")});
    const std::string address = tool.Address();
    ASSERT_FALSE(address.empty()) << tool.output();
    for (int wait = 0; wait < 200 && !fs::exists(opened); ++wait) usleep(10000);
    EXPECT_EQ(Slurp(opened), address);
    EXPECT_EQ(DialogClient(address).Post("close", {{"accept", false}}), 200);
    EXPECT_EQ(tool.Wait(), 0);
}

TEST_F(EditCommandTest, ABusyPortIsAnErrorAndSavesNothing) {
    const int busy = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    ASSERT_EQ(bind(busy, reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(listen(busy, 1), 0);
    getsockname(busy, reinterpret_cast<sockaddr*>(&address), &size);
    const std::string port = std::to_string(ntohs(address.sin_port));

    const ToolRun run = RunTool("edit --no-browser --port " + port + " --settings '" + Path("look.json").string() + "'");
    close(busy);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("cannot listen on 127.0.0.1:" + port), std::string::npos) << run.err;
    EXPECT_FALSE(fs::exists(Path("look.json")));
    EXPECT_EQ(RunTool("edit --no-browser --port 70000").exitCode, 2);
}

}  // namespace
