// Process-wide state of the plug-in. Main refreshes the six record statics from every command
// block's header; every part of the plug-in reaches the host's records and callback through them.
#ifndef VELLUX_PLUGIN_GLOBALS_H
#define VELLUX_PLUGIN_GLOBALS_H

#include <cstdint>

#include "kit/host_service_types.h"
#include "vellux/plugin_records.h"

extern uint8_t* sTheControlData;        // persistent ControlDataRec (host-owned)
extern int32_t sTheControlDataSize;
extern uint8_t* sThePluginData;         // working PluginDataRec (host-owned)
extern int32_t sThePluginDataSize;
extern KVPluginRoutine sTheHostProc;    // null when the host offers no callback
extern void* sTheHostReference;

extern IFFType globalValidation1;       // 'VLUX' once the globals are set up
extern IFFType globalValidation2;       // 'KVpF'
extern KV_ResourceFile* resourceFile;   // the open flare-table file, null when closed

constexpr IFFType kGlobalValidation1 = MakeIFF("VLUX");
constexpr IFFType kGlobalValidation2 = MakeIFF("KVpF");

// Sets the globals up on first use (statics zero) and when forced (INIT); every call starts with
// no resource file open.
void InitGlobals(bool initFlag);

// Closes the flare-table file if a handler left it open.
void CloseTheResource();

// Takes over the header of a command block (or clears the statics when there is none).
void TakeHeader(const PluginInfoRec* theInfo);

#endif  // VELLUX_PLUGIN_GLOBALS_H
