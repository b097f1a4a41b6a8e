// Flare-table resources as the file holds them (big-endian), built field by field for tests.
#ifndef VELLUX_TESTS_TABLE_BYTES_H
#define VELLUX_TESTS_TABLE_BYTES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct StopBytes {
    int32_t position;
    uint16_t alpha, red, green, blue;
};

struct RingBytes {
    std::string name = "Element";
    int32_t type = 4;
    uint32_t mode = 0;
    int32_t units = 1000;
    int32_t offset = 500;
    int32_t inside = 0;
    int32_t outside = 100;
    std::vector<StopBytes> stops;
    std::optional<int32_t> colors;  // the stop count written; none: the number of stops
    int nameLength = -1;            // the length byte written; -1: the name's length
};

struct RunBytes {
    std::string type = "RING";
    int16_t first, last;
};

inline void PutBig(std::vector<uint8_t>& out, uint64_t value, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) out.push_back(uint8_t(value >> (8 * i)));
}

inline std::vector<uint8_t> FlareBytes(const std::vector<RunBytes>& runs, int32_t count = -1) {
    std::vector<uint8_t> out;
    PutBig(out, uint32_t(count < 0 ? int32_t(runs.size()) : count), 4);
    for (const RunBytes& run : runs) {
        for (char c : run.type) out.push_back(uint8_t(c));
        PutBig(out, uint16_t(run.first), 2);
        PutBig(out, uint16_t(run.last), 2);
    }
    return out;
}

inline std::vector<uint8_t> RingResourceBytes(const RingBytes& ring) {
    std::vector<uint8_t> out(32, 0);
    out[0] = uint8_t(ring.nameLength < 0 ? ring.name.size() : size_t(ring.nameLength));
    for (size_t i = 0; i < ring.name.size() && i < 31; ++i) out[1 + i] = uint8_t(ring.name[i]);
    PutBig(out, uint32_t(ring.type), 4);
    PutBig(out, ring.mode, 4);
    PutBig(out, uint32_t(ring.units), 4);
    PutBig(out, uint32_t(ring.offset), 4);
    PutBig(out, uint32_t(ring.inside), 4);
    PutBig(out, uint32_t(ring.outside), 4);
    PutBig(out, uint32_t(ring.colors.value_or(int32_t(ring.stops.size()))), 4);
    for (const StopBytes& stop : ring.stops) {
        PutBig(out, uint32_t(stop.position), 4);
        PutBig(out, stop.alpha, 2);
        PutBig(out, stop.red, 2);
        PutBig(out, stop.green, 2);
        PutBig(out, stop.blue, 2);
    }
    return out;
}

#endif  // VELLUX_TESTS_TABLE_BYTES_H
