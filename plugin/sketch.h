// The outline sketch: points on the outline of every ring element, into a buffer of one byte per
// pixel (depth 8), each set to the buffer's palette index. Streaks are not sketched.
#ifndef VELLUX_PLUGIN_SKETCH_H
#define VELLUX_PLUGIN_SKETCH_H

#include <cstdint>

#include "plugin_data.h"

void SketchFlare(PluginDataRec* theData, bool statusFlag, int32_t* result);
void SketchRing(const VelluxBuffer* theBuffer, const RingElement* theRing);

#endif  // VELLUX_PLUGIN_SKETCH_H
