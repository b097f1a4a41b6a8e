// Colours added to a run of adjacent pixels at once: the ring painter works out a run's colours
// first, then adds them here. Every pixel ends as the single-pixel sums in pixels.h leave it.
//
//   48 bits: one addend per channel, three per pixel, each a colour number in 0..65535; a channel
//            becomes min(channel + addend, maxPixel), as SumPixel48 makes it for such colours.
//   32 bits: one addend per byte, four per pixel (the alpha's is ignored), each the dithered
//            step (colour number + noise) >> 6 of a colour in 0..65535 and so in 0..1024; a
//            channel becomes min(channel + addend, maxPixel), which is what AddDithered32 makes
//            of (64 channel + colour + noise) >> 6, since 64 channel is a whole multiple of 64.
// maxPixel is the depth's ceiling (pixels.h): 0..65535 for 48 bits, 0..255 for 32.
// Where SSE2 is at hand eight channels are summed at once; the scalar forms are the reference the
// tests hold the packed ones to. Nothing outside the run is read or written.
#ifndef VELLUX_PLUGIN_PIXEL_RUNS_H
#define VELLUX_PLUGIN_PIXEL_RUNS_H

#include <cstdint>

void AddRun48(uint8_t* pixels, const uint16_t* addends, int32_t channels, int32_t maxPixel);
void AddRun32(uint8_t* pixels, const uint16_t* addends, int32_t count, int32_t maxPixel);
void AddRun48Scalar(uint8_t* pixels, const uint16_t* addends, int32_t channels, int32_t maxPixel);
void AddRun32Scalar(uint8_t* pixels, const uint16_t* addends, int32_t count, int32_t maxPixel);

#endif  // VELLUX_PLUGIN_PIXEL_RUNS_H
