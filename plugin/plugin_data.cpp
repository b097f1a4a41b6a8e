// Validation and sizing of the two host records. The working record is sized by taking
// everything and shrinking: grown to all the memory the host says is free, filled, and shrunk to
// what was used. In the steady state (same flare, colours current) no host call is made.
#include "plugin_data.h"

#include <cmath>
#include <cstring>

#include "control_data.h"
#include "flare_layout.h"
#include "flare_table.h"
#include "globals.h"
#include "host_memory.h"

namespace {

constexpr int32_t F = kPluginDataFixedSize;

PluginDataRec* HostData() { return reinterpret_cast<PluginDataRec*>(sThePluginData); }

bool HostDataHasFixedPart() { return sThePluginData != nullptr && sThePluginDataSize >= F; }

// The fixed part is intact: the sizes it records are consistent and lie inside the host's block.
bool DataIsStructurallyValid(bool setPluginData) {
    if (setPluginData || !HostDataHasFixedPart()) return false;
    const PluginDataRec* data = HostData();
    return data->flareElementSize >= F && data->flareDataSize >= data->flareElementSize;
}

void FillLookupTable(LookupElement* table) {
    for (int32_t i = 0; i < kLookupEntries; ++i) {
        // exp(-d^1.5) with d = 3i/1024, as exp(-exp(1.5 ln d)): entry 0 comes out exactly 1.
        const double d = double(i) / 341.3333333333333;
        table[i].value = float(std::exp(-std::exp(1.5 * std::log(d))));
        table[i].index = float(i);
    }
}

}  // namespace

int32_t RoundSize(int32_t size) {
    // Rounded in 64 bits: a size near the 32-bit limit is held at the largest multiple of 8.
    const int64_t rounded = (int64_t(size) + 7) & ~int64_t(7);
    return rounded > INT32_MAX ? (INT32_MAX & ~7) : int32_t(rounded);
}

RingElement* RingAt(PluginDataRec* theData, int32_t offset) {
    const int64_t end = int64_t(offset) + int64_t(sizeof(RingElement));
    if (offset < F || end > theData->flareElementSize) return nullptr;
    return TailRecord<RingElement>(theData, offset);
}

ControlDataRec* LiveControl() { return reinterpret_cast<ControlDataRec*>(sTheControlData); }
PluginDataRec* LiveData() { return HostData(); }

void DefaultData(PluginDataRec* theData) {
    std::memset(static_cast<void*>(theData), 0, sizeof(PluginDataRec));
    theData->flareXScale = 1.0f;
    theData->flareYScale = 1.0f;
    theData->flareLightIntensity = 1.0f;
    theData->flareHostProc = sTheHostProc;
    theData->flareHostReference = sTheHostReference;
    theData->flareLightColor = ARGB{0xFF, 0xFF, 0xFF, 0xFF};
    theData->flareElementSize = F;
    theData->flareDataSize = F;
    theData->flareReset = 1;
    FillLookupTable(theData->flareLookup);
}

void CheckPluginData(bool setPluginData, bool resetPluginData, int32_t* theResult) {
    PluginDataRec theDataRec;
    bool setPluginColors;
    if (DataIsStructurallyValid(setPluginData)) {
        std::memcpy(static_cast<void*>(&theDataRec), sThePluginData, sizeof(theDataRec));
        // The record must span exactly the host's block: a block of another size, or one smaller
        // than the data the record claims, means the record is rebuilt.
        resetPluginData = resetPluginData || RoundSize(theDataRec.flareDataSize) != RoundSize(sThePluginDataSize) ||
                          theDataRec.flareDataSize > sThePluginDataSize;
        setPluginColors = resetPluginData || theDataRec.flareReset != 0;
    } else {
        DefaultData(&theDataRec);
        resetPluginData = true;
        setPluginColors = true;
    }

    int32_t newPluginDataSize;
    if (!resetPluginData && !setPluginColors && theDataRec.flareDataSize > F) {
        newPluginDataSize = theDataRec.flareDataSize;
    } else {
        newPluginDataSize = GetFreeSize(theResult);
        if (*theResult == kNoError && newPluginDataSize <= F) *theResult = kMemoryError;
        else setPluginColors = true;
    }

    newPluginDataSize = RoundSize(newPluginDataSize);
    if (*theResult == kNoError &&
        (newPluginDataSize != RoundSize(sThePluginDataSize) || sThePluginDataSize < newPluginDataSize)) {
        sThePluginDataSize = newPluginDataSize;
        AllocateMemory(theResult);
        setPluginColors = true;
    }

    if (*theResult == kNoError && resetPluginData) {
        OpenTheResource(theResult);
        if (*theResult == kNoError) {
            std::memcpy(sThePluginData, static_cast<const void*>(&theDataRec), sizeof(theDataRec));
            HostData()->flareElementSize = F;
            HostData()->flareDataSize = newPluginDataSize;
            *theResult = ReadFlareElements(HostData(), resourceFile);
        }
    }

    if (*theResult == kNoError && setPluginColors) {
        PluginDataRec* data = HostData();
        data->flareDataSize = newPluginDataSize;
        data->flareReset = 0;
        *theResult = CalcFlareInfo(LiveControl(), data);
        if (*theResult == kNoError && RoundSize(data->flareDataSize) != RoundSize(sThePluginDataSize)) {
            sThePluginDataSize = RoundSize(data->flareDataSize);
            AllocateMemory(theResult);
        }
    }
}

int32_t CheckData(bool setControlData, bool setPluginData) {
    int32_t result = kNoError;
    bool resetPluginData = setPluginData;
    CheckControlData(setControlData, &resetPluginData, &result);
    if (result == kNoError) CheckPluginData(setPluginData, resetPluginData, &result);
    return result;
}

void ResetFlareColors() {
    if (!HostDataHasFixedPart()) return;
    HostData()->flareReset = 1;
}

void ResetFlareElements() {
    if (!HostDataHasFixedPart()) return;
    PluginDataRec* data = HostData();
    data->flareReset = 1;
    data->flareRingCount = 0;
    data->flareStreakCount = 0;
    data->flareElementSize = F;
    data->flareDataSize = F;
}
