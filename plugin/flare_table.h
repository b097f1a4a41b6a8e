// The flare table: the one flare definition in "Vellux.rsc" (FLAR 1001, a list of runs of RING
// resources), read into the working record's tail as a chain of RingElements, each followed by
// its sorted colour stops. Read when the working record is rebuilt, not per frame.
//
// The table file is big-endian; every field is converted to this machine's order as it is read,
// on the private copy of the resource the host hands out for each request, so no resource is
// ever converted twice.
#ifndef VELLUX_PLUGIN_FLARE_TABLE_H
#define VELLUX_PLUGIN_FLARE_TABLE_H

#include <cstdint>

#include "kit/host_service_types.h"
#include "plugin_data.h"

// ---- File forms ----
struct FlareResRec {            // one run of elements
    IFFType flareElementType;   // only 'RING' is read
    int16_t flareFirstID;
    int16_t flareLastID;        // inclusive
};
struct FlareInfoRec {           // FLAR 1001
    int32_t flareElementCount;
    FlareResRec flareElements[1];   // flareElementCount of them
};
struct RingRes {                // RING: one element, then its stops
    PStr31 ringResName;
    int32_t ringResType;
    uint32_t ringResMode;       // bit 31: never drawn
    int32_t ringResUnits;       // file units per flare unit
    int32_t ringResOffset;      // file units along the axis
    int32_t ringResInside;
    int32_t ringResOutside;
    int32_t ringResColors;      // stops that follow
};

constexpr IFFType kFlareType = MakeIFF("FLAR");
constexpr IFFType kRingType = MakeIFF("RING");
constexpr int16_t kFlareID = 1001;
constexpr int32_t kFlareInfoMinimum = 12;           // a count and one run
constexpr int32_t kRingResHeader = 60;
constexpr uint32_t kRingNeverDrawn = 0x80000000u;

// ---- Conversions, in place ----
void FixFlareInfo(FlareInfoRec* theFlareInfo);      // the count only
void FixFlareRes(FlareResRec* theFlareRes);         // one run (a copy: the resource stays as stored)
void FixRing(RingRes* theRing);                     // the seven fields after the name
void FixElementColor(ElementColor* theColor);       // position and the four 16-bit fields

// ---- Loading ----
// Opens "Vellux.rsc" in the host's home directory into resourceFile when *theResult is 0 and it is
// not open yet; *theResult becomes 1 when it cannot be opened.
void OpenTheResource(int32_t* theResult);

// Reads the flare's elements into the tail from flareElementSize, with flareDataSize the end of
// the space; leaves both at the end of what was loaded. Returns 0, 1 (no room) or 6 (missing or
// short resources). Elements appended before a failure stay linked and counted.
int32_t ReadFlareElements(PluginDataRec* theData, KV_ResourceFile* iResourceFile);

// Appends RING theRingID after *theRingElement (null before the first); *theBase is the next
// free offset and *theSize the free bytes; *result the shared result code.
void ReadRingElement(PluginDataRec* theData, KV_ResourceFile* iResourceFile, int16_t theRingID,
                     RingElement** theRingElement, int32_t* theSize, int32_t* theBase, int32_t* result);

#endif  // VELLUX_PLUGIN_FLARE_TABLE_H
