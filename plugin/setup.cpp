// SETF: the frame's camera and light go into the working record, then the flare is laid out anew.
#include <cmath>

#include "commands.h"
#include "flare_layout.h"
#include "globals.h"
#include "kit/rect.h"
#include "plugin_data.h"

// The flare's scale in pixels: the outer radius of the first white-glow element times the
// vertical frame scale; 0 when the flare has none.
float CalcFlareScale(PluginDataRec* theData) {
    const RingElement* ring = RingAt(theData, theData->flareRingFirst);
    for (int32_t i = 0; i < theData->flareRingCount && ring != nullptr; ++i) {
        if (ring->ringType == kWhiteGlow) return ring->ringOuter * theData->flareYScale;
        ring = RingAt(theData, ring->ringNext);
    }
    return 0.0f;
}

namespace {

// The glow follows the light's on-frame radius. Without a type-1 element (scale 0), or with a
// radius that gives no finite factor, the glow keeps its table size (factor 0).
float LightSizeFactor(PluginDataRec* theData, double frameRadius) {
    const float scale = CalcFlareScale(theData);
    if (scale == 0.0f) return 0.0f;
    const float factor = float(frameRadius / scale);
    return std::isfinite(factor) ? factor : 0.0f;
}

void TakeFrame(const PluginFlareSetupRec* theSetup, const ControlDataRec* theControl, PluginDataRec* theData) {
    theData->flareHostProc = sTheHostProc;
    theData->flareHostReference = sTheHostReference;
    const L_Rect frame = theSetup->theFrameRect;
    SetLRect(&theData->flareRect, frame.left, frame.top, frame.right, frame.bottom);
    theData->flareXScale = float(theSetup->theFrameXScale);
    theData->flareYScale = float(theSetup->theFrameYScale);
    theData->flareXCenter = float(theSetup->theFrameXCenter);
    theData->flareYCenter = float(theSetup->theFrameYCenter);
    theData->flareXPosition = float(theSetup->theLightFramePosition.x);
    theData->flareYPosition = float(theSetup->theLightFramePosition.y);
    theData->flareLightColor = theSetup->theLightColor;
    theData->flareLightIntensity = float(theSetup->theLightIntensity);
    theData->flareLightSize = (theControl->flareFlags & kFlagFollowLightSize) != 0
                                  ? LightSizeFactor(theData, theSetup->theLightFrameRadius)
                                  : 0.0f;
    VelluxBuffer& buffer = theData->flarePixelBuffer;
    buffer.bufferBase = nullptr;
    buffer.bufferRowBytes = int32_t(uint32_t(frame.width) * 6u);   // 48-bit pixels
    buffer.bufferRect = frame;
}

}  // namespace

int32_t DoSetup(int32_t theSize, void* theRec) {
    if (theSize < int32_t(sizeof(PluginFlareSetupRec)) || sTheHostProc == nullptr) return kIncompatibleRecord;
    const int32_t result = CheckData(false, false);
    if (result != kNoError) return result;
    TakeFrame(static_cast<const PluginFlareSetupRec*>(theRec), LiveControl(), LiveData());
    ResetFlareColors();
    return CheckData(false, false);
}
