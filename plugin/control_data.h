// The persistent ControlDataRec: defaults, byte-order conversion, validation.
#ifndef VELLUX_PLUGIN_CONTROL_DATA_H
#define VELLUX_PLUGIN_CONTROL_DATA_H

#include <cstdint>

#include "vellux/plugin_records.h"

void DefaultControl(ControlDataPtr theControl);   // the defaults, in this machine's byte order
void FixControl(ControlDataPtr theControl);       // converts a record written in the other order

// Accepts (converting a foreign byte order in place) or defaults the host's control record and
// sizes it to exactly one ControlDataRec. Defaulting tells the host to drop its channels and sets
// *resetPluginData, so the working record is rebuilt too.
void CheckControlData(bool setControlData, bool* resetPluginData, int32_t* theResult);

#endif  // VELLUX_PLUGIN_CONTROL_DATA_H
