#include "dialog.h"

#include <cstring>
#include <initializer_list>

#include "channels.h"
#include "commands.h"
#include "flare_table.h"
#include "globals.h"
#include "kit/dialog_items.h"
#include "kit/host_services.h"
#include "plugin_data.h"
#include "preview.h"

namespace {

constexpr int kSettingsDialogID = 16001;
constexpr int kFollowLightSizeBox = 5;       // flag bit 22
constexpr int kFirstFlagBox = 6;             // IDs 6..13 show flag bits 31..24
constexpr int kLastFlagBox = 13;
constexpr int kRingColorButton = 21;
constexpr int kStarFilterPopUp = 22;
constexpr int kPreviewControl = 24;
constexpr int kPaintedPreviewBox = 26;       // flag bit 23, inverted
constexpr int kFollowLightSizeBit = 22;
constexpr int kWireframeBit = 23;
constexpr short kRealDigits = 8;

// The state of the one open dialog, set afresh each time it opens.
RGB_Color ringColor;                 // 16 bits a component, as the colour button last reported it
unsigned char sResetElementsFlag;    // an edit needs the flare's elements rebuilt
unsigned char sResetColorsFlag;      // an edit needs the colour tables rebuilt
ControlDataRec saveControl;          // the record as it was when the dialog opened

struct RealField {
    int id;
    double ControlDataRec::*field;
};

// In the order the fields are shown and read.
constexpr RealField kRealFields[] = {
    {25, &ControlDataRec::flareAnamorphicFactor}, {14, &ControlDataRec::flareRingSize},
    {15, &ControlDataRec::flareStarRotation},     {17, &ControlDataRec::flareIntensity},
    {16, &ControlDataRec::flareDissolve},         {18, &ControlDataRec::flareStreakDensity},
    {19, &ControlDataRec::flareStreakIntensity},  {20, &ControlDataRec::flareStreakSharpness},
};

int FlagBitOfBox(int id) { return 31 - (id - kFirstFlagBox); }

int BitOf(uint32_t flags, int bit) { return int((flags >> bit) & 1u); }

void ShowControls(KV_Dialog* dialog, ControlDataRec* control) {
    for (const RealField& real : kRealFields) SetTheIReal(dialog, real.id, control->*real.field, kRealDigits);
    SelectItem(dialog, kRealFields[0].id);
    SetTheIPopUp(dialog, kStarFilterPopUp, int16_t(control->flareStarFilter));
    for (int id = kFirstFlagBox; id <= kLastFlagBox; ++id) SetButton(dialog, id, BitOf(control->flareFlags, FlagBitOfBox(id)));
    SetButton(dialog, kFollowLightSizeBox, BitOf(control->flareFlags, kFollowLightSizeBit));
    ringColor = {control->flareRingColor.red, control->flareRingColor.green, control->flareRingColor.blue};
    SetColorButtonColor(dialog, kRingColorButton, &ringColor);
    previewWireframeFlag = BitOf(control->flareFlags, kWireframeBit) != 0;
    SetButton(dialog, kPaintedPreviewBox, previewWireframeFlag ? 0 : 1);
}

// Only now, after every value was shown, so that showing them fires nothing.
void InstallHitFunctions(KV_Dialog* dialog) {
    for (int id = kFollowLightSizeBox; id <= 20; ++id) SetControlIDHitFunction(dialog, id, AllPowerfulCallback);
    SetControlIDHitFunction(dialog, kRingColorButton, RingColorCallback);
    for (int id : {kStarFilterPopUp, kPreviewControl, 25, kPaintedPreviewBox})
        SetControlIDHitFunction(dialog, id, AllPowerfulCallback);
}

// OK: the record already holds the edits; rebuild what they need.
void SettleAccepted(int32_t* result) {
    if (sResetElementsFlag != 0) {
        ResetFlareElements();
        int32_t resetResult = kNoError;
        SendHostResetChannel(&resetResult);
        if (*result == kNoError) *result = resetResult;
        if (*result == kNoError) *result = CheckData(false, true);
    } else if (sResetColorsFlag != 0) {
        ResetFlareColors();
        if (*result == kNoError) *result = CheckData(false, false);
    }
}

// Cancel: every field back as it was, but the preview mode chosen in the dialog survives.
void SettleCancelled(int32_t* result) {
    ControlDataRec* control = LiveControl();
    std::memcpy(static_cast<void*>(control), &saveControl, sizeof(ControlDataRec));
    SetFlag(&control->flareFlags, kWireframeBit, previewWireframeFlag ? 1 : 0);
    if (*result == kNoError) *result = kUserCanceled;
}

}  // namespace

int32_t DoInterface(int32_t theSize, void*) {
    int32_t result = kNoError;
    if (theSize < int32_t(sizeof(PluginInterfaceRec)) || sTheControlData == nullptr ||
        sTheControlDataSize < int32_t(sizeof(ControlDataRec)))
        result = kIncompatibleRecord;
    else
        result = CheckData(false, false);
    if (result == kNoError) OpenTheResource(&result);
    if (result != kNoError) return result;
    KV_Dialog* dialog = KV_MakeDialog(resourceFile, kSettingsDialogID);
    if (dialog == nullptr) return result;

    std::memcpy(&saveControl, sTheControlData, sizeof(ControlDataRec));
    sResetElementsFlag = 0;
    sResetColorsFlag = 0;
    ShowControls(dialog, LiveControl());
    SetUserControlIDFunctions(dialog, kPreviewControl, PreviewWindow, PreviewHitFunction);
    InitPreview(dialog, kPreviewControl);
    result = SetupPreview();
    InstallHitFunctions(dialog);

    const bool dialogAccepted = KV_ExecuteDialog(dialog) != 0;
    FinishPreview();
    if (dialogAccepted) SettleAccepted(&result);
    else SettleCancelled(&result);
    KV_DestroyDialog(dialog);
    return result;
}

void UpdateControlParameters(KV_Dialog* theDialog, unsigned char* theResetElementsFlag,
                             unsigned char* theResetColorsFlag, int32_t* result) {
    unsigned char resetElementsFlag = 0, resetColorsFlag = 0, resetPreviewFlag = 0;
    ControlDataRec* control = LiveControl();
    for (const RealField& real : kRealFields)
        SetDouble(&(control->*real.field), GetTheIReal(theDialog, real.id), &resetColorsFlag);
    for (int id = kFirstFlagBox; id <= kLastFlagBox; ++id)
        SetBooleanFlag(&control->flareFlags, FlagBitOfBox(id), (unsigned char)GetButton(theDialog, id), &resetColorsFlag);
    SetBooleanFlag(&control->flareFlags, kFollowLightSizeBit, (unsigned char)GetButton(theDialog, kFollowLightSizeBox),
                   &resetColorsFlag);

    RGB_Color local = {control->flareRingColor.red, control->flareRingColor.green, control->flareRingColor.blue};
    SetRGBColor(&local, &ringColor, &resetColorsFlag);
    control->flareRingColor.red = local.red;
    control->flareRingColor.green = local.green;
    control->flareRingColor.blue = local.blue;

    SetLongInt(&control->flareStarFilter, GetTheIPopUp(theDialog, kStarFilterPopUp), &resetElementsFlag);
    previewWireframeFlag = GetButton(theDialog, kPaintedPreviewBox) == 0;
    SetBooleanFlag(&control->flareFlags, kWireframeBit, previewWireframeFlag ? 1 : 0, &resetPreviewFlag);

    if (control->flareDissolve < 0.0) control->flareDissolve = 0.0;
    else if (control->flareDissolve > 1.0) control->flareDissolve = 1.0;

    if (*result == kNoError) {
        if (resetElementsFlag != 0) ResetFlareElements();
        else if (resetColorsFlag != 0) ResetFlareColors();
        if (resetElementsFlag != 0 || resetColorsFlag != 0 || resetPreviewFlag != 0) *result = SetupPreview();
    }
    *theResetElementsFlag |= resetElementsFlag;
    *theResetColorsFlag |= resetColorsFlag;
}

void AllPowerfulCallback(KV_Control* iControl, KV_DrawContext*) {
    KV_Dialog* dialog = KV_GetControlDialog(iControl);
    int32_t result = kNoError;
    UpdateControlParameters(dialog, &sResetElementsFlag, &sResetColorsFlag, &result);
    if (KV_Control* preview = KV_FindControlByID(dialog, kPreviewControl)) KV_InvalControl(preview);
}

void RingColorCallback(KV_Control* iControl, KV_DrawContext* iContext) {
    int red = 0, green = 0, blue = 0;
    KV_GetColorButtonColor(iControl, &red, &green, &blue, nullptr);
    ringColor.red = int16_t(red * 257);
    ringColor.green = int16_t(green * 257);
    ringColor.blue = int16_t(blue * 257);
    AllPowerfulCallback(iControl, iContext);
}

void SetColorButtonColor(KV_Dialog* iDialog, int iColorButtonID, const RGB_Color* iColor) {
    const ARGB argb = {255, uint8_t(uint16_t(iColor->red) >> 8), uint8_t(uint16_t(iColor->green) >> 8),
                       uint8_t(uint16_t(iColor->blue) >> 8)};
    SetColorButtonIDARGB(iDialog, iColorButtonID, &argb);
}
