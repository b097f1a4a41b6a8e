#include "engine/settings_record.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>

namespace vellux::engine {

namespace {

// Copies the record field by field, each field's bytes reversed when `reverse`: from either byte
// order to the other, so it both reads and writes a record of the other order.
void CopyFields(const uint8_t* from, uint8_t* to, bool reverse) {
    const auto take = [&](size_t offset, size_t size) {
        std::memcpy(to + offset, from + offset, size);
        if (reverse) std::reverse(to + offset, to + offset + size);
    };
    take(offsetof(ControlDataRec, ownerType), 4);
    take(offsetof(ControlDataRec, ownerVersion), 4);
    for (size_t offset = offsetof(ControlDataRec, flareIntensity); offset <= offsetof(ControlDataRec, flareStreakSharpness);
         offset += 8)
        take(offset, 8);
    for (size_t i = 0; i < 4; ++i) take(offsetof(ControlDataRec, flareRingColor) + 2 * i, 2);
    take(offsetof(ControlDataRec, flareFlags), 4);
    take(offsetof(ControlDataRec, flareStarFilter), 4);
}

}  // namespace

ControlDataRec DecodeSettings(const SettingsRecord& record) {
    if (record.bytes.size() != sizeof(ControlDataRec))
        throw std::runtime_error("the settings record has " + std::to_string(record.bytes.size()) + " bytes, not " +
                                 std::to_string(sizeof(ControlDataRec)));
    ControlDataRec c{};
    CopyFields(record.bytes.data(), reinterpret_cast<uint8_t*>(&c), record.byteOrder != NativeByteOrder());
    return c;
}

SettingsRecord EncodeSettings(const ControlDataRec& control, ByteOrder order) {
    SettingsRecord record{order, std::vector<uint8_t>(sizeof(ControlDataRec))};
    CopyFields(reinterpret_cast<const uint8_t*>(&control), record.bytes.data(), order != NativeByteOrder());
    return record;
}

}  // namespace vellux::engine
