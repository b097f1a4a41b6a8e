// A dialog runner without a display, for scripts and tests: it plays a list of steps on the
// dialog as an artist would (each edit sets a control and fires its hit function; each click
// presses, drags through a path and releases), lets the caller look at the dialog, then accepts
// or cancels it.
//
// A step that cannot be played (no such control, a value the control does not take) stops the
// script: Run throws ScriptError naming the step, which the host keeps for the program
// (TakeRunnerFailure) while the plug-in sees a cancelled dialog.
#ifndef VELLUX_HOST_SCRIPTED_DIALOG_RUNNER_H
#define VELLUX_HOST_SCRIPTED_DIALOG_RUNNER_H

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/dialog_runner.h"

namespace vellux::host {

struct ScriptError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct ScriptStep {
    enum class Kind { edit, click };
    Kind kind = Kind::edit;
    std::string control;                     // a label or an ID (FindControlByName)
    std::string value;                       // edit: the text, as EditControl takes it
    std::vector<std::pair<int, int>> path;   // click: pressed at the first point, dragged through
                                             // the others, released at the last (dialog coordinates)

    static ScriptStep Edit(std::string control, std::string value);
    static ScriptStep Click(std::string control, std::vector<std::pair<int, int>> path);
};

// "NAME=VALUE" as an edit step; throws ScriptError when there is no "=" or no name.
ScriptStep ParseAssignment(const std::string& assignment);

class ScriptedDialogRunner : public DialogRunner {
public:
    using Inspector = std::function<void(Dialog&)>;

    ScriptedDialogRunner(std::vector<ScriptStep> steps, bool accept) : steps_(std::move(steps)), accept_(accept) {}

    // Called once the script has played, before the dialog closes.
    void SetInspector(Inspector inspector) { inspector_ = std::move(inspector); }

    bool Run(Dialog& dialog) override;
    bool TrackMouse(Control& control, int* x, int* y) override;

    // Plays one more step now (from the inspector, say); throws ScriptError as Run does.
    void Play(Dialog& dialog, const ScriptStep& step);

    int mouseReports() const { return mouseReports_; }   // TrackMouse answers, for tests

private:
    std::vector<ScriptStep> steps_;
    bool accept_;
    Inspector inspector_;
    const std::vector<std::pair<int, int>>* path_ = nullptr;   // the drag being played
    size_t pathIndex_ = 0;
    int mouseReports_ = 0;
};

}  // namespace vellux::host

#endif  // VELLUX_HOST_SCRIPTED_DIALOG_RUNNER_H
