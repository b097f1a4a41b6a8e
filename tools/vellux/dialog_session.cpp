// The settings dialog for a scene or a settings file. See dialog_session.h.
#include "tools/vellux/dialog_session.h"

#include <optional>
#include <stdexcept>

#include "host/host_session.h"
#include "host/plugin_library.h"
#include "host/resource_file.h"
#include "tools/vellux/flare_render.h"
#include "tools/vellux/plugin_location.h"
#include "tools/vellux/render_command.h"
#include "tools/vellux/scene.h"
#include "tools/vellux/scene_render.h"

namespace vellux::tool {

namespace fs = std::filesystem;

namespace {

// Passes everything to the runner it wraps, noting that a dialog was shown at all.
class ShownTracker : public host::DialogRunner {
public:
    explicit ShownTracker(host::DialogRunner& runner) : runner_(runner) {}
    bool Run(host::Dialog& dialog) override {
        shown = true;
        return accepted = runner_.Run(dialog);
    }
    bool TrackMouse(host::Control& control, int* x, int* y) override { return runner_.TrackMouse(control, x, y); }

    bool shown = false;
    bool accepted = false;

private:
    host::DialogRunner& runner_;
};

std::optional<SettingsRecord> LoadSettingsFile(const fs::path& path) {
    std::error_code error;
    if (!fs::exists(path, error)) return std::nullopt;   // created when the dialog is accepted
    const SettingsReadResult read = ReadSettingsFile(path);
    if (!read.errors.empty()) {
        std::string message = path.string() + ":";
        for (const SceneError& problem : read.errors) message += "\n  " + problem.Text();
        throw std::runtime_error(message);
    }
    return read.settings;
}

void SaveSettings(const SettingsSource& source, std::optional<Scene>& scene, const DialogOutcome& outcome) {
    const SettingsRecord record{NativeByteOrder(), outcome.record};
    if (scene) {
        scene->settings = record;
        if (outcome.channelsReset) scene->channels.clear();
        WriteSceneFile(source.scene, *scene);
        return;
    }
    const std::string text = WriteSettingsText(record);
    rsc::WriteFileAtomically(source.settings, std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

}  // namespace

void AddSettingsSourceOptions(CLI::App& command, SettingsSource& source) {
    CLI::Option* scene = command.add_option("--scene", source.scene, "Scene file whose settings are used (and saved)");
    CLI::Option* settings =
        command.add_option("--settings", source.settings, "Settings file used (and saved); made when it does not exist");
    scene->excludes(settings);
    command.add_option("--plugin", source.plugin, "The plug-in library (default: Vellux.so beside the tool)");
    command.add_option("--table", source.table, "Flare table file to use instead of the plug-in's Vellux.rsc");
}

DialogOutcome RunSettingsDialog(const SettingsSource& source, host::DialogRunner& runner, bool save) {
    const fs::path pluginPath = FindPlugin(source.plugin, RunningToolFolder());
    if (!source.table.empty()) UseFlareTable(source.table);
    std::optional<Scene> scene;
    std::optional<SettingsRecord> settings;
    if (!source.scene.empty()) {
        scene = LoadScene(source.scene);
        settings = scene->settings;
    } else if (!source.settings.empty()) {
        settings = LoadSettingsFile(source.settings);
    }

    host::PluginLibrary plugin(pluginPath.string());
    host::HostSession host;
    if (settings) host.SetControlData(settings->bytes);
    PluginInstance instance(plugin, host);
    ShownTracker tracker(runner);
    DialogOutcome outcome;
    const int resetsBefore = host.channelResets();   // INIT resets them when it defaulted the record
    {
        host::ScopedDialogRunner installed(tracker);
        outcome.result = instance.Interface();
    }
    if (const std::exception_ptr failure = host::TakeRunnerFailure()) std::rethrow_exception(failure);
    outcome.shown = tracker.shown;
    outcome.accepted = tracker.accepted;
    outcome.channelsReset = host.channelResets() > resetsBefore;
    outcome.record = host.controlData();
    if (!outcome.shown && outcome.result == kNoError)
        throw std::runtime_error("the flare table file holds no settings dialog (DLOG 16001); the tables built with "
                                 "the tool carry it");
    if (outcome.result != kNoError && outcome.result != kUserCanceled)
        throw instance.Failure(kCmdInterface, outcome.result);
    instance.Finish();
    if (save && outcome.accepted && outcome.result == kNoError && source.HasFile()) {
        SaveSettings(source, scene, outcome);
        outcome.saved = true;
    }
    return outcome;
}

}  // namespace vellux::tool
