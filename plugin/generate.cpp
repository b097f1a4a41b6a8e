// GENF: the flare painted into the host's frame or band of it, row by row, rings before streaks,
// with progress reports through the host callback; a non-zero answer stops before the next row.
#include "generate.h"

#include <cstdlib>

#include "commands.h"
#include "globals.h"
#include "host_memory.h"
#include "kit/pstring.h"
#include "kit/rect.h"
#include "kit/ticks.h"
#include "painters.h"
#include "sketch.h"

namespace {

bool IsSupportedDepth(int32_t depth) { return depth == 8 || depth == 32 || depth == 48; }
int32_t BytesPerPixel(int32_t depth) { return depth == 48 ? 6 : depth == 32 ? 4 : 1; }

// A buffer the plug-in can paint without writing outside it: a base for any pixels, and rows
// at least a row of pixels apart (in either direction: rows may run upwards in memory).
bool BufferIsPaintable(const FlareBuffer& buffer) {
    const L_Rect& r = buffer.bufferRect;
    if (r.right <= r.left || r.bottom <= r.top) return true;   // empty: nothing will be written
    const int64_t rowLength = (int64_t(r.right) - r.left) * BytesPerPixel(buffer.bufferDepth);
    return buffer.bufferBase != nullptr && std::llabs(int64_t(buffer.bufferRowBytes)) >= rowLength;
}

float RowPosition(const PluginDataRec* data, int32_t y) {
    const int32_t height = int32_t(data->flareRect.height);
    return height > 0 ? float(y - data->flareRect.top) / float(height) : 0.0f;
}

void PrepareStatus(PluginDataRec* data, const unsigned char* unit, const unsigned char* heading, int32_t max,
                   float pos, int32_t value) {
    HostStatusRec& status = data->theStatusRec;
    status.theReference = sTheHostReference;
    status.theStatusPos = pos;
    CopyPStr(status.theStatusUnit, unit);
    CopyPStr(status.theStatusInfo, heading);
    status.theStatusMin = 0;
    status.theStatusMax = max;
    status.theStatusValue = value;
    status.theStatusTick = 0;
}

typedef void (*RowPainter)(const ControlDataRec*, PluginDataRec*, const L_Rect*, int32_t);

void PaintFlare(ControlDataRec* theControl, PluginDataRec* theData, bool statusFlag, int32_t* result,
                RowPainter paintRings, RowPainter paintStreaks) {
    const L_Rect& buffer = theData->flarePixelBuffer.bufferRect;
    const int32_t frameTop = theData->flareRect.top;
    if (statusFlag) {
        PrepareStatus(theData, PS("Scanline"), PS("Drawing Flare"), int32_t(theData->flareRect.height),
                      RowPosition(theData, buffer.top), buffer.top - frameTop);
        CheckStatus(theData, result);
    }
    int32_t y = buffer.top;
    while (y < buffer.bottom && *result == kNoError) {
        L_Rect row;
        SetLRect(&row, buffer.left, y, buffer.right, y + 1);
        paintRings(theControl, theData, &row, y);
        paintStreaks(theControl, theData, &row, y);
        ++y;
        if (statusFlag && StatusTime(theData)) UpdateStatus(theData, RowPosition(theData, y), y - frameTop, result);
    }
    if (statusFlag) UpdateStatus(theData, RowPosition(theData, y), y - frameTop, result);
}

}  // namespace

bool StatusTime(PluginDataRec* theData) {
    const int32_t tick = theData->theStatusRec.theStatusTick;
    return tick == 0 || TickCount() >= uint32_t(tick);
}

void UpdateStatus(PluginDataRec* theData, float thePos, int32_t theValue, int32_t* result) {
    if (*result != kNoError) return;
    theData->theStatusRec.theStatusValue = theValue;
    theData->theStatusRec.theStatusPos = thePos;
    *result = CallHost(kHostStatus, &theData->theStatusRec);
}

void CheckStatus(PluginDataRec* theData, int32_t* result) {
    if (*result == kNoError && StatusTime(theData)) *result = CallHost(kHostStatus, &theData->theStatusRec);
}

void PrepareSketchStatus(PluginDataRec* theData) {
    PrepareStatus(theData, PS("Element"), PS("Sketching Flare"), theData->flareRingCount, 0.0f, 0);
}

void PaintFlare48(ControlDataRec* theControl, PluginDataRec* theData, bool statusFlag, int32_t* result) {
    PaintFlare(theControl, theData, statusFlag, result, PaintRings48, PaintStreaks48);
}

void PaintFlare32(ControlDataRec* theControl, PluginDataRec* theData, bool statusFlag, int32_t* result) {
    PaintFlare(theControl, theData, statusFlag, result, PaintRings32, PaintStreaks32);
}

int32_t GenerateFlare(ControlDataRec* theControl, PluginDataRec* theData, int16_t theDepth, int32_t statusFlag) {
    int32_t result = kNoError;
    if (theDepth == 48) PaintFlare48(theControl, theData, statusFlag != 0, &result);
    else if (theDepth == 32) PaintFlare32(theControl, theData, statusFlag != 0, &result);
    else SketchFlare(theData, statusFlag != 0, &result);
    return result;
}

int32_t DoGenerate(int32_t theSize, void* theRec) {
    if (theSize < int32_t(sizeof(PluginFlareGenerateRec))) return kIncompatibleRecord;
    const FlareBuffer buffer = static_cast<const PluginFlareGenerateRec*>(theRec)->theFlareBuffer;
    if (!IsSupportedDepth(buffer.bufferDepth)) return kUnsupportedFeature;
    if (!BufferIsPaintable(buffer)) return kIncompatibleRecord;
    const int32_t result = CheckData(false, false);
    if (result != kNoError) return result;
    ControlDataRec* control = LiveControl();
    PluginDataRec* data = LiveData();
    data->theInfo = nullptr;
    data->flareHostProc = sTheHostProc;
    data->flareHostReference = sTheHostReference;
    VelluxBuffer& pixels = data->flarePixelBuffer;
    pixels.bufferBase = buffer.bufferBase;
    pixels.bufferRowBytes = buffer.bufferRowBytes;
    pixels.bufferRect = buffer.bufferRect;
    pixels.bufferDepth = buffer.bufferDepth;
    pixels.bufferIndex = buffer.bufferIndex;
    L_Rect onFrame;
    if (SectLRect(&data->flareRect, &pixels.bufferRect, &onFrame) == 0) {
        pixels.bufferRect = onFrame;
        return kNoError;
    }
    pixels.bufferBase += (int64_t(onFrame.top) - pixels.bufferRect.top) * pixels.bufferRowBytes +
                         (int64_t(onFrame.left) - pixels.bufferRect.left) * BytesPerPixel(pixels.bufferDepth);
    pixels.bufferRect = onFrame;
    return GenerateFlare(control, data, buffer.bufferDepth, 1);
}
