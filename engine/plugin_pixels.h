// The frame in the plug-in's own pixel layout, and the conversions between image values and the
// plug-in's channel scale.
//
// Depth 48: six bytes a pixel, unsigned 16-bit red, green, blue in host byte order, 16320
//           (= 255 x 64) a full channel.
// Depth 32: four bytes a pixel, alpha, red, green, blue, 8 bits each; the plug-in never changes
//           alpha.
//
// Conversions, chosen so that a value converted in and straight back is the nearest the scale
// allows, and so that 0 and full intensity map onto each other exactly:
//   16-bit  v -> round(v x 64 / 257)        p -> round(p x 257 / 64), at most 65535
//   float   v -> round(clamp(v, 0, 1) x 16320)   p -> p / 16320 (NaN counts as 0)
// A 16-bit value loses up to two of its 65536 steps on the way through; the render command
// therefore replaces only the channels the plug-in changed (CompositeChannel).
#ifndef VELLUX_ENGINE_PLUGIN_PIXELS_H
#define VELLUX_ENGINE_PLUGIN_PIXELS_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "engine/frame_memory.h"

namespace vellux::engine {

inline constexpr uint32_t kFullChannel = 16320;

constexpr uint16_t ToPluginScale(uint16_t v) { return uint16_t((uint32_t(v) * 64u + 128u) / 257u); }
constexpr uint16_t FromPluginScale16(uint16_t p) {
    return uint16_t(std::min<uint32_t>((uint32_t(p) * 257u + 32u) / 64u, 65535u));
}
inline uint16_t ToPluginScale(float v) {
    if (!(v > 0.0f)) return 0;   // also NaN
    return uint16_t(std::lround(std::min(v, 1.0f) * float(kFullChannel)));
}
inline float FromPluginScaleFloat(uint16_t p) { return float(p) / float(kFullChannel); }

// The output value of one channel: the input's own value where the plug-in left the channel as
// it came in, its result converted back where it changed it.
template <typename Value, typename Back>
Value CompositeChannel(Value original, uint16_t before, uint16_t after, Back back) {
    return after == before ? original : back(after);
}

// A frame in the plug-in's layout in memory its owner keeps: rows of `rowBytes` from `base`.
struct PixelView {
    uint8_t* base = nullptr;
    int32_t width = 0;
    int32_t height = 0;
    int32_t rowBytes = 0;
    int16_t depth = 48;
};

struct PluginPixels {
    int32_t width = 0;
    int32_t height = 0;
    int16_t depth = 48;
    std::vector<uint8_t, FrameAllocator<uint8_t>> bytes;

    PluginPixels() = default;
    PluginPixels(int32_t w, int32_t h, int16_t d)
        : width(w), height(h), depth(d), bytes(size_t(w) * size_t(h) * size_t(d / 8)) {}

    PixelView View() { return {bytes.data(), width, height, RowBytes(), depth}; }
    int32_t BytesPerPixel() const { return depth / 8; }
    int32_t RowBytes() const { return width * BytesPerPixel(); }
    uint8_t* Row(int32_t y) { return bytes.data() + size_t(y) * size_t(RowBytes()); }
    const uint8_t* Row(int32_t y) const { return bytes.data() + size_t(y) * size_t(RowBytes()); }
    uint8_t* Pixel(int32_t x, int32_t y) { return Row(y) + size_t(x) * size_t(BytesPerPixel()); }
    const uint8_t* Pixel(int32_t x, int32_t y) const { return const_cast<PluginPixels*>(this)->Pixel(x, y); }

    // Depth 48: channel c (0 red, 1 green, 2 blue) of pixel i, counted row by row.
    uint16_t Channel48(size_t i, int c) const {
        uint16_t value;
        std::memcpy(&value, bytes.data() + i * 6 + size_t(c) * 2, 2);
        return value;
    }
    void SetChannel48(size_t i, int c, uint16_t value) { std::memcpy(bytes.data() + i * 6 + size_t(c) * 2, &value, 2); }
};

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_PLUGIN_PIXELS_H
