// The "settings" command group. See settings_command.h.
#include "tools/vellux/settings_command.h"

#include <algorithm>
#include <charconv>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "host/scripted_dialog_runner.h"
#include "engine/blend.h"
#include "engine/dialog_session.h"
#include "engine/option_values.h"
#include "engine/setting_controls.h"
#include "engine/setting_names.h"
#include "tools/vellux/image_actions.h"

namespace vellux::tool {

namespace fs = std::filesystem;

namespace {

struct SettingsOptions {
    SettingsSource source;
    std::vector<std::string> assignments;
    fs::path output;
    std::string light;   // "X,Y", fractions of the preview
    PreviewPlateChoice plate;
};

// NAME=VALUE under a setting's name ("flare-intensity=0.8", "halo=off"): the value is read and
// range-checked as the render option reads it, then typed into the setting's control.
std::optional<host::ScriptStep> SettingStep(const std::string& name, const std::string& text) {
    const SettingName* setting = FindSetting(name);
    if (setting == nullptr) return std::nullopt;
    const SettingControl* control = FindSettingControl(name);
    if (control == nullptr) return std::nullopt;
    const SettingValue value = ParseSettingText(*setting, text, name);
    std::string typed;
    if (const auto* number = std::get_if<double>(&value)) {
        if (const auto problem = RangeProblem(*setting, *number)) throw std::invalid_argument(name + ": " + *problem);
        char digits[32];
        typed.assign(digits, std::to_chars(digits, digits + sizeof(digits), *number).ptr);
    } else if (const auto* whole = std::get_if<int32_t>(&value)) {
        typed = std::to_string(*whole);
    } else if (const auto* on = std::get_if<bool>(&value)) {
        typed = *on != control->inverted ? "on" : "off";
    } else {
        typed = SettingJson(value).get<std::string>();
    }
    return host::ScriptStep::Edit(std::to_string(control->item), typed);
}

// Each NAME=VALUE: a setting's name, else a control's label or ID.
std::vector<host::ScriptStep> EditSteps(const std::vector<std::string>& assignments) {
    std::vector<host::ScriptStep> steps;
    for (const std::string& assignment : assignments) {
        host::ScriptStep step = host::ParseAssignment(assignment);
        if (auto named = SettingStep(step.control, step.value)) step = std::move(*named);
        steps.push_back(std::move(step));
    }
    return steps;
}

host::Control* PreviewControl(host::Dialog& dialog) {
    for (host::Control& control : dialog.controls) {
        if (control.type() == cKV_UserControl) return &control;
    }
    throw std::runtime_error("the settings dialog has no preview");
}

// A click inside the preview's image (its bounds less the 1-pixel frame) at fractions of its size.
host::ScriptStep LightClick(host::Dialog& dialog, const std::string& light) {
    const std::vector<double> at = ParseNumbers("--light", light, 2);
    const double fx = at[0], fy = at[1];
    if (!(fx >= 0.0 && fx <= 1.0 && fy >= 0.0 && fy <= 1.0))
        throw std::invalid_argument("--light: both fractions must lie in 0..1, not " + light);
    const host::Control& preview = *PreviewControl(dialog);
    const KV_Rect& b = preview.item.bounds;
    const int width = b.right - b.left - 2, height = b.bottom - b.top - 2;
    const int h = b.left + 1 + int(fx * width), v = b.top + 1 + int(fy * height);
    return host::ScriptStep::Click(std::to_string(preview.id()), {{h, v}});
}

int Show(const SettingsOptions& options) {
    host::ScriptedDialogRunner runner({}, false);
    runner.SetInspector([](host::Dialog& dialog) { std::cout << DialogListing(dialog); });
    RunSettingsDialog(options.source, runner, false);
    return 0;
}

int Set(const SettingsOptions& options) {
    if (!options.source.HasFile()) throw std::invalid_argument("settings set needs --scene or --settings to save into");
    host::ScriptedDialogRunner runner(EditSteps(options.assignments), true);
    const DialogOutcome outcome = RunSettingsDialog(options.source, runner, true);
    const fs::path& file = options.source.scene.empty() ? options.source.settings : options.source.scene;
    std::cout << "saved " << file.string() << " (" << options.assignments.size()
              << (options.assignments.size() == 1 ? " setting)\n" : " settings)\n");
    if (outcome.channelsReset && !options.source.scene.empty())
        std::cout << "the star filter changed: the plug-in dropped its animation channels, so the scene's channel "
                     "keys were removed\n";
    return 0;
}

int Preview(const SettingsOptions& options) {
    const std::unique_ptr<host::ImageBackdrop> plate = LoadPreviewPlate(options.plate);
    const host::ScopedImageBackdrop onPlate(plate.get());
    host::ScriptedDialogRunner runner(EditSteps(options.assignments), false);
    // The click is played once the dialog is in hand, so that it can be placed from the
    // preview's own bounds; it goes through the runner, which reports it to the plug-in's drag.
    runner.SetInspector([&](host::Dialog& dialog) {
        if (!options.light.empty()) runner.Play(dialog, LightClick(dialog, options.light));
        const host::Control& preview = *PreviewControl(dialog);
        const KV_Rect& b = preview.item.bounds;
        LoadImageActions().writeRgba(options.output, b.right - b.left, b.bottom - b.top, dialog.canvas.Copy(b));
    });
    RunSettingsDialog(options.source, runner, false);
    std::cout << "wrote " << options.output.string() << "\n";
    return 0;
}

template <typename Work>
void AddCommand(CLI::App& group, const char* name, const char* help, Action& action, Work work,
                const std::function<void(CLI::App&, SettingsOptions&)>& extra) {
    auto options = std::make_shared<SettingsOptions>();
    CLI::App* command = group.add_subcommand(name, help);
    AddSettingsSourceOptions(*command, options->source);
    extra(*command, *options);
    command->callback([&action, options, work] { action = [options, work] { return work(*options); }; });
}

}  // namespace

void AddSettingsSourceOptions(CLI::App& command, SettingsSource& source) {
    CLI::Option* scene = command.add_option("--scene", source.scene, "Scene file whose settings are used (and saved)");
    CLI::Option* settings =
        command.add_option("--settings", source.settings, "Settings file used (and saved); made when it does not exist");
    scene->excludes(settings);
    command.add_option("--plugin", source.plugin, "The plug-in library (default: Vellux.so beside the tool)");
    command.add_option("--table", source.table, "Flare table: a name (vellux tables lists them) or a .rsc file (default: Vellux)")->type_name("NAME");
}

void AddPreviewPlateOptions(CLI::App& command, PreviewPlateChoice& choice) {
    CLI::Option* plate = command.add_option("-i,--plate", choice.plate, "Show the preview on this image (PNG, EXR, ...), scaled "
                                            "to the preview, the flare blended as a render blends it")
                             ->type_name("IMAGE");
    command.add_option("--blend", choice.blend, "With --plate: how the flare goes over it, as for vellux render (display, add, screen)")
        ->type_name("MODE")
        ->capture_default_str()
        ->needs(plate);
    command.add_option("--colorspace", choice.colorspace,
                       "With --plate: its colour space (default: linear for float images, sRGB for others)")
        ->type_name("NAME")
        ->needs(plate);
}

std::unique_ptr<host::ImageBackdrop> LoadPreviewPlate(const PreviewPlateChoice& choice) {
    if (choice.plate.empty()) return nullptr;
    PreviewPlateOptions options;
    options.file = choice.plate;
    options.colorspace = choice.colorspace;
    options.blend = ParseBlend("--blend", choice.blend);
    return LoadImageActions().previewPlate(options);
}

std::string DialogListing(host::Dialog& dialog) {
    std::ostringstream out;
    out << dialog.layout.title << "\n";
    for (const host::Control& control : dialog.controls) {
        if (!host::IsEditable(control)) continue;
        std::string label = host::ControlLabel(dialog, control);
        label.resize(std::max<size_t>(label.size() + 2, 26), ' ');
        out << "  " << label << host::ValueText(control) << "\n";
    }
    return out.str();
}

void AddSettingsCommands(CLI::App& app, Action& action) {
    CLI::App* group = app.add_subcommand("settings", "The settings dialog without a display: show, set, preview");
    group->require_subcommand(1);
    const auto none = [](CLI::App&, SettingsOptions&) {};
    AddCommand(*group, "show", "Print every control of the settings dialog with its value", action, Show, none);
    AddCommand(*group, "set", "Set controls (NAME=VALUE ...), press OK and save", action, Set,
               [](CLI::App& command, SettingsOptions& options) {
                   command.add_option("assignments", options.assignments, "NAME=VALUE: a setting's name (flare-intensity, halo, as the render options "
                                       "name them), or a control's label or ID")
                       ->required();
               });
    AddCommand(*group, "preview", "Write the dialog's preview image after the edits", action, Preview,
               [](CLI::App& command, SettingsOptions& options) {
                   command.add_option("-o,--output", options.output, "The image to write (PNG, TIFF, ...)")->required();
                   command.add_option("--light", options.light, "Click the preview at X,Y, fractions of its size");
                   AddPreviewPlateOptions(command, options.plate);
                   command.add_option("assignments", options.assignments, "NAME=VALUE edits before the preview");
               });
}

}  // namespace vellux::tool
