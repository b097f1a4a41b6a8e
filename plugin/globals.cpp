#include "globals.h"

#include "kit/dialog_items.h"
#include "kit/host_services.h"

uint8_t* sTheControlData = nullptr;
int32_t sTheControlDataSize = 0;
uint8_t* sThePluginData = nullptr;
int32_t sThePluginDataSize = 0;
KVPluginRoutine sTheHostProc = nullptr;
void* sTheHostReference = nullptr;

IFFType globalValidation1 = 0;
IFFType globalValidation2 = 0;
KV_ResourceFile* resourceFile = nullptr;

void InitGlobals(bool initFlag) {
    if (!initFlag && globalValidation1 == kGlobalValidation1 && globalValidation2 == kGlobalValidation2) {
        resourceFile = nullptr;
        return;
    }
    globalValidation1 = kGlobalValidation1;
    globalValidation2 = kGlobalValidation2;
    InitUtils();
    resourceFile = nullptr;
}

void CloseTheResource() {
    if (resourceFile == nullptr) return;
    KV_CloseResourceFile(resourceFile);
    resourceFile = nullptr;
}

void TakeHeader(const PluginInfoRec* theInfo) {
    const PluginInfoRec none{};
    const PluginInfoRec& header = theInfo != nullptr ? *theInfo : none;
    // A record without a block has no size, whatever the header says; so nothing is ever
    // read from or written to a null record.
    sTheControlData = header.theControlData;
    sTheControlDataSize = header.theControlData != nullptr ? header.theControlDataSize : 0;
    sThePluginData = header.thePluginData;
    sThePluginDataSize = header.thePluginData != nullptr ? header.thePluginDataSize : 0;
    sTheHostReference = header.theHostReference;
    sTheHostProc = header.theHostProc;
}
