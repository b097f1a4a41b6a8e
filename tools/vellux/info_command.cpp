#include "tools/vellux/info_command.h"

#include <iostream>
#include <memory>
#include <stdexcept>

#include "host/host_session.h"
#include "engine/plugin_about.h"
#include "engine/plugin_location.h"

namespace vellux::tool {

std::string AboutText(const PluginAbout& about) {
    std::string text = "name         " + about.name + "\n";
    text += "type         " + host::CodeText(about.type) + ", version " + std::to_string(about.version) + "\n";
    text += "rights       " + about.rights + "\n";
    for (size_t i = 0; i < about.author.size(); ++i) text += (i == 0 ? "author       " : "             ") + about.author[i] + "\n";
    text += "description  " + about.description + "\n";
    text += "commands     (CHEK)\n";
    for (const auto& [command, answer] : about.checks)
        text += "  " + host::CodeText(command) + "  " + (answer == kNoError ? "supported" : "not supported (" + std::to_string(answer) + ")") + "\n";
    return text;
}

std::string VersionText() {
    std::string text = "vellux " + VelluxVersion() + "\n";
    try {
        const std::filesystem::path path = FindPlugin("");
        const PluginAbout about = AskPlugin(host::PluginLibrary(path.string()));
        text += "plug-in " + about.name + " version " + std::to_string(about.version) + " (" + path.string() + ")";
    } catch (const std::exception& error) {
        text += std::string("plug-in not loaded: ") + error.what();
    }
    return text;
}

void AddInfoCommand(CLI::App& app, Action& action) {
    auto plugin = std::make_shared<std::string>();
    CLI::App* info = app.add_subcommand("info", "What the plug-in says about itself (INFO, CHEK)");
    info->add_option("--plugin", *plugin, "The plug-in (default: Vellux.so beside the tool or one folder up)")->type_name("PATH");
    info->callback([plugin, &action] {
        action = [plugin] {
            const std::filesystem::path path = FindPlugin(*plugin);
            const host::PluginLibrary library(path.string());
            std::cout << "plugin       " << path.string() << "\n" << AboutText(AskPlugin(library));
            return 0;
        };
    });
}

}  // namespace vellux::tool
