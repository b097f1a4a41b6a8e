// The settings dialog (INTF): every setting of the persistent record in one modal dialog with a
// live preview. Each hit writes the controls back into the host's record at once, so the preview
// follows every edit; Cancel puts the record back as it was (all but the preview mode); OK keeps
// it and rebuilds what the edits need.
//
// Controls by ID: 5..13 check boxes (flag bits 22, 31..24), 14..20 and 25 real-number fields,
// 21 the ring colour button, 22 the star-filter pop-up, 24 the preview, 26 "painted preview"
// (flag bit 23, inverted). DoInterface itself is declared with the other commands (commands.h).
#ifndef VELLUX_PLUGIN_DIALOG_H
#define VELLUX_PLUGIN_DIALOG_H

#include <cstdint>

#include "kit/host_service_types.h"
#include "vellux/plugin_records.h"

// Reads every control into the live record; ORs what changed into the caller's flags. With
// *result 0 on entry it also resets the flare data the changes need and restarts the preview,
// whose set-up result it stores in *result.
void UpdateControlParameters(KV_Dialog* theDialog, unsigned char* theResetElementsFlag,
                             unsigned char* theResetColorsFlag, int32_t* result);

void AllPowerfulCallback(KV_Control* iControl, KV_DrawContext* iContext);   // hit of every control but 21
void RingColorCallback(KV_Control* iControl, KV_DrawContext* iContext);     // hit of the colour button
void SetColorButtonColor(KV_Dialog* iDialog, int iColorButtonID, const RGB_Color* iColor);

#endif  // VELLUX_PLUGIN_DIALOG_H
