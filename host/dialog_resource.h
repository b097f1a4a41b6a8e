// Dialog resources (type DLOG): the layout of a dialog as a resource file holds it, from which the
// host builds a live dialog (dialog_model.h).
//
// Layout, every number big-endian, every string length-prefixed (one length byte, then the
// bytes, then a zero byte when needed to make the string's whole size even):
//   version        u16   1
//   width, height  i16   the dialog's content size in pixels, 1 or more
//   title          str   the window title
//   item count     u16
//   per item:
//     id           i16   1 or more, unique within the dialog
//     type         i16   a KV_ControlType from 1 (push button) to 16 (GL control)
//     left, top, right, bottom  i16   the control's bounds in the dialog, inside 0..width and
//                                     0..height, right > left and bottom > top
//     value        i16   the initial value (check boxes 0 or 1; pop-ups one of the items' values)
//     label for    i16   a static text may name the control it labels (0: none); the ID must exist
//     title        str   a button's or check box's text, a static text's text, an edit text's
//                        initial text
//     menu count   u16   pop-up menus only (0 for every other type)
//     per menu item: value i16, text str
//
// Conventions: a push button with ID 1 accepts the dialog (OK), one with ID 2 cancels it.
// A pop-up's value is the value of its chosen item, so the resource decides what the plug-in
// reads; item values are unique within a menu.
//
// Decoding is strict: any byte sequence that encoding would not produce from a valid template is
// refused with a reason, and nothing outside the given bytes is read.
#ifndef VELLUX_HOST_DIALOG_RESOURCE_H
#define VELLUX_HOST_DIALOG_RESOURCE_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "kit/host_service_types.h"

namespace vellux::host {

inline constexpr uint32_t kDialogResourceType = 0x444C4F47;   // 'DLOG'
inline constexpr uint16_t kDialogResourceVersion = 1;
inline constexpr int kAcceptButtonID = 1;
inline constexpr int kCancelButtonID = 2;

struct DialogMenuItem {
    int16_t value = 0;
    std::string text;            // at most 255 bytes
};

struct DialogItem {
    int16_t id = 0;
    KV_ControlType type = cKV_NoControlType;
    KV_Rect bounds{};            // left, top, right, bottom in the dialog
    int16_t value = 0;
    int16_t labelFor = 0;        // static texts: the ID of the control this text labels, or 0
    std::string title;           // at most 255 bytes
    std::vector<DialogMenuItem> menu;   // pop-up menus only
};

struct DialogTemplate {
    int16_t width = 0;
    int16_t height = 0;
    std::string title;           // at most 255 bytes
    std::vector<DialogItem> items;   // in the order the host indexes them
};

// ---- Checking ----

// One broken rule. `where` names the value in the terms of the table source ("width",
// "items[3].bounds[2]", "items[3].for", "items[3].menu[1].value"; empty for the dialog as a
// whole); `inputs` names the other values the verdict rests on, so that a caller that could not
// read one of them can leave the verdict out instead of reporting a consequence.
struct DialogProblem {
    std::string where;
    std::string message;
    std::vector<std::string> inputs;

    std::string Text() const;   // "items[3].bounds[2]: right (800) is beyond the width (720)"
};

// Every rule above that the template breaks, in item order; empty for a valid template.
std::vector<DialogProblem> CheckDialog(const DialogTemplate& dialog);

// ---- Encoding and decoding ----

// Throws std::invalid_argument with the reason when the template breaks a rule above.
std::vector<uint8_t> EncodeDialog(const DialogTemplate& dialog);

// A template, or the reason the bytes are not one.
std::variant<DialogTemplate, std::string> DecodeDialog(std::span<const uint8_t> bytes);

// ---- Control types ----

// "check box", "edit text", ... for a KV_ControlType; "type N" for values outside the enumeration.
std::string ControlTypeName(int type);
// The short names of the table source ("checkbox", "edit", "popup", "user", ...), both ways;
// the key of a value outside 1..16 is null, and the parser answers cKV_NoControlType for an
// unknown name.
const char* ControlTypeKey(KV_ControlType type);
KV_ControlType ControlTypeFromKey(std::string_view key);

}  // namespace vellux::host

#endif  // VELLUX_HOST_DIALOG_RESOURCE_H
