#include "support/fake_flare_seams.h"

#include <cstring>

#include "kit/dialog_items.h"
#include "plugin/flare_layout.h"
#include "plugin/flare_table.h"
#include "plugin/globals.h"

namespace {
FakeFlare gFake;
}

FakeFlare& Fake() { return gFake; }
void ResetFake() { gFake = FakeFlare{}; }

void OpenTheResource(int32_t* theResult) {
    if (*theResult != kNoError) return;
    ++gFake.opens;
    *theResult = gFake.openResult;
    // Opened through the host's service, as the real table is: a host that provides one is
    // told to close it again after the command.
    if (*theResult == kNoError && resourceFile == nullptr) resourceFile = OpenResourceFile("Vellux.rsc");
}

int32_t ReadFlareElements(PluginDataRec* theData, KV_ResourceFile*) {
    ++gFake.reads;
    theData->flareRingCount = 0;
    theData->flareRingFirst = 0;
    int32_t base = theData->flareElementSize;
    RingElement* previous = nullptr;
    int32_t result = kNoError;
    for (int32_t i = 0; i < gFake.ringCount; ++i) {
        if (theData->flareDataSize - base < int32_t(sizeof(RingElement))) {
            result = kMemoryError;
            break;
        }
        auto* ring = TailRecord<RingElement>(theData, base);
        std::memset(static_cast<void*>(ring), 0, sizeof(RingElement));
        ring->ringType = 1 + i % 4;
        ring->ringOuter = 0.1f;
        if (previous != nullptr) previous->ringNext = base;
        else theData->flareRingFirst = base;
        ++theData->flareRingCount;
        previous = ring;
        base += int32_t(sizeof(RingElement));
    }
    theData->flareElementSize = theData->flareDataSize = base;
    return result != kNoError ? result : gFake.readResult;
}

int32_t CalcFlareInfo(ControlDataRec*, PluginDataRec* theData) {
    ++gFake.layouts;
    const int32_t base = theData->flareElementSize;
    theData->flareStreakCount = 0;
    theData->flareStreakFirst = 0;
    if (theData->flareDataSize - base < gFake.layoutBytes) {
        theData->flareDataSize = base;
        return kMemoryError;
    }
    std::memset(reinterpret_cast<uint8_t*>(theData) + base, 0x5A, size_t(gFake.layoutBytes));
    theData->flareStreakCount = gFake.streakCount;
    theData->flareDataSize = base + gFake.layoutBytes;
    return kNoError;
}
