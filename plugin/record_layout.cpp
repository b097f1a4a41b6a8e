// Compile-time proof of the working record's layout. Its fixed size F and the records of its tail
// follow from the declarations; the 32-bit build checks the reference sizes.
#include <cstddef>

#include "plugin_data.h"

static_assert(sizeof(ElementColor) == 12, "a colour stop is 12 bytes in the file and in memory");
static_assert(sizeof(FlareColor) == 6, "a colour-table entry is a 48-bit pixel");
static_assert(sizeof(VXEdgeRecord) == 20, "edge record");
static_assert(sizeof(EdgeList) == 4 * sizeof(VXEdgeRecord), "four edges");
static_assert(sizeof(StreakElement) == 160, "streaks hold no pointers: the same on every build");
static_assert(offsetof(StreakElement, streakEdges) == 72, "streak edges");
static_assert(offsetof(StreakElement, streakXMax) == 156, "streak span");
static_assert(sizeof(LookupElement) == 8, "lookup entry");
static_assert(kPluginDataFixedSize % 8 == 0, "the tail starts on an 8-byte boundary");

#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(RingElement) == 156, "element record, reference layout");
static_assert(offsetof(RingElement, ringRect) == 76, "element rectangle");
static_assert(offsetof(RingElement, ringFlareColorBase) == 128, "element colour table");
static_assert(sizeof(VelluxBuffer) == 40, "buffer description");
static_assert(sizeof(PluginDataRec) == 8928, "fixed part of the working record, reference layout");
static_assert(offsetof(PluginDataRec, theStatusRec) == 4, "status record");
static_assert(offsetof(PluginDataRec, flarePixelBuffer) == 540, "pixel buffer");
static_assert(offsetof(PluginDataRec, flareRect) == 624, "frame rectangle");
static_assert(offsetof(PluginDataRec, flareRingCount) == 708, "element counts");
static_assert(offsetof(PluginDataRec, flareLookup) == 736, "falloff table");
#endif
