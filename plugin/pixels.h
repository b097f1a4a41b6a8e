// The two pixel formats the flare is painted into, and the saturating accumulation into one pixel.
//
//   48 bits: red, green, blue, unsigned 16-bit each, 16320 = a full channel.
//   32 bits: the bytes alpha, red, green, blue; a channel is the colour / 64, dithered; alpha is
//            never changed.
// Colours come in on one scale where 16320 is full; no channel ever ends above the ceiling that
// the dissolve sets. Pixels are read and written byte-wise, so rows need no alignment.
#ifndef VELLUX_PLUGIN_PIXELS_H
#define VELLUX_PLUGIN_PIXELS_H

#include <cstdint>
#include <cstring>

#include "plugin_data.h"

struct KV_32BitPixel {
    uint8_t alpha;
    uint8_t red;
    uint8_t green;
    uint8_t blue;
};

// The per-channel ceilings for a dissolve. Outside 0..1 (or not a number) the ceiling is held in
// the pixel's own range: 0..65535 for 48 bits, 0..255 for 32.
int32_t RingCeiling48(double dissolve);     // 16320 (1 - dissolve), truncated in double
int32_t StreakCeiling48(float intensity);   // the streak intensity, truncated
int32_t Ceiling32(double dissolve);         // 255 (1 - dissolve), truncated

// The dither generator shared by the 32-bit painters.
inline uint32_t NextSeed(uint32_t seed) { return seed * 1103515245u + 12345u; }

// Adds (rNum, gNum, bNum) to a 48-bit pixel, each channel held at maxPixel. A channel that would
// go below zero (only a negative colour can do that) stays at zero.
inline int32_t HeldChannel(int32_t v, int32_t maxPixel) { return v < 0 ? 0 : v < maxPixel ? v : maxPixel; }

inline void AddChannel48(uint8_t* theChannel, int32_t num, int32_t maxPixel) {
    uint16_t channel;
    std::memcpy(&channel, theChannel, sizeof(channel));
    channel = uint16_t(HeldChannel(int32_t(channel) + num, maxPixel));
    std::memcpy(theChannel, &channel, sizeof(channel));
}

inline void SumPixel48(uint8_t* thePixel, int32_t rNum, int32_t gNum, int32_t bNum, int32_t maxPixel) {
    // Colour numbers stay within +-2^30 (the painters hold them there), so the sums fit 32 bits.
    // Each channel is read and written on its own: gathering them in a small array made the
    // compiler store two of them and load them back as one word, which the processor cannot
    // forward from the stores and waits for.
    AddChannel48(thePixel, rNum, maxPixel);
    AddChannel48(thePixel + 2, gNum, maxPixel);
    AddChannel48(thePixel + 4, bNum, maxPixel);
}

// Adds colours in 1/64 units to a 32-bit pixel: one noise value 0..63 from the advanced seed
// dithers all three channels between neighbouring levels. AddDithered32 takes the seed already
// advanced.
inline void AddDithered32(uint8_t* thePixel, uint32_t seed, int32_t rNum, int32_t gNum, int32_t bNum,
                          int32_t maxPixel) {
    const int32_t noise = int32_t(seed >> 26);
    thePixel[1] = uint8_t(HeldChannel((int32_t(thePixel[1]) * 64 + rNum + noise) >> 6, maxPixel));
    thePixel[2] = uint8_t(HeldChannel((int32_t(thePixel[2]) * 64 + gNum + noise) >> 6, maxPixel));
    thePixel[3] = uint8_t(HeldChannel((int32_t(thePixel[3]) * 64 + bNum + noise) >> 6, maxPixel));
}

inline void SumPixel32(uint8_t* thePixel, uint32_t* seed, int32_t rNum, int32_t gNum, int32_t bNum,
                       int32_t maxPixel) {
    *seed = NextSeed(*seed);
    AddDithered32(thePixel, *seed, rNum, gNum, bNum, maxPixel);
}

// Two steps of the generator in one: seed * a^2 + (a c + c), modulo 2^32.
inline uint32_t NextSeedTwice(uint32_t seed) { return seed * (1103515245u * 1103515245u) + (1103515245u * 12345u + 12345u); }

// The address of pixel (x, y) of the buffer; the caller keeps (x, y) inside bufferRect.
inline uint8_t* PixelAt(const VelluxBuffer& buffer, int32_t x, int32_t y, int32_t bytesPerPixel) {
    return buffer.bufferBase + int64_t(buffer.bufferRowBytes) * (int64_t(y) - buffer.bufferRect.top) +
           (int64_t(x) - buffer.bufferRect.left) * bytesPerPixel;
}

#endif  // VELLUX_PLUGIN_PIXELS_H
