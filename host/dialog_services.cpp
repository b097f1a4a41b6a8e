// The host's dialog, control, edit-text, colour-button and callback services, exported under
// their plain names. Each works on the live model (dialog_model.h); a handle the host did not hand
// out, or one of a destroyed dialog, gets the neutral answer and changes nothing, as does a null
// output pointer. No service lets an exception escape: the caller is a plug-in.
#include <algorithm>
#include <cstring>
#include <exception>

#include "host/dialog_model.h"
#include "host/dialog_runner.h"
#include "host/dialog_services_pvt.h"
#include "host/resource_services_pvt.h"

VELLUX_CHECK_SIGNATURE(KV_MakeDialog);
VELLUX_CHECK_SIGNATURE(KV_DestroyDialog);
VELLUX_CHECK_SIGNATURE(KV_ExecuteDialog);
VELLUX_CHECK_SIGNATURE(KV_GetControlDialog);
VELLUX_CHECK_SIGNATURE(KV_SetDialogTitle);
VELLUX_CHECK_SIGNATURE(KV_GetDialogSize);
VELLUX_CHECK_SIGNATURE(KV_FindControlByID);
VELLUX_CHECK_SIGNATURE(KV_FindControlByIndex);
VELLUX_CHECK_SIGNATURE(KV_CountControls);
VELLUX_CHECK_SIGNATURE(KV_GetControlID);
VELLUX_CHECK_SIGNATURE(KV_InvalControl);
VELLUX_CHECK_SIGNATURE(KV_GetControlType);
VELLUX_CHECK_SIGNATURE(KV_GetControlBounds);
VELLUX_CHECK_SIGNATURE(KV_GetControlValue);
VELLUX_CHECK_SIGNATURE(KV_SetControlValue);
VELLUX_CHECK_SIGNATURE(KV_SetKeyControl);
VELLUX_CHECK_SIGNATURE(KV_GetKeyControl);
VELLUX_CHECK_SIGNATURE(KV_SetControlVisible);
VELLUX_CHECK_SIGNATURE(KV_GetControlVisible);
VELLUX_CHECK_SIGNATURE(KV_SetControlEnable);
VELLUX_CHECK_SIGNATURE(KV_GetControlEnable);
VELLUX_CHECK_SIGNATURE(KV_SetControlTitle);
VELLUX_CHECK_SIGNATURE(KV_GetControlTitleSize);
VELLUX_CHECK_SIGNATURE(KV_GetControlTitle);
VELLUX_CHECK_SIGNATURE(KV_SetEditTextString);
VELLUX_CHECK_SIGNATURE(KV_GetEditTextStringSize);
VELLUX_CHECK_SIGNATURE(KV_GetEditTextString);
VELLUX_CHECK_SIGNATURE(KV_SetEditTextSelection);
VELLUX_CHECK_SIGNATURE(KV_GetEditTextSelection);
VELLUX_CHECK_SIGNATURE(KV_GetColorButtonColor);
VELLUX_CHECK_SIGNATURE(KV_SetColorButtonColor);
VELLUX_CHECK_SIGNATURE(KV_TrackMouseDown);
VELLUX_CHECK_SIGNATURE(KV_SetControlHitFunction);
VELLUX_CHECK_SIGNATURE(KV_SetUserControlDraw);
VELLUX_CHECK_SIGNATURE(KV_SetUserControlClick);

namespace vellux::host {

namespace {

DialogRunner* gRunner = nullptr;
std::exception_ptr gRunnerFailure;
int gLiveDialogs = 0;

// Text out under the host's convention: at most *ioNumChars bytes including the NUL, which is
// always written when there is room for it; *ioNumChars becomes the length written.
void CopyText(const std::string& text, char* out, int* ioNumChars) {
    if (out == nullptr || ioNumChars == nullptr || *ioNumChars <= 0) return;
    const size_t length = std::min(text.size(), size_t(*ioNumChars - 1));
    std::memcpy(out, text.data(), length);
    out[length] = '\0';
    *ioNumChars = int(length);
}

}  // namespace

void SetDialogRunner(DialogRunner* runner) { gRunner = runner; }
DialogRunner* CurrentDialogRunner() { return gRunner; }

void KeepRunnerFailure(std::exception_ptr failure) {
    if (!gRunnerFailure) gRunnerFailure = std::move(failure);
}

std::exception_ptr TakeRunnerFailure() {
    std::exception_ptr failure = gRunnerFailure;
    gRunnerFailure = nullptr;
    return failure;
}

int LiveDialogs() { return gLiveDialogs; }

}  // namespace vellux::host

using namespace vellux::host;

// ---- Dialogs ----

KV_Dialog* KV_MakeDialog(KV_ResourceFile* iResourceFile, int iDialogID) {
    int32_t size = 0;
    void* bytes = KV_GetResource(iResourceFile, kDialogResourceType, iDialogID, &size);
    if (bytes == nullptr) return nullptr;
    KV_Dialog* made = nullptr;
    try {
        const auto decoded = DecodeDialog({static_cast<const uint8_t*>(bytes), size_t(std::max(size, 0))});
        if (const auto* layout = std::get_if<DialogTemplate>(&decoded)) {
            made = &MakeDialog(iDialogID, *layout)->handle;
            ++gLiveDialogs;
        }
    } catch (...) {
        made = nullptr;
    }
    KV_ReleaseResource(bytes);
    return made;
}

void KV_DestroyDialog(KV_Dialog* iDialog) {
    Dialog* dialog = DialogOf(iDialog);
    if (dialog == nullptr) return;
    DestroyDialog(dialog);
    --gLiveDialogs;
}

int KV_ExecuteDialog(KV_Dialog* iDialog) {
    Dialog* dialog = DialogOf(iDialog);
    DialogRunner* runner = CurrentDialogRunner();
    if (dialog == nullptr || runner == nullptr) return 0;
    try {
        RedrawControls(*dialog, true);
        return runner->Run(*dialog) ? 1 : 0;
    } catch (...) {
        KeepRunnerFailure(std::current_exception());
        return 0;
    }
}

KV_Dialog* KV_GetControlDialog(const KV_Control* iControl) {
    Control* control = ControlOf(iControl);
    return control == nullptr ? nullptr : &control->dialog->handle;
}

void KV_SetDialogTitle(KV_Dialog* ioDialog, const char* iTitle) {
    Dialog* dialog = DialogOf(ioDialog);
    if (dialog == nullptr || iTitle == nullptr) return;
    try {
        dialog->layout.title = iTitle;
    } catch (...) {
    }
}

void KV_GetDialogSize(const KV_Dialog* iDialog, int* oWidth, int* oHeight) {
    const Dialog* dialog = DialogOf(iDialog);
    if (dialog == nullptr) return;
    if (oWidth != nullptr) *oWidth = dialog->layout.width;
    if (oHeight != nullptr) *oHeight = dialog->layout.height;
}

// ---- Controls ----

KV_Control* KV_FindControlByID(const KV_Dialog* iDialog, int iControlID) {
    Dialog* dialog = DialogOf(iDialog);
    Control* control = dialog == nullptr ? nullptr : FindControl(*dialog, iControlID);
    return control == nullptr ? nullptr : &control->handle;
}

KV_Control* KV_FindControlByIndex(const KV_Dialog* iDialog, int iIndex) {
    Dialog* dialog = DialogOf(iDialog);
    if (dialog == nullptr || iIndex < 0 || size_t(iIndex) >= dialog->controls.size()) return nullptr;
    return &dialog->controls[size_t(iIndex)].handle;
}

int KV_CountControls(const KV_Dialog* iDialog) {
    const Dialog* dialog = DialogOf(iDialog);
    return dialog == nullptr ? 0 : int(dialog->controls.size());
}

int KV_GetControlID(const KV_Control* iControl) {
    const Control* control = ControlOf(iControl);
    return control == nullptr ? 0 : control->id();
}

void KV_InvalControl(KV_Control* iControl) {
    if (Control* control = ControlOf(iControl)) control->needsDraw = true;
}

KV_ControlType KV_GetControlType(const KV_Control* iControl) {
    const Control* control = ControlOf(iControl);
    return control == nullptr ? cKV_NoControlType : control->type();
}

void KV_GetControlBounds(const KV_Control* iControl, KV_Rect* oBounds) {
    const Control* control = ControlOf(iControl);
    if (control != nullptr && oBounds != nullptr) *oBounds = control->item.bounds;
}

int KV_GetControlValue(const KV_Control* iControl) {
    const Control* control = ControlOf(iControl);
    return control == nullptr ? 0 : control->value;
}

void KV_SetControlValue(KV_Control* ioControl, int iNewValue) {
    if (Control* control = ControlOf(ioControl)) control->value = iNewValue;
}

void KV_SetKeyControl(KV_Control* iControl) {
    if (Control* control = ControlOf(iControl)) control->dialog->keyControl = control;
}

KV_Control* KV_GetKeyControl(const KV_Dialog* iDialog) {
    const Dialog* dialog = DialogOf(iDialog);
    return dialog == nullptr || dialog->keyControl == nullptr ? nullptr : &dialog->keyControl->handle;
}

void KV_SetControlVisible(KV_Control* ioControl, int iVisible) {
    if (Control* control = ControlOf(ioControl)) control->visible = iVisible != 0;
}

int KV_GetControlVisible(const KV_Control* iControl) {
    const Control* control = ControlOf(iControl);
    return control != nullptr && control->visible ? 1 : 0;
}

void KV_SetControlEnable(KV_Control* ioControl, int iEnable) {
    if (Control* control = ControlOf(ioControl)) control->enabled = iEnable != 0;
}

int KV_GetControlEnable(const KV_Control* iControl) {
    const Control* control = ControlOf(iControl);
    return control != nullptr && control->enabled ? 1 : 0;
}

void KV_SetControlTitle(KV_Control* ioControl, const char* iTitle) {
    Control* control = ControlOf(ioControl);
    if (control == nullptr || iTitle == nullptr) return;
    try {
        control->item.title.assign(iTitle, strnlen(iTitle, 255));
    } catch (...) {
    }
}

int KV_GetControlTitleSize(const KV_Control* iControl) {
    const Control* control = ControlOf(iControl);
    return control == nullptr ? 0 : int(control->item.title.size());
}

void KV_GetControlTitle(const KV_Control* iControl, char* oTitle, int* ioNumChars) {
    if (const Control* control = ControlOf(iControl)) CopyText(control->item.title, oTitle, ioNumChars);
}

// ---- Edit texts ----

void KV_SetEditTextString(KV_Control* ioControl, const char* iEditString) {
    Control* control = ControlOf(ioControl);
    if (control == nullptr || iEditString == nullptr) return;
    try {
        control->text.assign(iEditString, strnlen(iEditString, 255));
        control->selectionStart = control->selectionEnd = int(control->text.size());
    } catch (...) {
    }
}

int KV_GetEditTextStringSize(const KV_Control* iControl) {
    const Control* control = ControlOf(iControl);
    return control == nullptr ? 0 : int(control->text.size());
}

void KV_GetEditTextString(const KV_Control* iControl, char* oText, int* ioNumChars) {
    if (const Control* control = ControlOf(iControl)) CopyText(control->text, oText, ioNumChars);
}

// The selection is kept within the text; an end beyond it (0 ... 10000 selects everything) stops
// at the text's end.
void KV_SetEditTextSelection(KV_Control* ioControl, int iSelectionStart, int iSelectionEnd) {
    Control* control = ControlOf(ioControl);
    if (control == nullptr) return;
    const int length = int(control->text.size());
    control->selectionStart = std::clamp(iSelectionStart, 0, length);
    control->selectionEnd = std::clamp(iSelectionEnd, control->selectionStart, length);
}

void KV_GetEditTextSelection(const KV_Control* iControl, int* oSelectionStart, int* oSelectionEnd) {
    const Control* control = ControlOf(iControl);
    if (control == nullptr) return;
    if (oSelectionStart != nullptr) *oSelectionStart = control->selectionStart;
    if (oSelectionEnd != nullptr) *oSelectionEnd = control->selectionEnd;
}

// ---- Colour buttons, mouse tracking, callbacks ----

void KV_GetColorButtonColor(const KV_Control* iControl, int* oRed, int* oGreen, int* oBlue, int* oAlpha) {
    const Control* control = ControlOf(iControl);
    if (control == nullptr) return;
    int* outs[] = {oRed, oGreen, oBlue, oAlpha};
    for (size_t i = 0; i < 4; ++i) {
        if (outs[i] != nullptr) *outs[i] = control->color[i];
    }
}

void KV_SetColorButtonColor(KV_Control* ioControl, int iRed, int iGreen, int iBlue, int iAlpha) {
    Control* control = ControlOf(ioControl);
    if (control == nullptr) return;
    control->color = {std::clamp(iRed, 0, 255), std::clamp(iGreen, 0, 255), std::clamp(iBlue, 0, 255), std::clamp(iAlpha, 0, 255)};
}

int KV_TrackMouseDown(const KV_Control* iControl, int* oMouseX, int* oMouseY) {
    Control* control = ControlOf(iControl);
    DialogRunner* runner = CurrentDialogRunner();
    if (control == nullptr || runner == nullptr) return 0;
    int x = oMouseX != nullptr ? *oMouseX : 0;
    int y = oMouseY != nullptr ? *oMouseY : 0;
    bool down = false;
    try {
        down = runner->TrackMouse(*control, &x, &y);
    } catch (...) {
        KeepRunnerFailure(std::current_exception());
        down = false;
    }
    if (oMouseX != nullptr) *oMouseX = x;
    if (oMouseY != nullptr) *oMouseY = y;
    return down ? 1 : 0;
}

void KV_SetControlHitFunction(KV_Control* ioControl, KV_ControlHitFunction iFunction) {
    if (Control* control = ControlOf(ioControl)) control->hit = iFunction;
}

void KV_SetUserControlDraw(KV_Control* ioControl, KV_UserDrawFunction iFunction) {
    if (Control* control = ControlOf(ioControl)) control->draw = iFunction;
}

void KV_SetUserControlClick(KV_Control* ioControl, KV_UserClickFunction iFunction) {
    if (Control* control = ControlOf(ioControl)) control->click = iFunction;
}
