// Animation channels: the nine animatable settings published to the host (ICHN), keyed over a
// range of frames (UCHN), read back per frame (LCHN), and dropped (RCHN) when the record resets.
#ifndef VELLUX_PLUGIN_CHANNELS_H
#define VELLUX_PLUGIN_CHANNELS_H

#include <cstdint>

#include "vellux/plugin_records.h"

// Host calls; each does nothing while *theResult holds an error (SendHostResetChannel excepted,
// which is only called while none is pending).
void* AddChannel(int32_t theID, IFFType theType, const unsigned char* theName, void* theValue, void* minValue,
                 void* maxValue, int32_t* theResult);
void GetChannel(void* theChannel, int32_t theID, IFFType theType, int32_t theFrame, void* theData, int32_t theSize,
                int32_t* theResult);
void SetChannel(void* theChannel, int32_t theID, IFFType theType, int32_t theFrame, void* theData,
                int32_t* theResult);
void SendHostResetChannel(int32_t* theResult);   // a host without channels (answer 2) is no error

// Command handlers.
int32_t DoInitializeChannel(int32_t theSize, void* theRec);   // ICHN
int32_t DoUpdateChannel(int32_t theSize, void* theRec);       // UCHN
int32_t DoLoadChannel(int32_t theSize, void* theRec);         // LCHN
int32_t DoFinishChannel(int32_t theSize, void* theRec);       // FCHN

#endif  // VELLUX_PLUGIN_CHANNELS_H
