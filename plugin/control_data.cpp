#include "control_data.h"

#include <cstring>
#include <initializer_list>

#include "channels.h"
#include "globals.h"
#include "host_memory.h"
#include "kit/byte_order.h"
#include "plugin_data.h"

namespace {

constexpr int32_t kControlSize = int32_t(sizeof(ControlDataRec));
constexpr IFFType kReversedOwner = MakeIFF("XULV");
constexpr int32_t kReversedVersion = 0x01000000;

struct ControlHeader {
    IFFType ownerType;
    int32_t ownerVersion;
};

bool ControlIsValid(bool setControlData, ControlHeader* header) {
    if (setControlData || sTheControlData == nullptr) return false;
    if (sTheControlDataSize < int32_t(sizeof(ControlHeader))) return false;
    std::memcpy(header, sTheControlData, sizeof(ControlHeader));
    if (header->ownerType != kVelluxOwner && header->ownerType != kReversedOwner) return false;
    if (sTheControlDataSize < kControlSize) return false;
    return header->ownerVersion == kVelluxVersion || header->ownerVersion == kReversedVersion;
}

// Marks the working record invalid, so that it is rebuilt from its defaults.
void InvalidatePluginData() {
    if (sThePluginData == nullptr || sThePluginDataSize < kPluginDataFixedSize) return;
    reinterpret_cast<PluginDataRec*>(sThePluginData)->flareDataSize = 0;
}

}  // namespace

void DefaultControl(ControlDataPtr theControl) {
    *theControl = ControlDataRec{};
    theControl->ownerType = kVelluxOwner;
    theControl->ownerVersion = kVelluxVersion;
    theControl->flareIntensity = 0.5;
    theControl->flareDissolve = 0.0;
    theControl->flareAnamorphicFactor = 1.77;
    theControl->flareRingSize = 0.22;
    theControl->flareStarRotation = 0.0;
    theControl->flareStreakDensity = 50.0;
    theControl->flareStreakIntensity = 0.03;
    theControl->flareStreakSharpness = 6.0;
    theControl->flareRingColor = ARGB_Color{int16_t(-1), 0x5050, 0x1414, 0x0A0A};
    theControl->flareFlags = 0x7B000000u;
    theControl->flareStarFilter = 0;
}

void FixControl(ControlDataPtr theControl) {
    theControl->ownerType = kVelluxOwner;
    theControl->ownerVersion = kVelluxVersion;
    double* doubles[] = {&theControl->flareIntensity,       &theControl->flareDissolve,
                         &theControl->flareAnamorphicFactor, &theControl->flareRingSize,
                         &theControl->flareStarRotation,     &theControl->flareStreakDensity,
                         &theControl->flareStreakIntensity,  &theControl->flareStreakSharpness};
    for (double* field : doubles) ReverseField(field, int32_t(sizeof(double)));
    ARGB_Color& color = theControl->flareRingColor;
    for (int16_t* component : {&color.alpha, &color.red, &color.green, &color.blue})
        ReverseField(component, int32_t(sizeof(int16_t)));
    ReverseField(&theControl->flareFlags, int32_t(sizeof(uint32_t)));
    ReverseField(&theControl->flareStarFilter, int32_t(sizeof(int32_t)));
}

void CheckControlData(bool setControlData, bool* resetPluginData, int32_t* theResult) {
    ControlDataRec local;
    ControlHeader header{};
    if (ControlIsValid(setControlData, &header)) {
        auto* host = reinterpret_cast<ControlDataRec*>(sTheControlData);
        if (header.ownerVersion == kReversedVersion) FixControl(host);
        std::memcpy(&local, host, sizeof(local));
    } else {
        DefaultControl(&local);
        SendHostResetChannel(theResult);
        InvalidatePluginData();
        setControlData = true;
        *resetPluginData = true;
    }
    // Rounded sizes are compared as the host rounds its blocks; a block reported smaller than
    // one record is resized all the same, so nothing is ever written past it.
    if (*theResult == kNoError &&
        (RoundSize(sTheControlDataSize) != kControlSize || sTheControlDataSize < kControlSize)) {
        sTheControlDataSize = kControlSize;
        AllocateMemory(theResult);
        setControlData = true;
    }
    if (*theResult == kNoError && setControlData) std::memcpy(sTheControlData, &local, sizeof(local));
}
