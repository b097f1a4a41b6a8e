// The settings dialog for a scene or a settings file. See dialog_session.h.
#include "engine/dialog_session.h"

#include <optional>
#include <stdexcept>

#include "host/host_session.h"
#include "host/plugin_library.h"
#include "host/resource_file.h"
#include "engine/flare_instance.h"
#include "engine/plugin_location.h"
#include "engine/flare.h"
#include "engine/scene.h"
#include "engine/scene_session.h"
#include "engine/table_search.h"

namespace vellux::engine {

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

std::optional<SettingsReadResult> ExistingLook(const fs::path& path) {
    std::error_code error;
    if (!fs::exists(path, error)) return std::nullopt;   // created when the dialog is accepted
    return LoadLookFile(path);
}

// The table a saved look names: the one picked in the dialog, else --table when it is a name,
// else the one the look named before.
LookSource SavedSource(const SettingsSource& source, const std::optional<SettingsReadResult>& look,
                       const std::string& picked) {
    if (!picked.empty()) return LookSource{picked, std::nullopt};
    LookSource saved = look ? look->source : LookSource{};
    const std::string table = source.table.string();
    if (table.empty()) return saved;
    const bool path = table.find('/') != std::string::npos || source.table.extension() == ".rsc";
    return LookSource{path ? "" : table, std::nullopt};
}

void SaveSettings(const SettingsSource& source, std::optional<Scene>& scene, const DialogOutcome& outcome,
                  const LookSource& named) {
    const SettingsRecord record{NativeByteOrder(), outcome.record};
    if (scene) {
        scene->settings = record;
        if (outcome.channelsReset) {
            scene->channels.clear();
            scene->channelModes.clear();
        }
        if (!source.table.empty() || !outcome.look.empty()) scene->table = named.table;
        WriteSceneFile(source.scene, *scene);
        return;
    }
    const std::string text = WriteSettingsText(record, named);
    rsc::WriteFileAtomically(source.settings, std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

// The look the dialog opens on, by the name the artist knows it: the table given, else the one the
// scene or look names, else the default.
std::string OpeningLook(const SettingsSource& source, const std::optional<Scene>& scene,
                        const std::optional<SettingsReadResult>& look) {
    if (!source.table.empty()) return source.table.string();
    if (scene && !scene->table.empty()) return scene->table;
    if (look && !look->source.table.empty()) return look->source.table;
    return kDefaultTableName;
}

// One plug-in session: INIT with the setup's settings, then INTF with the runner installed.
DialogOutcome ShowDialog(const FlareSetup& setup, host::DialogRunner& runner) {
    Flare flare(setup);
    host::HostSession& host = flare.host();
    PluginInstance& instance = flare.instance();
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
    return outcome;
}

}  // namespace

DialogOutcome RunSettingsDialog(const SettingsSource& source, host::DialogRunner& runner, bool save) {
    FlareSetup setup;
    setup.plugin = FindPlugin(source.plugin);
    setup.table = source.table;
    // The dialog runs on this thread inside the plug-in's call; the one shared copy serves it.
    setup.copy = host::PluginCopy::shared;
    std::optional<Scene> scene;
    std::optional<SettingsRecord> settings;
    std::optional<SettingsReadResult> look;
    if (!source.scene.empty()) {
        scene = LoadScene(source.scene);
        settings = scene->settings;
        if (source.table.empty() && !scene->table.empty()) setup.table = FindTable(scene->table);
    } else if (!source.settings.empty()) {
        look = ExistingLook(source.settings);
        if (look) settings = look->settings;
        if (look && source.table.empty() && !look->source.table.empty()) setup.table = FindTable(look->source.table);
    }

    setup.settings = settings;
    std::string showing = OpeningLook(source, scene, look), picked;
    bool channelsReset = false;
    DialogOutcome outcome;
    while (true) {
        runner.ShowLook(showing);
        outcome = ShowDialog(setup, runner);
        channelsReset = channelsReset || outcome.channelsReset;
        const std::optional<std::string> next = runner.PickedLook();
        if (!next || !outcome.accepted || outcome.result != kNoError) break;
        // Switching tables: a fresh plug-in session on the picked table, started from the settings
        // as the artist left them (the plug-in kept them, as on OK). Every table reads the same
        // settings record, so the settings carry over unchanged, as a look file's do to --table.
        setup.table = FindTable(*next);
        setup.settings = SettingsRecord{NativeByteOrder(), outcome.record};
        showing = picked = *next;
    }
    outcome.channelsReset = channelsReset;
    outcome.look = picked;
    if (save && outcome.accepted && outcome.result == kNoError && source.HasFile()) {
        SaveSettings(source, scene, outcome, SavedSource(source, look, picked));
        outcome.saved = true;
    }
    return outcome;
}

}  // namespace vellux::engine
