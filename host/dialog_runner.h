// Dialog runners: who the host's modal dialog loop (KV_ExecuteDialog) hands a dialog to. The
// host library has no screen of its own; a program chooses how dialogs are shown by installing a
// runner: the web runner (web_dialog_runner.h) serves the dialog as a local web page, the
// scripted runner (scripted_dialog_runner.h) plays a list of edits without any display.
//
// Without a runner every dialog is cancelled at once.
#ifndef VELLUX_HOST_DIALOG_RUNNER_H
#define VELLUX_HOST_DIALOG_RUNNER_H

#include <exception>
#include <optional>
#include <string>

#include "host/dialog_model.h"

namespace vellux::host {

class DialogRunner {
public:
    virtual ~DialogRunner() = default;

    // Runs the dialog until it is accepted (true) or cancelled (false). Called on the plug-in's
    // thread from KV_ExecuteDialog; edits fire the controls' hit functions as they happen (see
    // FireHit, ClickControl, RedrawControls in dialog_model.h).
    virtual bool Run(Dialog& dialog) = 0;

    // KV_TrackMouseDown: while the mouse button is still held after a click in `control`,
    // true with the current position (dialog coordinates); false once it was released, with the
    // position where it was released. The first call after a click reports the click's own
    // position, so a click without a drag still moves what it points at.
    virtual bool TrackMouse(Control& control, int* x, int* y) = 0;

    // Looks. A runner may offer the artist other looks (flare tables) beside the dialog; the web
    // runner does. The caller names the look a dialog shows before running it. When the artist
    // picks another, Run returns true, so that the plug-in keeps the edits made so far, and
    // PickedLook names it until the next Run; the caller then opens the dialog again on the picked
    // look (engine/dialog_session.h). Runners that offer no looks ignore the name and pick none.
    virtual void ShowLook(const std::string& name) { (void)name; }
    virtual std::optional<std::string> PickedLook() const { return std::nullopt; }
};

// A runner that fails (throws) inside KV_ExecuteDialog cannot report to the plug-in, which only
// sees a cancelled dialog; the failure is kept for the program, which takes it after the command
// (null when there was none) and reports it. So is a failure of the image backdrop
// (image_backdrop.h); the first failure is the one kept.
std::exception_ptr TakeRunnerFailure();

// Installs the runner for the dialogs that follow (nullptr: none). The runner must outlive its
// use; the caller keeps ownership.
void SetDialogRunner(DialogRunner* runner);
DialogRunner* CurrentDialogRunner();

// Installs a runner for the lifetime of a scope and puts the previous one back.
class ScopedDialogRunner {
public:
    explicit ScopedDialogRunner(DialogRunner& runner) : previous_(CurrentDialogRunner()) { SetDialogRunner(&runner); }
    ~ScopedDialogRunner() { SetDialogRunner(previous_); }
    ScopedDialogRunner(const ScopedDialogRunner&) = delete;
    ScopedDialogRunner& operator=(const ScopedDialogRunner&) = delete;

private:
    DialogRunner* previous_;
};

}  // namespace vellux::host

#endif  // VELLUX_HOST_DIALOG_RUNNER_H
