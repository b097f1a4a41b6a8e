// Flare table records: the bytes of the FLAR and RING resources that the plug-in loads.
//
//   FLAR  the flare's element list: a signed 32-bit count, then per entry a four-character type
//         and the first and last resource ID (signed 16-bit) of a run of RING resources
//   RING  one element: a 32-byte length-prefixed name (at most 31 bytes, zero-padded), then
//         type, mode, units, offset, inside, outside and the stop count (32-bit each), then
//         12 bytes per colour stop: position (32-bit), alpha, red, green, blue (16-bit each)
//
// Every number is big-endian. Encoding writes exactly these bytes. Decoding is strict: it
// accepts only bytes that encoding would give back unchanged, and otherwise says what differs,
// so a decoded record is always a faithful stand-in for the resource.
#ifndef VELLUX_HOST_FLARE_RECORDS_H
#define VELLUX_HOST_FLARE_RECORDS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace vellux::rsc {

// ---- Record types ----

inline constexpr uint32_t kFlareType = 0x464C4152;   // 'FLAR'
inline constexpr uint32_t kRingType = 0x52494E47;    // 'RING'
inline constexpr int16_t kFlareID = 1001;            // the one flare the plug-in reads

inline constexpr size_t kFlareHeaderSize = 4;
inline constexpr size_t kFlareEntrySize = 8;
inline constexpr size_t kFlareMinimumSize = 12;      // the plug-in refuses anything shorter
inline constexpr size_t kRingHeaderSize = 60;
inline constexpr size_t kRingNameCapacity = 31;
inline constexpr size_t kColorStopSize = 12;
inline constexpr uint32_t kRingHiddenBit = 0x80000000u;   // mode bit 31: never drawn

struct FlareRun {
    uint32_t type = kRingType;   // entries of other types are skipped by the plug-in
    int16_t first = 0;
    int16_t last = 0;            // inclusive; first > last loads nothing
};

struct FlareRecord {
    std::vector<FlareRun> elements;
};

struct ColorStop {
    int32_t position = 0;        // file units from the centre, 0..outside
    uint16_t alpha = 0xFFFF;     // carried along, never drawn
    uint16_t red = 0;
    uint16_t green = 0;
    uint16_t blue = 0;
};

struct RingRecord {
    std::string name;            // at most 31 bytes
    int32_t type = 0;            // 1 white glow, 2 glow in the light's colour, 3 halo, 4 reflection, else faint reflection
    uint32_t mode = 0;
    int32_t units = 1;           // file units per flare unit
    int32_t offset = 0;          // position along the axis: units = at the light, 0 = frame centre
    int32_t inside = 0;
    int32_t outside = 0;
    std::vector<ColorStop> stops;
};

// ---- Encoding ----

std::vector<uint8_t> EncodeFlare(const FlareRecord& flare);
std::vector<uint8_t> EncodeRing(const RingRecord& ring);   // the name must already fit

// ---- Decoding ----

// A record, or the reason the bytes are not one (in words fit for a listing).
template <typename Record>
using Decoded = std::variant<Record, std::string>;

Decoded<FlareRecord> DecodeFlare(std::span<const uint8_t> bytes);
Decoded<RingRecord> DecodeRing(std::span<const uint8_t> bytes);

// ---- Meaning ----

const char* RingTypeRole(int32_t type);   // "white glow", "reflection", ...

}  // namespace vellux::rsc

#endif  // VELLUX_HOST_FLARE_RECORDS_H
