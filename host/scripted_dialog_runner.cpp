// The scripted dialog runner. See scripted_dialog_runner.h.
#include "host/scripted_dialog_runner.h"

namespace vellux::host {

ScriptStep ScriptStep::Edit(std::string control, std::string value) {
    ScriptStep step;
    step.kind = Kind::edit;
    step.control = std::move(control);
    step.value = std::move(value);
    return step;
}

ScriptStep ScriptStep::Click(std::string control, std::vector<std::pair<int, int>> path) {
    ScriptStep step;
    step.kind = Kind::click;
    step.control = std::move(control);
    step.path = std::move(path);
    return step;
}

ScriptStep ParseAssignment(const std::string& assignment) {
    const size_t equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0)
        throw ScriptError("\"" + assignment + "\" is not NAME=VALUE");
    return ScriptStep::Edit(assignment.substr(0, equals), assignment.substr(equals + 1));
}

bool ScriptedDialogRunner::Run(Dialog& dialog) {
    for (const ScriptStep& step : steps_) Play(dialog, step);
    if (inspector_) inspector_(dialog);
    return accept_;
}

void ScriptedDialogRunner::Play(Dialog& dialog, const ScriptStep& step) {
    Control* control = FindControlByName(dialog, step.control);
    if (control == nullptr) throw ScriptError("the dialog has no control \"" + step.control + "\"");
    const std::string name = ControlLabel(dialog, *control);
    if (step.kind == ScriptStep::Kind::click) {
        if (step.path.empty()) throw ScriptError(name + ": a click needs a position");
        path_ = &step.path;
        pathIndex_ = 0;
        ClickControl(*control, step.path.front().first, step.path.front().second);
        path_ = nullptr;
        return;
    }
    if (!IsEditable(*control)) throw ScriptError(name + ": " + ControlTypeName(control->type()) + " cannot be set");
    if (const auto problem = EditControl(*control, step.value)) throw ScriptError(name + ": " + *problem);
    FireHit(*control);
}

// The path's points one by one while "held"; after the last one, released where it ended.
bool ScriptedDialogRunner::TrackMouse(Control&, int* x, int* y) {
    ++mouseReports_;
    if (path_ == nullptr || pathIndex_ >= path_->size()) return false;
    *x = (*path_)[pathIndex_].first;
    *y = (*path_)[pathIndex_].second;
    ++pathIndex_;
    return true;
}

}  // namespace vellux::host
