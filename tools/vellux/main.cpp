// vellux: the command-line tool for Vellux: flare tables (rsc), rendering a frame or a scene's
// sequence (render), scene files (scene), the plug-in's settings dialog without a display
// (settings) or in a browser (edit), the plug-in's own description (info), and the sample frame
// (sample-frame), the flare tables found by name (tables). See command.h for how commands plug in.
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "engine/closest_match.h"
#include "tools/vellux/command.h"
#include "tools/vellux/edit_command.h"
#include "tools/vellux/info_command.h"
#include "tools/vellux/interrupt_guard.h"
#include "tools/vellux/render_command.h"
#include "tools/vellux/rsc_command.h"
#include "tools/vellux/sample_frame_command.h"
#include "tools/vellux/scene_command.h"
#include "tools/vellux/settings_command.h"
#include "tools/vellux/tables_command.h"
#include "tools/vellux/lens_command.h"
#include "tools/vellux/track_command.h"

namespace {

using vellux::tool::Action;

int ExitForUsage(const CLI::App& app, const CLI::ParseError& error) {
    const int code = app.exit(error);   // prints help, or the error with a hint
    return code == 0 ? 0 : vellux::tool::kExitUsage;
}

// Ctrl-C asks the running command to stop (InterruptGuard); whatever it did, the exit code is
// then 130, as a shell reports an interrupted program.
int Run(const Action& action) {
    const vellux::tool::InterruptGuard interrupt;
    int code = vellux::tool::kExitFailure;
    try {
        code = action();
    } catch (const std::exception& error) {
        std::cerr << "vellux: " << error.what() << "\n";
    }
    return vellux::tool::InterruptGuard::Requested() ? vellux::tool::kExitInterrupted : code;
}

bool IsCommand(const CLI::App& app, const std::string& name) {
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        if (command->check_name(name)) return true;
    return false;
}

// A first argument that is neither an option nor a command: named, with the closest command.
int UnknownCommand(const CLI::App& app, const std::string& given) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) names.push_back(command->get_name());
    std::cerr << "vellux: unknown command '" << given << "'";
    const std::string closest = vellux::engine::ClosestMatch(given, names);
    if (!closest.empty()) std::cerr << "; did you mean '" << closest << "'?";
    std::cerr << "\nRun with --help for the commands.\n";
    return vellux::tool::kExitUsage;
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__)
// The sanitiser build's tool skips the leak check at exit: with the image library's and OpenCV's
// thread pools still running, the check's tracer now and then crashes on a loaded machine ("Tracer
// caught signal 11") and turns a good run into exit code 1. Every other sanitiser error still
// stops the tool.
extern "C" const char* __asan_default_options() { return "detect_leaks=0"; }
#endif

int main(int argc, char** argv) {
    CLI::App app{"Tools for the Vellux lens-flare plug-in", "vellux"};
    app.require_subcommand(1);
    Action action;
    vellux::tool::AddRscCommands(app, action);
    vellux::tool::AddRenderCommand(app, action);
    vellux::tool::AddSceneCommands(app, action);
    vellux::tool::AddSettingsCommands(app, action);
    vellux::tool::AddEditCommand(app, action);
    vellux::tool::AddInfoCommand(app, action);
    vellux::tool::AddSampleFrameCommand(app, action);
    vellux::tool::AddTablesCommand(app, action);
    vellux::tool::AddLensCommands(app, action);
    vellux::tool::AddTrackCommand(app, action);
    app.set_version_flag("--version", vellux::tool::VersionText);
    if (argc > 1 && argv[1][0] != '-' && !IsCommand(app, argv[1])) return UnknownCommand(app, argv[1]);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return ExitForUsage(app, error);
    }
    return Run(action);
}
