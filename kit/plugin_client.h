// The kit's general client entries: result-code texts, calling a plug-in routine, general host
// allocation (MMAL/MFRE) and the general progress protocol (STAT).
//
// Entries that call the host take `theResult`, do nothing while it already holds an error, and
// store the host's answer there, so a run of calls stops at the first failure. They reach the
// host through the PluginInfoRec they are given, and never call a null callback: a missing
// callback answers kIncompatibleRecord.
#ifndef VELLUX_KIT_PLUGIN_CLIENT_H
#define VELLUX_KIT_PLUGIN_CLIENT_H

#include <cstdint>

#include "vellux/plugin_records.h"

// Writes the text of a result code into theString; codes without a text give the empty string.
void DescribePluginError(int32_t theResultCode, PStrPtr theString);

// Calls theRoutine with the three arguments and returns its answer.
int32_t CallPluginRoutine(IFFType command, int32_t parameterSize, void* parameters, KVPluginRoutine theRoutine);

// MMAL: *thePtr becomes the host's new block of theSize bytes. MFRE: releases thePtr.
void KVPluginMalloc(PluginInfoPtr theInfo, int32_t* theResult, uint32_t theSize, void** thePtr);
void KVPluginFree(PluginInfoPtr theInfo, int32_t* theResult, void* thePtr);

// Progress: set the record up and send the first report; send a report; (no-op) check; finish
// with a last report at 1.0 when the host asked for paced reports (theStatusTick non-zero).
void KVPluginStatusSetup(PluginInfoPtr theInfo, HostStatusRec* theStatus, const unsigned char* theUnit,
                         const unsigned char* theHeading, int32_t theMin, int32_t theMax, float thePos,
                         int32_t theValue, int32_t* theResult);
void KVPluginStatusUpdate(PluginInfoPtr theInfo, HostStatusRec* theStatus, float thePos, int32_t theValue,
                          int32_t* theResult);
void KVPluginStatusCheck(PluginInfoPtr theInfo, HostStatusRec* theStatus, int32_t* theResult);
void KVPluginStatusFinish(PluginInfoPtr theInfo, HostStatusRec* theStatus, int32_t* theResult);

#endif  // VELLUX_KIT_PLUGIN_CLIENT_H
