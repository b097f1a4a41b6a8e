// The per-frame layout of the flare: every loaded element placed, sized, culled and given its
// colour table, then the streaks, all carved out of the working record's tail.
#ifndef VELLUX_PLUGIN_FLARE_LAYOUT_H
#define VELLUX_PLUGIN_FLARE_LAYOUT_H

#include <cstdint>

#include "plugin_data.h"

// Lays the loaded elements and the streaks out for the current frame, from flareElementSize on;
// leaves flareDataSize at the end of what it wrote. Returns 0 or 1 (no room).
int32_t CalcFlareInfo(ControlDataRec* theControl, PluginDataRec* theData);

#endif  // VELLUX_PLUGIN_FLARE_LAYOUT_H
