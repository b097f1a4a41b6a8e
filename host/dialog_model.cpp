// The host's live dialogs. See dialog_model.h.
#include "host/dialog_model.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <memory>
#include <unordered_map>

#include "host/service_registry_pvt.h"

namespace vellux::host {

namespace {

struct DialogState {
    Registry<Dialog, KV_Dialog> dialogs;
    std::unordered_map<const KV_Control*, Control*> controls;
    std::unordered_map<const KV_DrawContext*, Dialog*> contexts;
};

DialogState& Dialogs() {
    static DialogState state;
    return state;
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) c = char(std::tolower(static_cast<unsigned char>(c)));
    return lower;
}

std::string_view Trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
    return text;
}

std::optional<int> WholeNumber(std::string_view text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return value;
}

std::optional<std::string> EditCheckBox(Control& control, std::string_view text) {
    const std::string word = Lower(text);
    if (word == "on" || word == "1" || word == "true") control.value = 1;
    else if (word == "off" || word == "0" || word == "false") control.value = 0;
    else return "a check box takes on or off, not \"" + std::string(text) + "\"";
    return std::nullopt;
}

std::optional<std::string> EditPopup(Control& control, std::string_view text) {
    const std::string wanted = Lower(text);
    for (const DialogMenuItem& item : control.item.menu) {
        if (Lower(item.text) == wanted) {
            control.value = item.value;
            return std::nullopt;
        }
    }
    if (const std::optional<int> number = WholeNumber(text)) {
        for (const DialogMenuItem& item : control.item.menu) {
            if (item.value == *number) {
                control.value = item.value;
                return std::nullopt;
            }
        }
    }
    std::string choices;
    for (const DialogMenuItem& item : control.item.menu)
        choices += (choices.empty() ? "" : ", ") + std::to_string(item.value) + " \"" + item.text + "\"";
    return "\"" + std::string(text) + "\" is not one of the menu's items: " + choices;
}

std::optional<std::string> EditColor(Control& control, std::string_view text) {
    const bool hex = text.size() == 7 && text[0] == '#' &&
                     std::all_of(text.begin() + 1, text.end(), [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); });
    if (!hex) return "a colour is written #RRGGBB, not \"" + std::string(text) + "\"";
    for (int i = 0; i < 3; ++i) {
        int component = 0;
        std::from_chars(text.data() + 1 + 2 * i, text.data() + 3 + 2 * i, component, 16);
        control.color[size_t(i)] = component;
    }
    return std::nullopt;
}

std::optional<std::string> EditText(Control& control, std::string_view text) {
    constexpr size_t kMostBytes = 255;
    if (text.size() > kMostBytes) return "an edit text holds at most 255 bytes, not " + std::to_string(text.size());
    if (text.find('\0') != std::string_view::npos) return "an edit text cannot hold a NUL byte";
    control.text = std::string(text);
    control.selectionStart = control.selectionEnd = int(control.text.size());
    return std::nullopt;
}

}  // namespace

// ---- Canvas ----

void Canvas::Resize(int newWidth, int newHeight) {
    width = std::max(newWidth, 0);
    height = std::max(newHeight, 0);
    rgba.assign(size_t(width) * size_t(height) * 4, 0);
    ++version;
}

KV_Rect Canvas::Clip(const KV_Rect& rect) const {
    return {std::max(rect.left, 0), std::max(rect.top, 0), std::min(rect.right, width), std::min(rect.bottom, height)};
}

std::vector<uint8_t> Canvas::Copy(const KV_Rect& rect) const {
    const KV_Rect on = Clip(rect);
    std::vector<uint8_t> pixels;
    if (on.left >= on.right || on.top >= on.bottom) return pixels;
    const size_t rowBytes = size_t(on.right - on.left) * 4;
    pixels.reserve(rowBytes * size_t(on.bottom - on.top));
    for (int y = on.top; y < on.bottom; ++y) {
        const uint8_t* row = rgba.data() + (size_t(y) * size_t(width) + size_t(on.left)) * 4;
        pixels.insert(pixels.end(), row, row + rowBytes);
    }
    return pixels;
}

// ---- Building and registering ----

void BuildDialog(Dialog& dialog, int dialogID, const DialogTemplate& layout) {
    dialog.dialogID = dialogID;
    dialog.layout = layout;
    dialog.controls.clear();
    dialog.keyControl = nullptr;
    for (const DialogItem& item : layout.items) {
        Control& control = dialog.controls.emplace_back();
        control.handle.data = item.id;
        control.dialog = &dialog;
        control.item = item;
        control.value = item.value;
        if (item.type == cKV_EditText) control.text = item.title;
    }
    dialog.canvas.Resize(layout.width, layout.height);
}

Dialog* MakeDialog(int dialogID, const DialogTemplate& layout) {
    auto made = std::make_unique<Dialog>();
    BuildDialog(*made, dialogID, layout);
    Dialog* dialog = made.get();
    DialogState& state = Dialogs();
    state.dialogs.Add(std::move(made));
    for (Control& control : dialog->controls) state.controls[&control.handle] = &control;
    state.contexts[&dialog->context] = dialog;
    return dialog;
}

void DestroyDialog(Dialog* dialog) {
    if (dialog == nullptr || DialogOf(&dialog->handle) != dialog) return;
    DialogState& state = Dialogs();
    for (const Control& control : dialog->controls) state.controls.erase(&control.handle);
    state.contexts.erase(&dialog->context);
    state.dialogs.Remove(&dialog->handle);
}

Dialog* DialogOf(const KV_Dialog* handle) { return handle == nullptr ? nullptr : Dialogs().dialogs.Find(handle); }

Control* ControlOf(const KV_Control* handle) {
    const auto& controls = Dialogs().controls;
    const auto found = controls.find(handle);
    return found == controls.end() ? nullptr : found->second;
}

Dialog* DialogOfContext(const KV_DrawContext* handle) {
    const auto& contexts = Dialogs().contexts;
    const auto found = contexts.find(handle);
    return found == contexts.end() ? nullptr : found->second;
}

// ---- Operations ----

Control* FindControl(Dialog& dialog, int id) {
    for (Control& control : dialog.controls) {
        if (control.id() == id) return &control;
    }
    return nullptr;
}

std::string ControlLabel(const Dialog& dialog, const Control& control) {
    for (const Control& other : dialog.controls) {
        if (other.type() == cKV_StaticText && other.item.labelFor == control.id() && !other.item.title.empty())
            return other.item.title;
    }
    if (!control.item.title.empty() && control.type() != cKV_EditText) return control.item.title;
    return "#" + std::to_string(control.id());
}

Control* FindControlByName(Dialog& dialog, std::string_view name) {
    name = Trimmed(name);
    if (const std::optional<int> id = WholeNumber(name)) return FindControl(dialog, *id);
    const std::string wanted = Lower(name);
    for (Control& control : dialog.controls) {
        if (control.type() != cKV_StaticText && Lower(ControlLabel(dialog, control)) == wanted) return &control;
    }
    return nullptr;
}

bool IsEditable(const Control& control) {
    switch (control.type()) {
    case cKV_CheckBox:
    case cKV_EditText:
    case cKV_ColorButton:
    case cKV_PopupMenu:
    case cKV_RadioGroup: return true;
    default: return false;
    }
}

std::string ValueText(const Control& control) {
    switch (control.type()) {
    case cKV_CheckBox: return control.value != 0 ? "on" : "off";
    case cKV_EditText: return control.text;
    case cKV_PopupMenu:
        for (const DialogMenuItem& item : control.item.menu) {
            if (item.value == control.value) return item.text;
        }
        return std::to_string(control.value);
    case cKV_ColorButton: {
        char hex[8];
        std::snprintf(hex, sizeof(hex), "#%02X%02X%02X", control.color[0] & 0xFF, control.color[1] & 0xFF, control.color[2] & 0xFF);
        return hex;
    }
    case cKV_RadioGroup: return std::to_string(control.value);
    default: return control.item.title;
    }
}

std::optional<std::string> EditControl(Control& control, std::string_view text) {
    if (!control.enabled) return "the control is disabled";
    switch (control.type()) {
    case cKV_CheckBox: return EditCheckBox(control, Trimmed(text));
    case cKV_EditText: return EditText(control, text);
    case cKV_PopupMenu: return EditPopup(control, Trimmed(text));
    case cKV_ColorButton: return EditColor(control, Trimmed(text));
    case cKV_RadioGroup:
        if (const std::optional<int> number = WholeNumber(Trimmed(text)); number && *number >= 0) {
            control.value = *number;
            return std::nullopt;
        }
        return "a radio group takes the number of its choice, not \"" + std::string(text) + "\"";
    default: return ControlTypeName(control.type()) + " cannot be edited";
    }
}

void FireHit(Control& control) {
    if (control.hit != nullptr) control.hit(&control.handle, &control.dialog->context);
    RedrawControls(*control.dialog);
}

// A click changes the control (a user control's state is the plug-in's to keep), so its hit
// function follows the click function.
void ClickControl(Control& control, int h, int v) {
    if (control.click != nullptr) control.click(&control.handle, &control.dialog->context, 0, h, v);
    FireHit(control);
}

void RedrawControls(Dialog& dialog, bool all) {
    // A draw function that invalidates its own control again is drawn once more at most, so a
    // misbehaving one cannot hold the dialog forever.
    constexpr int kMostPasses = 2;
    for (int pass = 0; pass < kMostPasses; ++pass) {
        bool drew = false;
        for (Control& control : dialog.controls) {
            const bool wanted = control.needsDraw || (all && pass == 0);
            if (control.type() != cKV_UserControl || control.draw == nullptr || !wanted) continue;
            control.needsDraw = false;
            if (!control.visible) continue;
            control.draw(&control.handle, &dialog.context);
            drew = true;
        }
        if (!drew) return;
    }
}

}  // namespace vellux::host
