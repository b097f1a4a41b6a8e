// Big-endian fields written to and read from byte streams, as the resources of a table file
// hold them.
//
// BigEndianReader never checks on its own: every caller checks what is left (Has) before it
// reads, and a read past the end is a programming error caught by an assertion.
#ifndef VELLUX_HOST_BIG_ENDIAN_H
#define VELLUX_HOST_BIG_ENDIAN_H

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vellux::host {

class BigEndianWriter {
public:
    void U8(uint8_t v) { bytes_.push_back(v); }
    void U16(uint16_t v) { U8(uint8_t(v >> 8)); U8(uint8_t(v)); }
    void U32(uint32_t v) { U16(uint16_t(v >> 16)); U16(uint16_t(v)); }
    void I16(int16_t v) { U16(uint16_t(v)); }
    void I32(int32_t v) { U32(uint32_t(v)); }
    std::vector<uint8_t>& Bytes() { return bytes_; }
    std::vector<uint8_t> Take() { return std::move(bytes_); }

private:
    std::vector<uint8_t> bytes_;
};

class BigEndianReader {
public:
    explicit BigEndianReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    size_t Left() const { return bytes_.size() - at_; }
    bool Has(size_t n) const { return Left() >= n; }
    uint8_t U8() { assert(Has(1)); return bytes_[at_++]; }
    uint16_t U16() { const uint16_t high = U8(); return uint16_t(high << 8 | U8()); }
    uint32_t U32() { const uint32_t high = U16(); return high << 16 | U16(); }
    int16_t I16() { return int16_t(U16()); }
    int32_t I32() { return int32_t(U32()); }
    void Skip(size_t n) { assert(Has(n)); at_ += n; }
    // The next n bytes, without moving on.
    std::span<const uint8_t> Peek(size_t n) const { assert(Has(n)); return bytes_.subspan(at_, n); }

private:
    std::span<const uint8_t> bytes_;
    size_t at_ = 0;
};

}  // namespace vellux::host

#endif  // VELLUX_HOST_BIG_ENDIAN_H
