// The layout as it stands: not built yet, so nothing is laid out. The elements stay loaded and
// every element and streak counts as not drawn.
#include "flare_layout.h"

int32_t CalcFlareInfo(ControlDataRec*, PluginDataRec* theData) {
    theData->flareStreakCount = 0;
    theData->flareStreakFirst = 0;
    theData->flareDataSize = theData->flareElementSize;
    return kNoError;
}
