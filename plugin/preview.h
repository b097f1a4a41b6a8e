// The settings dialog's live preview: the flare rendered for a synthetic frame the size of a user
// control, with the light where the artist last clicked or dragged in it, either painted (32-bit)
// or as the outline sketch, white on black.
//
// One preview at a time, owned by the dialog that is open: InitPreview and SetupPreview when it
// opens, then any number of draws (PreviewWindow), clicks (PreviewHitFunction) and SetupPreview
// calls after edits, and FinishPreview when it closes. A render always completes inside the call
// that started it; a finished preview is only copied on later draws.
#ifndef VELLUX_PLUGIN_PREVIEW_H
#define VELLUX_PLUGIN_PREVIEW_H

#include <cstdint>

#include "kit/host_service_types.h"

// Sketch (true) or painted (false) preview; the dialog keeps it in step with flag bit 23.
extern bool previewWireframeFlag;

void InitPreview(KV_Dialog* theDialog, int theItem);   // buffers made, light at (0.25, 0.25)
int32_t SetupPreview();                                // describes the frame, restarts the render
void UpdatePreview();                                  // renders the scan lines still to do
void FinishPreview();                                  // releases both buffers
void ErasePreview();                                   // every pixel 0

// The user control's draw and click functions.
void PreviewWindow(const KV_Control* iControl, KV_DrawContext* iContext);
int PreviewHitFunction(KV_Control* iControl, KV_DrawContext* iContext, int iModifierKeys, int iClickH, int iClickV);

#endif  // VELLUX_PLUGIN_PREVIEW_H
