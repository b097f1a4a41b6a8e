// Element colour ramps: an element's colour stops, sorted once at load, are sampled per frame
// into a colour table of one entry per pixel of radius, already tinted, scaled by the element's
// intensity and clamped to 0..16320, so the painters only look entries up and blend two.
#ifndef VELLUX_PLUGIN_COLOR_RAMPS_H
#define VELLUX_PLUGIN_COLOR_RAMPS_H

#include <cstdint>

#include "plugin_data.h"

// Sorts stops by ascending radius (selection sort; among equal radii the first found stays first).
void SortColors(int32_t elementColorCount, ElementColor* firstElementColor);

// Samples the ramp into flareColorCount entries plus a terminating black one. theScale is the
// element's pixel radius, theColor the tint (0..65535 per channel). Returns true when an entry
// came out non-black; a black tint, no intensity or no stops leave the table unwritten.
bool CalcRGBColors(float theScale, float theIntensity, const FlareColor* theColor, int32_t elementColorCount,
                   int32_t flareColorCount, const ElementColor* firstElementColor, FlareColor* firstFlareColor);

// Adds the integral of the linear ramp between two stops over [p1, p2] to the sums.
void AddColor(const ElementColor* theElementColor, const ElementColor* nextElementColor, float p1, float p2,
              float* rSum, float* gSum, float* bSum);

#endif  // VELLUX_PLUGIN_COLOR_RAMPS_H
