// Painting one scan line: every ring element, then every streak, added into the working record's
// pixel buffer (flarePixelBuffer) on row y. curRect is the part of the row to paint: top y,
// bottom y + 1, left and right the buffer's columns. The 48 variants need a 48-bit buffer, the 32
// variants a 32-bit one; no host call and no allocation is made here.
#ifndef VELLUX_PLUGIN_PAINTERS_H
#define VELLUX_PLUGIN_PAINTERS_H

#include <cstdint>

#include "plugin_data.h"

void PaintRings48(const ControlDataRec* theControl, PluginDataRec* theData, const L_Rect* curRect, int32_t y);
void PaintRings32(const ControlDataRec* theControl, PluginDataRec* theData, const L_Rect* curRect, int32_t y);
void PaintStreaks48(const ControlDataRec* theControl, PluginDataRec* theData, const L_Rect* curRect, int32_t y);
void PaintStreaks32(const ControlDataRec* theControl, PluginDataRec* theData, const L_Rect* curRect, int32_t y);

// e^(-d^1.5) as the 48-bit streak painter takes it: float(exp(-exp(1.5 log d))) in double, bit for
// bit. For d in [kQuickFalloffLow, kQuickFalloffHigh) it is found without the library's exp and log
// (the tests compare every float of that range), elsewhere through them.
constexpr float kQuickFalloffLow = 0x1p-9f;
constexpr float kQuickFalloffHigh = 16.0f;
float StreakFalloff48(float d);
// Two of them at once (along and across a streak), each bit for bit StreakFalloff48's.
void StreakFalloffPair48(float* a, float* b);
// At least StreakFalloff48 at every d from which the painter may skip the streak at a pixel
// (infinite where it never does).
float StreakFalloffBound48(float d);

// The streak painter's per-row lists live in the tail after the streaks: two entries per streak.
int32_t StreakScratchBytes(int32_t streakCount);

#endif  // VELLUX_PLUGIN_PAINTERS_H
