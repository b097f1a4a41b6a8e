// The host's dialog, control, drawing, image-buffer and rectangle services as C functions, for
// the host library and its tests (kit/host_services.h gives the same names to the plug-in's own
// forwarding entries, so the two headers never meet). Each is checked against the table
// kit/host_services.def at compile time.
//
// Services not listed here are not offered; a plug-in's lookup of them finds nothing and gets the
// neutral answer.
#ifndef VELLUX_HOST_DIALOG_SERVICES_PVT_H
#define VELLUX_HOST_DIALOG_SERVICES_PVT_H

#include <cstdint>
#include <exception>

#include "host/service_registry_pvt.h"
#include "kit/host_service_types.h"

extern "C" {
// ---- Dialogs ----
VELLUX_HOST_EXPORT KV_Dialog* KV_MakeDialog(KV_ResourceFile* iResourceFile, int iDialogID);
VELLUX_HOST_EXPORT void KV_DestroyDialog(KV_Dialog* iDialog);
VELLUX_HOST_EXPORT int KV_ExecuteDialog(KV_Dialog* iDialog);
VELLUX_HOST_EXPORT KV_Dialog* KV_GetControlDialog(const KV_Control* iControl);
VELLUX_HOST_EXPORT void KV_SetDialogTitle(KV_Dialog* ioDialog, const char* iTitle);
VELLUX_HOST_EXPORT void KV_GetDialogSize(const KV_Dialog* iDialog, int* oWidth, int* oHeight);

// ---- Controls ----
VELLUX_HOST_EXPORT KV_Control* KV_FindControlByID(const KV_Dialog* iDialog, int iControlID);
VELLUX_HOST_EXPORT KV_Control* KV_FindControlByIndex(const KV_Dialog* iDialog, int iIndex);
VELLUX_HOST_EXPORT int KV_CountControls(const KV_Dialog* iDialog);
VELLUX_HOST_EXPORT int KV_GetControlID(const KV_Control* iControl);
VELLUX_HOST_EXPORT void KV_InvalControl(KV_Control* iControl);
VELLUX_HOST_EXPORT KV_ControlType KV_GetControlType(const KV_Control* iControl);
VELLUX_HOST_EXPORT void KV_GetControlBounds(const KV_Control* iControl, KV_Rect* oBounds);
VELLUX_HOST_EXPORT int KV_GetControlValue(const KV_Control* iControl);
VELLUX_HOST_EXPORT void KV_SetControlValue(KV_Control* ioControl, int iNewValue);
VELLUX_HOST_EXPORT void KV_SetKeyControl(KV_Control* iControl);
VELLUX_HOST_EXPORT KV_Control* KV_GetKeyControl(const KV_Dialog* iDialog);
VELLUX_HOST_EXPORT void KV_SetControlVisible(KV_Control* ioControl, int iVisible);
VELLUX_HOST_EXPORT int KV_GetControlVisible(const KV_Control* iControl);
VELLUX_HOST_EXPORT void KV_SetControlEnable(KV_Control* ioControl, int iEnable);
VELLUX_HOST_EXPORT int KV_GetControlEnable(const KV_Control* iControl);
VELLUX_HOST_EXPORT void KV_SetControlTitle(KV_Control* ioControl, const char* iTitle);
VELLUX_HOST_EXPORT int KV_GetControlTitleSize(const KV_Control* iControl);
VELLUX_HOST_EXPORT void KV_GetControlTitle(const KV_Control* iControl, char* oTitle, int* ioNumChars);

// ---- Edit texts ----
VELLUX_HOST_EXPORT void KV_SetEditTextString(KV_Control* ioControl, const char* iEditString);
VELLUX_HOST_EXPORT int KV_GetEditTextStringSize(const KV_Control* iControl);
VELLUX_HOST_EXPORT void KV_GetEditTextString(const KV_Control* iControl, char* oText, int* ioNumChars);
VELLUX_HOST_EXPORT void KV_SetEditTextSelection(KV_Control* ioControl, int iSelectionStart, int iSelectionEnd);
VELLUX_HOST_EXPORT void KV_GetEditTextSelection(const KV_Control* iControl, int* oSelectionStart, int* oSelectionEnd);

// ---- Colour buttons, mouse tracking, callbacks ----
VELLUX_HOST_EXPORT void KV_GetColorButtonColor(const KV_Control* iControl, int* oRed, int* oGreen, int* oBlue, int* oAlpha);
VELLUX_HOST_EXPORT void KV_SetColorButtonColor(KV_Control* ioControl, int iRed, int iGreen, int iBlue, int iAlpha);
VELLUX_HOST_EXPORT int KV_TrackMouseDown(const KV_Control* iControl, int* oMouseX, int* oMouseY);
VELLUX_HOST_EXPORT void KV_SetControlHitFunction(KV_Control* ioControl, KV_ControlHitFunction iFunction);
VELLUX_HOST_EXPORT void KV_SetUserControlDraw(KV_Control* ioControl, KV_UserDrawFunction iFunction);
VELLUX_HOST_EXPORT void KV_SetUserControlClick(KV_Control* ioControl, KV_UserClickFunction iFunction);

// ---- Drawing ----
VELLUX_HOST_EXPORT void KV_FrameRect(KV_DrawContext* ioContext, const KV_Rect* iFrame);
VELLUX_HOST_EXPORT void KV_PaintRect(KV_DrawContext* ioContext, const KV_Rect* iRect);
VELLUX_HOST_EXPORT void KV_DrawImage(KV_DrawContext* ioContext, const KV_ImageBuffer* iImage, const KV_Rect* iSourceRect,
                                     const KV_Rect* iDestRect);
VELLUX_HOST_EXPORT void KV_SetForeColor(KV_DrawContext* ioContext, const KV_Color* iColor);
VELLUX_HOST_EXPORT void KV_GetForeColor(const KV_DrawContext* iContext, KV_Color* oColor);

// ---- Image buffers: 32-bit pixels, bytes alpha, red, green, blue ----
VELLUX_HOST_EXPORT KV_ImageBuffer* KV_MakeImageBuffer(const KV_Rect* iBounds);
VELLUX_HOST_EXPORT void KV_DestroyImageBuffer(KV_ImageBuffer* iImage);
VELLUX_HOST_EXPORT int KV_GetBufferRowBytes(const KV_ImageBuffer* iImage);
VELLUX_HOST_EXPORT uint8_t* KV_GetBufferBaseAddress(const KV_ImageBuffer* iImage);
VELLUX_HOST_EXPORT void KV_GetBufferBounds(const KV_ImageBuffer* iImage, KV_Rect* oRect);

// ---- Rectangles ----
VELLUX_HOST_EXPORT void KV_InsetRect(KV_Rect* ioRect, int iInsetX, int iInsetY);
VELLUX_HOST_EXPORT int KV_GetRectWidth(const KV_Rect* iRect);
VELLUX_HOST_EXPORT int KV_GetRectHeight(const KV_Rect* iRect);
}

namespace vellux::host {
// Image buffers not yet destroyed, for tests of the host's bookkeeping.
int LiveImageBuffers();
// Dialogs made and not yet destroyed.
int LiveDialogs();
// Keeps a failure of what the program installed (its dialog runner, its image backdrop) for
// TakeRunnerFailure; the first one kept wins.
void KeepRunnerFailure(std::exception_ptr failure);
}  // namespace vellux::host

#endif  // VELLUX_HOST_DIALOG_SERVICES_PVT_H
