// The plug-in's flare table and layout as they stand: the table reader and the layout are not
// built yet, so no file is opened, no element is loaded and nothing is laid out. The working
// record stays valid and empty, and every command that needs it behaves as for an empty flare.
#include "flare_seams.h"

#include "globals.h"

void OpenTheResource(int32_t*) {}

int32_t ReadFlareElements(PluginDataRec* theData, KV_ResourceFile*) {
    theData->flareRingCount = 0;
    theData->flareRingFirst = 0;
    theData->flareDataSize = theData->flareElementSize;
    return kNoError;
}

int32_t CalcFlareInfo(ControlDataRec*, PluginDataRec* theData) {
    theData->flareStreakCount = 0;
    theData->flareStreakFirst = 0;
    theData->flareDataSize = theData->flareElementSize;
    return kNoError;
}
