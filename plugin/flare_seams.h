// Where the working record meets the flare table and the layout.
//
// CheckData opens the table file and reads the flare's elements into the record's tail when it
// rebuilds the record, and lays the flare out for the current frame whenever the derived data
// are stale. These three entry points are that boundary.
#ifndef VELLUX_PLUGIN_FLARE_SEAMS_H
#define VELLUX_PLUGIN_FLARE_SEAMS_H

#include <cstdint>

#include "kit/host_service_types.h"
#include "plugin_data.h"

// Opens the flare-table file into resourceFile when *theResult is 0 and it is not open yet.
void OpenTheResource(int32_t* theResult);

// Reads the flare's elements into the tail, from flareElementSize up to flareDataSize (the space
// available); leaves both at the end of what was loaded. Returns 0, 1 (no room) or 6 (missing).
int32_t ReadFlareElements(PluginDataRec* theData, KV_ResourceFile* iResourceFile);

// Lays the loaded elements and the streaks out for the current frame, from flareElementSize on;
// leaves flareDataSize at the end of what it wrote. Returns 0 or 1 (no room).
int32_t CalcFlareInfo(ControlDataRec* theControl, PluginDataRec* theData);

#endif  // VELLUX_PLUGIN_FLARE_SEAMS_H
