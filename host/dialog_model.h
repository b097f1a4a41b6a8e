// The host's live dialogs: what KV_MakeDialog builds from a DLOG resource, what the dialog,
// control, edit text, colour button and drawing services work on, and what a dialog runner
// (dialog_runner.h) shows to the artist or to a script.
//
// Sections:
//   Canvas            the dialog's pixels, where user controls draw (RGBA, 8 bits a channel)
//   Control, Dialog   the model; controls keep the resource's layout and their live state
//   Operations        what runners do: find controls, edit them as the artist would, fire hit
//                     functions, click, redraw what was invalidated, describe values
//
// Threading: a dialog and its controls belong to the thread that runs the plug-in's command;
// every function here must be called on it.
//
// Coordinates: bounds, clicks and mouse positions are in the dialog's coordinates (origin at the
// top-left of its content), the same system the controls' bounds are given in, so a plug-in can
// compare a click with its control's bounds directly.
#ifndef VELLUX_HOST_DIALOG_MODEL_H
#define VELLUX_HOST_DIALOG_MODEL_H

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/dialog_resource.h"
#include "kit/host_service_types.h"

namespace vellux::host {

// ---- Canvas ----

struct Canvas {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgba;         // width * height * 4 bytes, rows top to bottom
    uint64_t version = 0;              // grows with every drawing call, so viewers know to refetch

    void Resize(int newWidth, int newHeight);   // clears to transparent black
    uint8_t* Pixel(int x, int y) { return rgba.data() + (size_t(y) * size_t(width) + size_t(x)) * 4; }
    // The part of `rect` on the canvas; empty (right <= left or bottom <= top) when none is.
    KV_Rect Clip(const KV_Rect& rect) const;
    // The pixels inside `rect` (clipped to the canvas), RGBA rows; empty when nothing is inside.
    std::vector<uint8_t> Copy(const KV_Rect& rect) const;
};

// ---- Control and Dialog ----

struct Dialog;

struct Control {
    KV_Control handle{};               // its address is the KV_Control* handed to the plug-in
    Dialog* dialog = nullptr;
    DialogItem item;                   // as the resource defines it: id, type, bounds, title, menu
    int value = 0;                     // check boxes, pop-ups, radio groups
    std::string text;                  // edit texts; static texts' titles live in item.title
    int selectionStart = 0;
    int selectionEnd = 0;
    std::array<int, 4> color{0, 0, 0, 255};   // colour buttons: red, green, blue, alpha, 0..255
    bool visible = true;
    bool enabled = true;
    KV_ControlHitFunction hit = nullptr;
    KV_UserDrawFunction draw = nullptr;
    KV_UserClickFunction click = nullptr;
    bool needsDraw = false;            // KV_InvalControl asked for a redraw

    int id() const { return item.id; }
    KV_ControlType type() const { return item.type; }
};

struct Dialog {
    KV_Dialog handle{};                // its address is the KV_Dialog* handed to the plug-in
    KV_DrawContext context{};          // the draw context of its canvas, passed to user controls
    int dialogID = 0;
    DialogTemplate layout;
    std::deque<Control> controls;      // in the resource's order; a deque keeps addresses stable
    Control* keyControl = nullptr;
    Canvas canvas;
    std::array<uint8_t, 3> foreColor{0x5A, 0x61, 0x6E};   // pen colour of KV_FrameRect
};

// Builds a live dialog from a template (controls at their initial values: check boxes and
// pop-ups from the item's value, edit texts from its title; canvas cleared to transparent).
void BuildDialog(Dialog& dialog, int dialogID, const DialogTemplate& layout);

// A built dialog registered with the services, which answer only for registered dialogs and their
// controls. The registry owns it until DestroyDialog (KV_MakeDialog and KV_DestroyDialog use
// these two).
Dialog* MakeDialog(int dialogID, const DialogTemplate& layout);
void DestroyDialog(Dialog* dialog);

// The objects behind handles the services hand out; null for a null, unknown or destroyed one.
Dialog* DialogOf(const KV_Dialog* handle);
Control* ControlOf(const KV_Control* handle);
Dialog* DialogOfContext(const KV_DrawContext* handle);

// ---- Operations for runners ----

Control* FindControl(Dialog& dialog, int id);                  // null when absent
// The name a person or a script uses for a control: the static text that labels it, else its
// own title, else "#ID".
std::string ControlLabel(const Dialog& dialog, const Control& control);
// By label (case-insensitive, exact) or by ID in decimal; null when no control answers.
Control* FindControlByName(Dialog& dialog, std::string_view name);
// Controls a person edits: check boxes, edit texts, colour buttons, pop-ups, radio groups.
bool IsEditable(const Control& control);

// The control's value as text, in the form EditControl takes: "on"/"off", the edit text, the
// pop-up item's text, "#RRGGBB".
std::string ValueText(const Control& control);

// Sets a control as the artist would, from text: check boxes "on"/"off" (or 1/0), edit texts any
// text up to 255 bytes, pop-ups an item's text (case-insensitive) or its value, colour buttons
// "#RRGGBB". Returns the reason when the text does not fit the control, and then changes nothing.
// Does not fire the hit function.
std::optional<std::string> EditControl(Control& control, std::string_view text);

// Calls the control's hit function, if it has one, then redraws what it invalidated.
void FireHit(Control& control);

// A click at (h, v) in a user control: calls its click function (which may track the mouse
// through the current runner), then FireHit.
void ClickControl(Control& control, int h, int v);

// Calls the draw function of every user control that asked to be redrawn (or of all of them when
// `all`), once each; the canvas version grows when anything was drawn.
void RedrawControls(Dialog& dialog, bool all = false);

}  // namespace vellux::host

#endif  // VELLUX_HOST_DIALOG_MODEL_H
