// Painting a buffer and reporting progress. GenerateFlare paints theData's flarePixelBuffer:
// depth 48 and 32 paint the flare, any other depth sketches the element outlines.
#ifndef VELLUX_PLUGIN_GENERATE_H
#define VELLUX_PLUGIN_GENERATE_H

#include <cstdint>

#include "plugin_data.h"

int32_t GenerateFlare(ControlDataRec* theControl, PluginDataRec* theData, int16_t theDepth, int32_t statusFlag);
void PaintFlare48(ControlDataRec* theControl, PluginDataRec* theData, bool statusFlag, int32_t* result);
void PaintFlare32(ControlDataRec* theControl, PluginDataRec* theData, bool statusFlag, int32_t* result);

// Progress through the host callback (STAT). The host paces reports by the tick it writes into
// theStatusTick; 0 means a report is due at once.
bool StatusTime(PluginDataRec* theData);                                          // is a report due?
void UpdateStatus(PluginDataRec* theData, float thePos, int32_t theValue, int32_t* result);   // report now
void CheckStatus(PluginDataRec* theData, int32_t* result);                         // report if due
void PrepareSketchStatus(PluginDataRec* theData);

#endif  // VELLUX_PLUGIN_GENERATE_H
