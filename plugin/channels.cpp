#include "channels.h"

#include <cmath>
#include <cstddef>
#include <cstring>

#include "host_memory.h"
#include "kit/pstring.h"
#include "plugin_data.h"

namespace {

// One published channel: where its reference is kept and which setting it animates.
struct ChannelSpec {
    int32_t id;
    IFFType type;
    const char* name;
    std::ptrdiff_t value;                    // offset of the setting in ControlDataRec, or -1
    void* PluginDataRec::*reference;
};

constexpr std::ptrdiff_t kNoValue = -1;
constexpr int32_t kColorBytes = 3 * int32_t(sizeof(int16_t));

const ChannelSpec kChannels[] = {
    {1, kChannelLabel, "Lens Flare", kNoValue, &PluginDataRec::flareLabelChannel},
    {2, kChannelReal, "Intensity", offsetof(ControlDataRec, flareIntensity), &PluginDataRec::flareIntensityChannel},
    {3, kChannelReal, "Dissolve", offsetof(ControlDataRec, flareDissolve), &PluginDataRec::flareDissolveChannel},
    {4, kChannelReal, "Anamorphic Factor", offsetof(ControlDataRec, flareAnamorphicFactor),
     &PluginDataRec::flareAnamorphicFactorChannel},
    {5, kChannelReal, "Ring Size", offsetof(ControlDataRec, flareRingSize), &PluginDataRec::flareRingSizeChannel},
    {6, kChannelColor, "Ring Color", offsetof(ControlDataRec, flareRingColor) + offsetof(ARGB_Color, red),
     &PluginDataRec::flareRingColorChannel},
    {7, kChannelReal, "Star Rotation", offsetof(ControlDataRec, flareStarRotation),
     &PluginDataRec::flareStarRotationChannel},
    {8, kChannelReal, "Streak Density", offsetof(ControlDataRec, flareStreakDensity),
     &PluginDataRec::flareStreakDensityChannel},
    {9, kChannelReal, "Streak Intensity", offsetof(ControlDataRec, flareStreakIntensity),
     &PluginDataRec::flareStreakIntensityChannel},
    {10, kChannelReal, "Streak Sharpness", offsetof(ControlDataRec, flareStreakSharpness),
     &PluginDataRec::flareStreakSharpnessChannel},
    {11, kChannelEnd, "", kNoValue, &PluginDataRec::flareEndChannel},
};

bool IsValueChannel(const ChannelSpec& spec) { return spec.value != kNoValue; }

void* SettingOf(ControlDataRec* theControl, const ChannelSpec& spec) {
    return reinterpret_cast<uint8_t*>(theControl) + spec.value;
}

int32_t ValueSize(const ChannelSpec& spec) {
    return spec.type == kChannelColor ? kColorBytes : int32_t(sizeof(double));
}

bool HasNoFlare(const PluginDataRec* theData) { return theData->flareRingCount == 0 && theData->flareStreakCount == 0; }

// GCHN and SCHN records share their fields: which channel, at which frame.
template <typename Record>
Record ChannelRecord(void* theChannel, int32_t theID, IFFType theType, int32_t theFrame) {
    Record rec{};
    rec.theChannelReference = theChannel;
    rec.theChannelID = theID;
    rec.theChannelType = theType;
    rec.theChannelFrame = theFrame;
    return rec;
}

// The validation every channel command starts with: block size, then the records.
int32_t CheckChannelCommand(int32_t theSize, int32_t recordSize) {
    if (theSize < recordSize) return kIncompatibleRecord;
    return CheckData(false, false);
}

}  // namespace

void* AddChannel(int32_t theID, IFFType theType, const unsigned char* theName, void* theValue, void* minValue,
                 void* maxValue, int32_t* theResult) {
    if (*theResult != kNoError) return nullptr;
    HostAddChannelRec rec{};
    rec.theChannelID = theID;
    rec.theChannelType = theType;
    CopyPStr(rec.theChannelName, theName);
    rec.theChannelDefault = theValue;
    rec.theChannelMinimum = minValue;
    rec.theChannelMaximum = maxValue;
    *theResult = CallHost(kHostAddChannel, &rec);
    return *theResult == kNoError ? rec.theChannelReference : nullptr;
}

void GetChannel(void* theChannel, int32_t theID, IFFType theType, int32_t theFrame, void* theData, int32_t theSize,
                int32_t* theResult) {
    if (*theResult != kNoError || theChannel == nullptr) return;
    auto rec = ChannelRecord<HostGetChannelRec>(theChannel, theID, theType, theFrame);
    *theResult = CallHost(kHostGetChannel, &rec);
    if (*theResult != kNoError) return;
    if (rec.theChannelID == theID && rec.theChannelData != nullptr && rec.theChannelType == theType)
        std::memcpy(theData, rec.theChannelData, size_t(theSize));
    else
        *theResult = kIncompatibleRecord;
}

void SetChannel(void* theChannel, int32_t theID, IFFType theType, int32_t theFrame, void* theData,
                int32_t* theResult) {
    if (*theResult != kNoError || theChannel == nullptr) return;
    auto rec = ChannelRecord<HostSetChannelRec>(theChannel, theID, theType, theFrame);
    rec.theChannelData = theData;
    *theResult = CallHost(kHostSetChannel, &rec);
}

void SendHostResetChannel(int32_t* theResult) {
    HostResetChannelRec rec{};
    *theResult = CallHost(kHostResetChannel, &rec);
    if (*theResult == kUnsupportedCommand) *theResult = kNoError;
}

int32_t DoInitializeChannel(int32_t theSize, void*) {
    int32_t result = CheckChannelCommand(theSize, int32_t(sizeof(PluginInitializeChannelRec)));
    if (result != kNoError || HasNoFlare(LiveData())) return result;
    for (const ChannelSpec& spec : kChannels) {
        // The host may move the records while it creates a channel only through ALOC, which
        // channel calls never send; still, both records are fetched afresh for every call.
        void* value = IsValueChannel(spec) ? SettingOf(LiveControl(), spec) : nullptr;
        void* reference = AddChannel(spec.id, spec.type, PS(spec.name), value, nullptr, nullptr, &result);
        LiveData()->*spec.reference = reference;
    }
    return result;
}

int32_t DoUpdateChannel(int32_t theSize, void* theRec) {
    int32_t result = CheckChannelCommand(theSize, int32_t(sizeof(PluginUpdateChannelRec)));
    if (result != kNoError || HasNoFlare(LiveData())) return result;
    const auto* block = static_cast<const PluginUpdateChannelRec*>(theRec);
    // 64-bit frame counter: a range ending at the largest frame number must still end.
    for (int64_t frame = block->theStartFrame; frame <= block->theEndFrame && result == kNoError; ++frame) {
        for (const ChannelSpec& spec : kChannels) {
            if (!IsValueChannel(spec)) continue;
            SetChannel(LiveData()->*spec.reference, spec.id, spec.type, int32_t(frame), SettingOf(LiveControl(), spec),
                       &result);
        }
    }
    return result;
}

int32_t DoLoadChannel(int32_t theSize, void* theRec) {
    int32_t result = CheckChannelCommand(theSize, int32_t(sizeof(PluginLoadChannelRec)));
    if (result != kNoError || HasNoFlare(LiveData())) return result;
    if (LiveData()->flareLabelChannel == nullptr) return kOutOfSequence;
    const int32_t frame = static_cast<const PluginLoadChannelRec*>(theRec)->theFrame;
    for (const ChannelSpec& spec : kChannels) {
        if (!IsValueChannel(spec)) continue;
        GetChannel(LiveData()->*spec.reference, spec.id, spec.type, frame, SettingOf(LiveControl(), spec),
                   ValueSize(spec), &result);
    }
    // Dissolve limits every pixel's ceiling; an animated value outside 0..1 (or not a number at
    // all, which no comparison would catch) is brought back into range.
    double& dissolve = LiveControl()->flareDissolve;
    if (std::isnan(dissolve) || dissolve < 0.0) dissolve = 0.0;
    else if (dissolve > 1.0) dissolve = 1.0;
    return result;
}

int32_t DoFinishChannel(int32_t theSize, void*) {
    return theSize < int32_t(sizeof(PluginFinishChannelRec)) ? kIncompatibleRecord : kNoError;
}
