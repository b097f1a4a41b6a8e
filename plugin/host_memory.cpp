#include "host_memory.h"

#include "globals.h"

int32_t CallHostRecord(IFFType selector, int32_t size, void* record) {
    if (sTheHostProc == nullptr) return kIncompatibleRecord;
    *static_cast<void**>(record) = sTheHostReference;
    return sTheHostProc(selector, size, record);
}

int32_t GetFreeSize(int32_t* theResult) {
    HostFreeRec rec{};
    *theResult = CallHost(kHostFree, &rec);
    return *theResult == kNoError ? rec.theFreeSize : 0;
}

void AllocateMemory(int32_t* theResult) {
    HostAllocateRec rec{};
    rec.theControlData = sTheControlData;
    rec.theControlDataSize = sTheControlDataSize;
    rec.thePluginData = sThePluginData;
    rec.thePluginDataSize = sThePluginDataSize;
    const int32_t wantedControl = rec.theControlDataSize;
    const int32_t wantedPlugin = rec.thePluginDataSize;
    *theResult = CallHost(kHostAllocate, &rec);
    sTheControlData = rec.theControlData;
    sTheControlDataSize = rec.theControlDataSize;
    sThePluginData = rec.thePluginData;
    sThePluginDataSize = rec.thePluginDataSize;
    // A host that answers success but hands back less than was asked for (or no block at all)
    // would have the plug-in write past its blocks: treat that as the memory failure it is.
    const bool controlShort = wantedControl > 0 && (sTheControlData == nullptr || sTheControlDataSize < wantedControl);
    const bool pluginShort = wantedPlugin > 0 && (sThePluginData == nullptr || sThePluginDataSize < wantedPlugin);
    if (*theResult == kNoError && (controlShort || pluginShort)) *theResult = kMemoryError;
}
