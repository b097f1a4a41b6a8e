// Fuzzes the plug-in's reading of a flare table: arbitrary FLAR and RING resources, served as a
// host serves them, read into a working record with an arbitrary amount of room, then every
// loaded element's ramp sampled. Whatever the bytes, the reader must stay inside its resources
// and its record, and leave a chain that stays inside the loaded elements.
//
// Input: a byte giving the room in the tail (in 64-byte steps), then chunks of a 2-byte
// big-endian length and that many bytes: the first chunk is FLAR 1001, the k-th after it RING k-1.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "plugin/color_ramps.h"
#include "plugin/flare_table.h"

namespace {

std::map<std::pair<uint32_t, int>, std::vector<uint8_t>> gResources;
KV_ResourceFile gFile{};
int gLiveCopies = 0;

void Check(bool condition) {
    if (!condition) std::abort();
}

void LoadResources(const uint8_t* data, size_t size) {
    gResources.clear();
    int index = 0;
    while (size >= 2 && index < 17) {
        size_t length = (size_t(data[0]) << 8) | data[1];
        data += 2;
        size -= 2;
        if (length > size) length = size;
        const auto key = index == 0 ? std::make_pair(MakeIFF("FLAR"), 1001) : std::make_pair(MakeIFF("RING"), index - 1);
        gResources[key].assign(data, data + length);
        data += length;
        size -= length;
        ++index;
    }
}

void CheckChainAndRamps(PluginDataRec* record, int32_t blockSize) {
    Check(record->flareElementSize >= kPluginDataFixedSize && record->flareElementSize <= blockSize);
    Check(record->flareDataSize == record->flareElementSize);
    int32_t offset = record->flareRingFirst;
    for (int32_t i = 0; i < record->flareRingCount; ++i) {
        RingElement* ring = RingAt(record, offset);
        Check(ring != nullptr);
        const int64_t stopsEnd = int64_t(offset) + int64_t(sizeof(RingElement)) +
                                 int64_t(ring->ringElementColors) * int64_t(sizeof(ElementColor));
        Check(ring->ringElementColors >= 0 && stopsEnd <= record->flareElementSize);
        Check(std::isfinite(ring->ringOuter) && std::isfinite(ring->ringPosition));
        const auto* stops = reinterpret_cast<const ElementColor*>(ring + 1);
        for (float L : {0.5f, 3.2f, 40.0f}) {
            std::vector<FlareColor> table(size_t(std::ceil(L)) + 1);
            const FlareColor tint{65535, 40000, 1};
            CalcRGBColors(L, 1.0f, &tint, ring->ringElementColors, int32_t(table.size()) - 1, stops, table.data());
            for (const FlareColor& entry : table) Check(entry.red <= 16320 && entry.green <= 16320 && entry.blue <= 16320);
        }
        offset = ring->ringNext;
    }
}

}  // namespace

// The host's resource services, found by the kit's lookups in this program.
extern "C" __attribute__((visibility("default"))) void* KV_GetResource(KV_ResourceFile* iResourceFile, uint32_t iType,
                                                                        int iID, int32_t* oSize) {
    *oSize = 0;
    auto found = gResources.find({iType, iID});
    if (iResourceFile != &gFile || found == gResources.end()) return nullptr;
    void* copy = std::malloc(found->second.size() + 1);
    if (!found->second.empty()) std::memcpy(copy, found->second.data(), found->second.size());
    *oSize = int32_t(found->second.size());
    ++gLiveCopies;
    return copy;
}

extern "C" __attribute__((visibility("default"))) void KV_ReleaseResource(void* iResource) {
    std::free(iResource);
    --gLiveCopies;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const int32_t tail = int32_t(data[0]) * 64;
    LoadResources(data + 1, size - 1);
    const int32_t blockSize = kPluginDataFixedSize + tail;
    std::vector<uint8_t> block(size_t(blockSize), 0xCD);
    auto* record = reinterpret_cast<PluginDataRec*>(block.data());
    std::memset(static_cast<void*>(record), 0, sizeof(PluginDataRec));
    record->flareElementSize = kPluginDataFixedSize;
    record->flareDataSize = blockSize;
    const int32_t result = ReadFlareElements(record, &gFile);
    Check(result == kNoError || result == kMemoryError || result == kMissingResource);
    Check(gLiveCopies == 0);
    CheckChainAndRamps(record, blockSize);
    return 0;
}
