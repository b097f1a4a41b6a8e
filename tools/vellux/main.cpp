// vellux: the command-line tool for Vellux: flare tables (rsc), rendering a frame or a scene's
// sequence (render), scene files (scene), the plug-in's settings dialog without a display
// (settings) or in a browser (edit), the plug-in's own description (info), and the sample frame
// (sample-frame). See command.h for how commands plug in.
#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>

#include "tools/vellux/command.h"
#include "tools/vellux/edit_command.h"
#include "tools/vellux/info_command.h"
#include "tools/vellux/render_command.h"
#include "tools/vellux/rsc_command.h"
#include "tools/vellux/sample_frame_command.h"
#include "tools/vellux/scene_command.h"
#include "tools/vellux/settings_command.h"

namespace {

using vellux::tool::Action;

int ExitForUsage(const CLI::App& app, const CLI::ParseError& error) {
    const int code = app.exit(error);   // prints help, or the error with a hint
    return code == 0 ? 0 : vellux::tool::kExitUsage;
}

int Run(const Action& action) {
    try {
        return action();
    } catch (const std::exception& error) {
        std::cerr << "vellux: " << error.what() << "\n";
        return vellux::tool::kExitFailure;
    }
}

}  // namespace

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
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return ExitForUsage(app, error);
    }
    return Run(action);
}
