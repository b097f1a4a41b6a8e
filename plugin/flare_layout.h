// The per-frame layout of the flare: every loaded element placed on the line from the frame
// centre through the light, sized, culled against the frame and given its colour table; then
// the streaks. Everything is carved out of the working record's tail at increasing offsets.
#ifndef VELLUX_PLUGIN_FLARE_LAYOUT_H
#define VELLUX_PLUGIN_FLARE_LAYOUT_H

#include <cstdint>

#include "plugin_data.h"

// Element types.
enum : int32_t {
    kWhiteGlow = 1,         // shown with flag bit 30 and without bit 29
    kColoredGlow = 2,       // shown with flag bits 30 and 29: tinted by the light
    kHalo = 3,              // flag bit 28: rebuilt from the ring size on every layout
    kReflection = 4,        // flag bit 27: full strength; any other type at 0.29 of it
};

// Lays the loaded elements and the streaks out for the current frame, from flareElementSize on;
// leaves flareDataSize at the end of what it wrote. Returns 0 or 1 (no room).
int32_t CalcFlareInfo(ControlDataRec* theControl, PluginDataRec* theData);

// Lays out one element; *theBase is the next free offset and *theSize the free bytes.
void CalcRingInfo(ControlDataRec* theControl, PluginDataRec* theData, RingElement* theRing, int32_t* theSize,
                  int32_t* theBase, int32_t* result);

// Marks an element as not drawn: no colour table, an all-zero rectangle.
void DisableRing(RingElement* theRing);

// The aspect ratio of elements and streaks: the anamorphic factor with flag bit 31, else 1.
float AspectRatio(const ControlDataRec* theControl);

#endif  // VELLUX_PLUGIN_FLARE_LAYOUT_H
