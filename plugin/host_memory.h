// The host callback as the plug-in uses it for its records: FREE and ALOC.
#ifndef VELLUX_PLUGIN_HOST_MEMORY_H
#define VELLUX_PLUGIN_HOST_MEMORY_H

#include <cstdint>

#include "vellux/plugin_records.h"

// Sends a callback record (its first field receives the host reference). A missing callback is
// never called: the answer is then kIncompatibleRecord, as for a block without one.
template <typename Record>
int32_t CallHost(IFFType selector, Record* record);

int32_t CallHostRecord(IFFType selector, int32_t size, void* record);

template <typename Record>
int32_t CallHost(IFFType selector, Record* record) {
    return CallHostRecord(selector, int32_t(sizeof(Record)), record);
}

// FREE: the bytes the host can give the working record; 0 when the callback failed.
int32_t GetFreeSize(int32_t* theResult);

// ALOC: asks for sTheControlDataSize and sThePluginDataSize bytes and takes over the pointers
// and sizes the host writes back, whatever its answer.
void AllocateMemory(int32_t* theResult);

#endif  // VELLUX_PLUGIN_HOST_MEMORY_H
