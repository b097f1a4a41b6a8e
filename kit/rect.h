// Pixel rectangles (L_Rect: right and bottom exclusive).
#ifndef VELLUX_KIT_RECT_H
#define VELLUX_KIT_RECT_H

#include <cstdint>

#include "vellux/plugin_records.h"

// Stores the four sides (note the argument order left, top, right, bottom) and sets
// width = right - left, height = bottom - top.
void SetLRect(LRectPtr theLRect, int32_t theLeft, int32_t theTop, int32_t theRight, int32_t theBottom);

// Intersection of two rectangles into dst (which may alias either source). Returns 1 when the
// intersection has area. Touching or disjoint rectangles give 0 and an all-zero dst; an overlap
// without area gives 0 with zero sides but the computed width and height.
int32_t SectLRect(const L_Rect* srcA, const L_Rect* srcB, LRectPtr dst);

#endif  // VELLUX_KIT_RECT_H
