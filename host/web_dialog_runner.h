// The web dialog runner: shows a live dialog as a page in a browser on this machine.
//
// Run serves the dialog on the loopback interface at http://127.0.0.1:PORT/TOKEN/ until the page
// presses OK or Cancel (or the program is interrupted), then stops the server and closes the port.
// The page (web/dialog.html, .css, .js) is built into the library.
//
// Sections:
//   Options         port, where the address goes, interruption, drag timeout, the looks offered
//   WebDialogRunner the runner
//
// Looks. With looks in the options the page lists them beside the dialog (dialog_runner.h). A
// look picked ends the dialog's Run as accepted and PickedLook names it; the server stays up, the
// page stays where it is, and the next Run serves the dialog on the new look, with the light
// clicked again where the artist last clicked or dragged it (the plug-in keeps the light only as
// long as its dialog). Without a next Run, the server stops when the runner is destroyed.
//
// Threading. The plug-in and the model are touched only on the thread that called Run. The HTTP
// server's threads parse each request, queue it and wait; the Run thread takes requests from the
// queue one at a time and answers them. A mouse-down in a user control calls ClickControl; the
// plug-in's click function then calls TrackMouse in a loop, which answers the request of the step
// before (so the page sees each step drawn) and waits for the next mouse event: a move continues
// the drag, an up ends it; reading requests (state, canvas) are answered in the meantime; any
// other request, or dragTimeout without an event, ends it as a release and stays queued.
//
// Security. Only 127.0.0.1 is listened on. Every path starts with a random token of 128 bits;
// a request without it gets 404, one whose Host header is not exactly 127.0.0.1:PORT gets 403
// (against pages of other sites reaching the port by DNS rebinding). Bodies are JSON of at most
// kMaxBody bytes; a bad request gets a 4xx status with {"error": "..."} and changes nothing.
// Nothing but the page, its script and style, the state and the canvases is served; no CORS.
//
// HTTP interface (under /TOKEN/; every reply JSON unless said otherwise):
//   GET  /                       the page (dialog.html); dialog.css, dialog.js beside it
//   GET  api/state               the dialog: title, width, height, focus (the key control's ID or
//                                null), canvasVersion (growing across the dialogs of one page),
//                                dialog (which dialog of the page, from 1), look (the look it shows,
//                                when looks are offered), closed, and controls: id, type (KV_ControlType
//                                number), bounds {left, top, right, bottom}, label, title, value,
//                                text, selection [start, end], color "#RRGGBB", menu [{value,
//                                text}], labelFor, enabled, visible, and setting (its name) with
//                                settingInverted for a control of WebDialogOptions::settings
//   GET  api/canvas/ID           a user control's pixels: raw RGBA rows of its bounds
//                                (application/octet-stream), headers X-Canvas-Width, -Height, -Version
//   POST api/edit {id, value}    sets a control as the artist would, then fires its hit function:
//                                check box true/false, edit text a string, pop-up an item's value,
//                                colour button "#RRGGBB", radio group a number; replies the state
//   POST api/press {id}          a push button: 1 accepts, 2 cancels (as api/close), others fire
//                                their hit function
//   POST api/mouse {id, event, x, y}  event "down" (in a user control), "move" or "up", in dialog
//                                coordinates; replies the state once the plug-in drew that step
//   POST api/close {accept}      ends the dialog; replies the state with closed true
//   GET  api/looks               {current, looks: [{name, description, group}]}; 404 when none are offered
//   POST api/look {name}         shows the dialog on that look (one of api/looks); replies the state
//                                of the dialog on it once it is drawn, or the state as it is when
//                                that look is already shown
// Once the dialog is closed, queued and later requests get 410.
#ifndef VELLUX_HOST_WEB_DIALOG_RUNNER_H
#define VELLUX_HOST_WEB_DIALOG_RUNNER_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/dialog_runner.h"

namespace vellux::host {

// ---- Options ----

struct LookChoice {
    std::string name;          // as --table takes it
    std::string description;   // one line about it
    std::string group;         // the heading it is listed under
};

// The setting a control edits, which the page shows by its name beside the dialog's own label.
struct ControlSetting {
    std::string name;        // the setting's name in every front end ("flare-intensity")
    bool inverted = false;   // a check box that is on when the setting is off
};

struct WebDialogOptions {
    int port = 0;                                         // 0: one the system chooses
    std::function<void(const std::string& address)> ready;   // the page's address, once served
    std::function<bool()> interrupted;                    // polled; true cancels the dialog
    std::chrono::milliseconds dragTimeout{30000};         // a drag without events ends
    std::vector<LookChoice> looks;                        // offered beside the dialog; none: no choice
    std::map<int, ControlSetting> settings;               // by control ID; in the state as "setting"
};

// ---- WebDialogRunner ----

class WebDialogRunner final : public DialogRunner {
public:
    static constexpr size_t kMaxBody = 64 * 1024;

    explicit WebDialogRunner(WebDialogOptions options = {});
    ~WebDialogRunner() override;
    WebDialogRunner(const WebDialogRunner&) = delete;
    WebDialogRunner& operator=(const WebDialogRunner&) = delete;

    // Throws std::runtime_error when the port cannot be listened on (nothing is shown then) and
    // std::logic_error when called again while running.
    bool Run(Dialog& dialog) override;
    bool TrackMouse(Control& control, int* x, int* y) override;
    void ShowLook(const std::string& name) override { look_ = name; }
    std::optional<std::string> PickedLook() const override { return picked_; }

private:
    class Session;
    WebDialogOptions options_;
    std::unique_ptr<Session> session_;   // from the first Run until one ends without a look picked
    bool running_ = false;
    std::string look_;
    std::optional<std::string> picked_;
};

}  // namespace vellux::host

#endif  // VELLUX_HOST_WEB_DIALOG_RUNNER_H
