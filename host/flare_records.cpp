#include "host/flare_records.h"

#include <algorithm>
#include <cassert>

#include "host/big_endian.h"

namespace vellux::rsc {

namespace {

// ---- Big-endian fields ----

using Writer = host::BigEndianWriter;
using Reader = host::BigEndianReader;

std::string Plural(size_t n, const char* word) {
    return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

void EncodeName(Writer& out, const std::string& name) {
    assert(name.size() <= kRingNameCapacity);
    out.U8(uint8_t(name.size()));
    for (const char c : name) out.U8(uint8_t(c));
    for (size_t i = name.size(); i < kRingNameCapacity; ++i) out.U8(0);
}

// The name field holds a length byte and that many bytes; whatever follows must be zero for
// the field to come back the same.
std::string NameProblem(std::span<const uint8_t> field) {
    if (field[0] > kRingNameCapacity)
        return "the name's length byte is " + std::to_string(field[0]) + ", more than 31";
    const auto padding = field.subspan(1 + field[0]);
    if (std::any_of(padding.begin(), padding.end(), [](uint8_t b) { return b != 0; }))
        return "the bytes after the name are not zero";
    return {};
}

}  // namespace

// ---- Encoding ----

std::vector<uint8_t> EncodeFlare(const FlareRecord& flare) {
    Writer out;
    out.I32(int32_t(flare.elements.size()));
    for (const FlareRun& run : flare.elements) {
        out.U32(run.type);
        out.I16(run.first);
        out.I16(run.last);
    }
    return out.Take();
}

std::vector<uint8_t> EncodeRing(const RingRecord& ring) {
    Writer out;
    out.Bytes().reserve(kRingHeaderSize + ring.stops.size() * kColorStopSize);
    EncodeName(out, ring.name);
    out.I32(ring.type);
    out.U32(ring.mode);
    out.I32(ring.units);
    out.I32(ring.offset);
    out.I32(ring.inside);
    out.I32(ring.outside);
    out.I32(int32_t(ring.stops.size()));
    for (const ColorStop& stop : ring.stops) {
        out.I32(stop.position);
        out.U16(stop.alpha);
        out.U16(stop.red);
        out.U16(stop.green);
        out.U16(stop.blue);
    }
    return out.Take();
}

// ---- Decoding ----

Decoded<FlareRecord> DecodeFlare(std::span<const uint8_t> bytes) {
    if (bytes.size() < kFlareHeaderSize)
        return Plural(bytes.size(), "byte") + ", too short to hold the element count";
    Reader in(bytes);
    const int32_t count = in.I32();
    if (count < 0) return "the element count is negative (" + std::to_string(count) + ")";
    const size_t needed = kFlareHeaderSize + size_t(count) * kFlareEntrySize;
    if (bytes.size() < needed)
        return "the element count " + std::to_string(count) + " needs " +
               Plural(needed, "byte") + ", the resource has " + std::to_string(bytes.size());
    if (bytes.size() > needed)
        return Plural(bytes.size() - needed, "byte") + " follow the " +
               Plural(size_t(count), "element") + " that the count covers";
    FlareRecord flare;
    flare.elements.resize(size_t(count));
    for (FlareRun& run : flare.elements) {
        run.type = in.U32();
        run.first = in.I16();
        run.last = in.I16();
    }
    return flare;
}

Decoded<RingRecord> DecodeRing(std::span<const uint8_t> bytes) {
    if (bytes.size() < kRingHeaderSize)
        return Plural(bytes.size(), "byte") + ", shorter than the 60-byte element header";
    if (std::string problem = NameProblem(bytes.first(kRingNameCapacity + 1)); !problem.empty())
        return problem;
    Reader in(bytes);
    RingRecord ring;
    const uint8_t nameLength = in.U8();
    ring.name.assign(reinterpret_cast<const char*>(bytes.data() + 1), nameLength);
    in.Skip(kRingNameCapacity);
    ring.type = in.I32();
    ring.mode = in.U32();
    ring.units = in.I32();
    ring.offset = in.I32();
    ring.inside = in.I32();
    ring.outside = in.I32();
    const int32_t count = in.I32();
    if (count < 0) return "the stop count is negative (" + std::to_string(count) + ")";
    const size_t stopBytes = bytes.size() - kRingHeaderSize;
    if (stopBytes != size_t(count) * kColorStopSize)
        return "the stop count " + std::to_string(count) + " needs " +
               Plural(size_t(count) * kColorStopSize, "byte") + " of stops, the resource has " +
               std::to_string(stopBytes);
    ring.stops.resize(size_t(count));
    for (ColorStop& stop : ring.stops) {
        stop.position = in.I32();
        stop.alpha = in.U16();
        stop.red = in.U16();
        stop.green = in.U16();
        stop.blue = in.U16();
    }
    return ring;
}

// ---- Meaning ----

const char* RingTypeRole(int32_t type) {
    switch (type) {
        case 1: return "white glow";
        case 2: return "glow in the light's colour";
        case 3: return "halo (its ramp is rebuilt from the ring size)";
        case 4: return "reflection";
        default: return "reflection at 0.29 strength";
    }
}

}  // namespace vellux::rsc
