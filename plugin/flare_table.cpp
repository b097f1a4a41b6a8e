#include "flare_table.h"

#include <bit>
#include <cstddef>
#include <cstring>

#include "color_ramps.h"
#include "globals.h"
#include "kit/byte_order.h"
#include "kit/dialog_items.h"
#include "kit/host_services.h"

static_assert(sizeof(FlareResRec) == 8, "a run of elements is 8 bytes in the file");
static_assert(sizeof(RingRes) == kRingResHeader, "the element header is 60 bytes in the file");
static_assert(offsetof(FlareInfoRec, flareElements) == 4, "runs follow the count");

namespace {

constexpr int32_t kStopSize = int32_t(sizeof(ElementColor));
constexpr int32_t kElementSize = int32_t(sizeof(RingElement));

// Big-endian to this machine's order.
template <typename T>
void FixField(T* field) {
    if constexpr (std::endian::native == std::endian::little) ReverseField(field, int32_t(sizeof(T)));
}

// A resource the host hands out, released on every path.
class HostResource {
public:
    HostResource(KV_ResourceFile* file, IFFType type, int16_t id) {
        bytes_ = static_cast<uint8_t*>(KV_GetResource(file, type, id, &size_));
        if (bytes_ == nullptr || size_ < 0) size_ = 0;
    }
    ~HostResource() {
        if (bytes_ != nullptr) KV_ReleaseResource(bytes_);
    }
    HostResource(const HostResource&) = delete;
    HostResource& operator=(const HostResource&) = delete;

    bool present() const { return bytes_ != nullptr; }
    int32_t size() const { return size_; }
    uint8_t* bytes() const { return bytes_; }

private:
    uint8_t* bytes_ = nullptr;
    int32_t size_ = 0;
};

int32_t StopBlockSize(int32_t stops) { return (stops * kStopSize + 7) & ~7; }

int32_t StopsKept(const RingRes* ring, int32_t resourceSize) {
    int32_t stops = (resourceSize - kRingResHeader) / kStopSize;
    if (ring->ringResColors < stops) stops = ring->ringResColors;
    return stops < 0 ? 0 : stops;
}

void LinkElement(PluginDataRec* theData, RingElement* previous, int32_t offset) {
    if (previous != nullptr) previous->ringNext = offset;
    else theData->flareRingFirst = offset;
    ++theData->flareRingCount;
}

// A table with units or an outer radius of 0 cannot be scaled: such an element loads (it keeps
// its place in the chain and its name) but is never drawn, and nothing infinite reaches the layout.
bool CanBeScaled(const RingRes* ring) { return ring->ringResUnits != 0 && ring->ringResOutside != 0; }

void FillElement(RingElement* element, const RingRes* ring, int32_t stops) {
    std::memset(static_cast<void*>(element), 0, sizeof(RingElement));
    // A name longer than the 31 bytes an element holds is cut to 31.
    const uint8_t length = ring->ringResName[0] > 31 ? 31 : ring->ringResName[0];
    element->ringName[0] = length;
    std::memcpy(element->ringName + 1, ring->ringResName + 1, length);
    const bool scalable = CanBeScaled(ring);
    const float f = scalable ? float(1.0 / double(ring->ringResUnits)) : 0.0f;
    element->ringPosition = float(ring->ringResOffset) * f;
    element->ringInner = float(ring->ringResInside) * f;
    element->ringOuter = float(ring->ringResOutside) * f;
    element->ringScale = 1.0f;
    element->ringIntensity = 1.0f;
    element->ringColor = ARGB_Color{-1, -1, -1, -1};
    element->ringType = ring->ringResType;
    element->ringMode = scalable ? ring->ringResMode : (ring->ringResMode | kRingNeverDrawn);
    element->ringElementColors = stops;
}

// Converts the file's stops into the element's: radius as a fraction of the outer radius,
// colours from 0..65535 to 0..16320.
void StoreStops(ElementColor* to, ElementColor* from, int32_t stops, int32_t outside) {
    for (int32_t k = 0; k < stops; ++k) {
        FixElementColor(&from[k]);
        std::memcpy(&to[k], &from[k], sizeof(ElementColor));
        const int32_t position = from[k].hsv.position;
        to[k].rgb.radius = outside != 0 ? float(position) / float(outside) : 0.0f;
        to[k].rgb.red = uint16_t((uint32_t(from[k].hsv.hue) * 64u) / 257u);
        to[k].rgb.green = uint16_t((uint32_t(from[k].hsv.saturation) * 64u) / 257u);
        to[k].rgb.blue = uint16_t((uint32_t(from[k].hsv.value) * 64u) / 257u);
    }
    SortColors(stops, to);
}

void ReadRuns(PluginDataRec* theData, KV_ResourceFile* file, const HostResource& flare, int32_t count,
              int32_t* size, int32_t* base, int32_t* result) {
    RingElement* last = nullptr;
    const uint8_t* runs = flare.bytes() + offsetof(FlareInfoRec, flareElements);
    for (int32_t i = 0; i < count && *result == kNoError; ++i) {
        FlareResRec run;
        std::memcpy(&run, runs + size_t(i) * sizeof(run), sizeof(run));
        FixFlareRes(&run);
        if (run.flareElementType != kRingType) continue;
        for (int32_t id = run.flareFirstID; id <= run.flareLastID && *result == kNoError; ++id)
            ReadRingElement(theData, file, int16_t(id), &last, size, base, result);
    }
}

}  // namespace

void FixFlareInfo(FlareInfoRec* theFlareInfo) { FixField(&theFlareInfo->flareElementCount); }

void FixFlareRes(FlareResRec* theFlareRes) {
    FixField(&theFlareRes->flareElementType);
    FixField(&theFlareRes->flareFirstID);
    FixField(&theFlareRes->flareLastID);
}

void FixRing(RingRes* theRing) {
    FixField(&theRing->ringResType);
    FixField(&theRing->ringResMode);
    FixField(&theRing->ringResUnits);
    FixField(&theRing->ringResOffset);
    FixField(&theRing->ringResInside);
    FixField(&theRing->ringResOutside);
    FixField(&theRing->ringResColors);
}

void FixElementColor(ElementColor* theColor) {
    FixField(&theColor->hsv.position);
    FixField(&theColor->hsv.alpha);
    FixField(&theColor->hsv.hue);
    FixField(&theColor->hsv.saturation);
    FixField(&theColor->hsv.value);
}

void OpenTheResource(int32_t* theResult) {
    if (*theResult != kNoError || resourceFile != nullptr) return;
    resourceFile = OpenResourceFile("Vellux.rsc");
    *theResult = resourceFile == nullptr ? kMemoryError : kNoError;
}

int32_t ReadFlareElements(PluginDataRec* theData, KV_ResourceFile* iResourceFile) {
    int32_t result = kNoError;
    theData->flareRingCount = 0;
    theData->flareRingFirst = 0;
    int32_t base = theData->flareElementSize;
    int32_t size = theData->flareDataSize - base;
    if (size > 0) {
        HostResource flare(iResourceFile, kFlareType, kFlareID);
        if (!flare.present() || flare.size() < kFlareInfoMinimum) {
            result = kMissingResource;
        } else {
            auto* info = reinterpret_cast<FlareInfoRec*>(flare.bytes());
            FixFlareInfo(info);
            const int32_t count = info->flareElementCount;
            // Counted in 64 bits: a count too large for the resource (or negative) never fits.
            const int64_t needed = 4 + 8 * int64_t(count);
            if (count < 0 || needed > flare.size()) result = kMissingResource;
            else ReadRuns(theData, iResourceFile, flare, count, &size, &base, &result);
        }
    }
    theData->flareElementSize = theData->flareDataSize = base;
    return result;
}

void ReadRingElement(PluginDataRec* theData, KV_ResourceFile* iResourceFile, int16_t theRingID,
                     RingElement** theRingElement, int32_t* theSize, int32_t* theBase, int32_t* result) {
    HostResource resource(iResourceFile, kRingType, theRingID);
    if (!resource.present()) {
        *result = kMissingResource;
        return;
    }
    if (resource.size() < kRingResHeader) {
        *result = kMissingResource;
        return;
    }
    if (*theSize < kElementSize) {
        *result = kMemoryError;
        return;
    }
    auto* ring = reinterpret_cast<RingRes*>(resource.bytes());
    FixRing(ring);

    LinkElement(theData, *theRingElement, *theBase);
    auto* element = TailRecord<RingElement>(theData, *theBase);
    *theRingElement = element;
    *theBase += kElementSize;
    *theSize -= kElementSize;

    const int32_t stops = StopsKept(ring, resource.size());
    FillElement(element, ring, stops);
    const int32_t block = StopBlockSize(stops);
    if (*theSize < block) {
        // The element stays in the chain, but holds no stops: it says so.
        element->ringElementColors = 0;
        *result = kMemoryError;
        return;
    }
    auto* to = TailRecord<ElementColor>(theData, *theBase);
    std::memset(static_cast<void*>(to), 0, size_t(block));
    StoreStops(to, reinterpret_cast<ElementColor*>(resource.bytes() + kRingResHeader), stops,
               ring->ringResOutside);
    *theBase += block;
    *theSize -= block;
}
