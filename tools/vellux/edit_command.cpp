// The "edit" command. See edit_command.h.
#include "tools/vellux/edit_command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/image_backdrop.h"
#include "host/web_dialog_runner.h"
#include "engine/dialog_session.h"
#include "engine/lens_look.h"
#include "engine/setting_controls.h"
#include "engine/table_search.h"
#include "tools/vellux/interrupt_guard.h"
#include "tools/vellux/settings_command.h"
#include "vellux/plugin_records.h"

extern char** environ;

namespace vellux::tool {

namespace fs = std::filesystem;

namespace {

struct EditOptions {
    SettingsSource source;
    PreviewPlateChoice plate;
    int port = 0;
    bool noBrowser = false;
};

// The looks the page offers: every table `vellux tables` lists, the plain tables first, then those
// built from a lens of the lens library (they carry the lens's name).
std::vector<host::LookChoice> OfferedLooks() {
    std::set<std::string> lenses;
    for (const LensEntry& lens : ListLenses()) lenses.insert(lens.name);
    std::vector<host::LookChoice> looks;
    for (const TableEntry& table : ListTables())
        looks.push_back({table.name, table.description, lenses.count(table.name) != 0 ? "Built from lenses" : "Flare tables"});
    std::stable_partition(looks.begin(), looks.end(), [](const host::LookChoice& look) { return look.group == "Flare tables"; });
    return looks;
}

// A browser can be shown only where there is a display.
bool HasDisplay() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0') return true;
    }
    return false;
}

// Opens the address with the desktop's opener, xdg-open, looked up on the PATH; -1 when there is
// none. The opener runs in a session of its own with its output discarded, so that neither Ctrl-C
// in the terminal nor the browser's messages reach it; it is not waited for (a browser may keep it).
pid_t StartOpener(const std::string& address) {
    std::string program = "xdg-open";
    std::string argument = address;
    char* argv[] = {program.data(), argument.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    pid_t pid = -1;
    if (posix_spawnp(&pid, program.c_str(), &actions, &attributes, argv, environ) != 0) pid = -1;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

int Edit(const EditOptions& options) {
    const bool openBrowser = !options.noBrowser && HasDisplay();
    pid_t openerProcess = -1;
    // The plate is read before anything is served: one that cannot be read ends the command.
    const std::unique_ptr<host::ImageBackdrop> plate = LoadPreviewPlate(options.plate);
    const host::ScopedImageBackdrop onPlate(plate.get());

    host::WebDialogOptions web;
    web.port = options.port;
    web.looks = OfferedLooks();
    web.interrupted = [] { return InterruptGuard::Requested(); };
    web.ready = [&](const std::string& address) {
        std::cout << "Settings dialog: " << address << std::endl;
        if (openBrowser) openerProcess = StartOpener(address);
        std::cerr << (openerProcess > 0 ? "Opened in the browser. " : "Open it in a browser on this machine. ")
                  << "OK or Cancel there ends the command; Ctrl-C cancels." << std::endl;
    };
    for (const engine::SettingControl& control : engine::SettingControls())
        web.settings[control.item] = {std::string(control.setting), control.inverted};
    host::WebDialogRunner runner(web);
    const DialogOutcome outcome = RunSettingsDialog(options.source, runner, true);
    if (openerProcess > 0) waitpid(openerProcess, nullptr, WNOHANG);   // reaped if done; else left to init

    const fs::path& file = options.source.scene.empty() ? options.source.settings : options.source.scene;
    if (InterruptGuard::Requested()) {
        std::cout << "Interrupted: cancelled, nothing saved" << std::endl;
        return kExitInterrupted;
    }
    if (!outcome.accepted || outcome.result != kNoError) {
        std::cout << "Cancelled, nothing saved" << std::endl;
        return 0;
    }
    if (!outcome.saved) {
        std::cout << "Accepted; nothing saved (no --scene or --settings given)" << std::endl;
        return 0;
    }
    std::cout << "Settings saved to " << file.string()
              << (outcome.look.empty() ? std::string() : " (table " + outcome.look + ")") << std::endl;
    if (outcome.channelsReset && !options.source.scene.empty())
        std::cout << "The star filter changed: the plug-in dropped its animation channels, so the scene's channel "
                     "keys were removed"
                  << std::endl;
    return 0;
}

}  // namespace

void AddEditCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<EditOptions>();
    CLI::App* edit = app.add_subcommand("edit", "Edit the plug-in's settings in its dialog, in a browser");
    AddSettingsSourceOptions(*edit, options->source);
    AddPreviewPlateOptions(*edit, options->plate);
    edit->add_option("--port", options->port, "Port on 127.0.0.1 to serve the dialog on (default: any free one)")
        ->check(CLI::Range(1, 65535));
    edit->add_flag("--no-browser", options->noBrowser, "Only print the address; do not open a browser");
    edit->callback([options, &action] { action = [options] { return Edit(*options); }; });
}

}  // namespace vellux::tool
