// The working record: PluginDataRec, held by the host in one block that it may move between
// calls. A fixed part comes first; the tail after it holds the flare's loaded elements, then the
// per-frame colour tables and streaks. Everything in the tail is linked by byte offsets from the
// start of the record, never by pointers.
//
//   Sections
//   1. Records of the tail ........ ElementColor, FlareColor, RingElement, VXEdgeRecord, StreakElement
//   2. Pixel buffer ............... VelluxBuffer
//   3. The working record ......... PluginDataRec, its fixed size F
//   4. Validation and sizing ...... CheckData and its steps, defaults, reset requests
#ifndef VELLUX_PLUGIN_PLUGIN_DATA_H
#define VELLUX_PLUGIN_PLUGIN_DATA_H

#include <cstdint>

#include "vellux/plugin_records.h"

// ---------------------------------------------------------------------------------------------
// 1. Records of the tail
// ---------------------------------------------------------------------------------------------

// One colour stop: the file form (hsv view, big-endian position in file units) and the loaded
// form (rgb view, radius as a fraction of the element's outer radius, colour 0 to 16320).
union ElementColor {
    struct {
        int32_t position;
        uint16_t alpha;
        uint16_t hue;
        uint16_t saturation;
        uint16_t value;
    } hsv;
    struct {
        float radius;
        uint16_t alpha;
        uint16_t red;
        uint16_t green;
        uint16_t blue;
    } rgb;
};

// One entry of an element's colour table (0 to 16320 per channel); also a 48-bit pixel.
struct FlareColor {
    uint16_t red;
    uint16_t green;
    uint16_t blue;
};

// One flare element as loaded from the table, with its per-frame geometry.
struct RingElement {
    PStr31 ringName;
    float ringPosition;         // along the axis from the frame centre (0) to the light (1)
    float ringInner;            // flare units
    float ringOuter;            // flare units
    float ringScale;
    float ringIntensity;
    ARGB_Color ringColor;
    int32_t ringNext;           // offset of the next element, 0 in the last
    int32_t ringType;
    uint32_t ringMode;          // bit 31: never drawn
    int32_t ringElementColors;  // stops stored directly after the element
    L_Rect ringRect;            // per frame: pixel bounds
    float ringXPos, ringYPos;   // per frame: centre, pixels
    float ringXRadius, ringYRadius;
    float ringXFactor, ringYFactor;     // 16.16 ellipse-to-circle factors
    int32_t ringFlareColors;    // per frame: colour table entries, 0 = not drawn
    int32_t ringFlareColorBase; // per frame: offset of the colour table
    void* ringLabelChannel;     // per-element channel slots; nothing publishes them
    void* ringVisibleChannel;
    void* ringScaleChannel;
    void* ringIntensityChannel;
    void* ringColorChannel;
    void* ringEndChannel;
};

// One polygon edge prepared for row-by-row stepping.
struct VXEdgeRecord {
    int32_t curXPos;            // column on the current row
    int32_t y1;                 // first row to use / row last used; 32767 = inactive
    int32_t y2;                 // last row, inclusive
    float step;                 // dx per row
    float xPos;                 // exact x
};
typedef VXEdgeRecord* EdgePtr;
typedef VXEdgeRecord EdgeList[4];

// One streak of the star.
struct StreakElement {
    float streakAngle;          // radians; x follows sin, y follows cos
    float streakLength;         // flare units
    float streakWidth;          // half-width, flare units
    RGB_Real streakColor;
    uint32_t streakMode;        // bits 0-1 kind, bit 31 two-sided
    int32_t streakNext;         // offset of the next streak, 0 in the last
    L_Rect streakRect;
    float streakXLength, streakYLength;
    float streakXWidth, streakYWidth;
    EdgeList streakEdges;
    int32_t streakXMin;         // span on the current row, set by the painter
    int32_t streakXMax;
};

// ---------------------------------------------------------------------------------------------
// 2. Pixel buffer
// ---------------------------------------------------------------------------------------------

// The buffer being painted: pixel (x, y) is at bufferBase + bufferRowBytes * (y - bufferRect.top)
// + (x - bufferRect.left) * bytes per pixel.
struct VelluxBuffer {
    uint8_t* bufferBase;
    int32_t bufferRowBytes;
    L_Rect bufferRect;
    int32_t bufferDepth;        // 48, 32 or 8
    int32_t bufferIndex;        // palette index of the 8-bit sketch
};
typedef VelluxBuffer* VelluxBufferPtr;

// ---------------------------------------------------------------------------------------------
// 3. The working record
// ---------------------------------------------------------------------------------------------

struct LookupElement {
    float value;                // exp(-(3 i / 1024)^1.5)
    float index;                // i
};
constexpr int32_t kLookupEntries = 1024;

struct PluginDataRec {
    PluginInfoPtr theInfo;              // unused; left null
    HostStatusRec theStatusRec;         // progress record sent with STAT
    VelluxBuffer flarePixelBuffer;      // the buffer of the current generation
    float flareXScale, flareYScale;     // pixels per flare unit
    float flareXCenter, flareYCenter;   // frame centre
    float flareXPosition, flareYPosition;           // light on the frame
    float flareBlurXPosition, flareBlurYPosition;   // light at shutter close (unused)
    float flareLightIntensity;
    float flareLightRotation;           // degrees (unused)
    float flareLightSize;               // glow size factor (flag bit 22)
    L_Rect flareRect;                   // frame rectangle
    KVPluginRoutine flareHostProc;      // copies of the current callback and cookie
    void* flareHostReference;
    ARGB flareLightColor;
    void* flareLabelChannel;            // animation channels, in publishing order
    void* flareIntensityChannel;
    void* flareDissolveChannel;
    void* flareRotationChannel;         // reserved
    void* flareAnamorphicFactorChannel;
    void* flareRingSizeChannel;
    void* flareRingColorChannel;
    void* flareStarRotationChannel;
    void* flareStreakDensityChannel;
    void* flareStreakIntensityChannel;
    void* flareStreakSharpnessChannel;
    void* flareEndChannel;
    int32_t flareRingCount;
    int32_t flareStreakCount;
    int32_t flareRingFirst;             // offset of the first RingElement
    int32_t flareStreakFirst;           // offset of the first StreakElement
    int32_t flareElementSize;           // end of the loaded elements
    int32_t flareDataSize;              // end of the data in use (while filling: of the space)
    int32_t flareReset;                 // non-zero: derived data must be recomputed
    LookupElement flareLookup[kLookupEntries];  // streak falloff table
};

// F: the size of the fixed part, where the tail begins.
constexpr int32_t kPluginDataFixedSize = int32_t(sizeof(PluginDataRec));

// A record of the tail at a byte offset of the working record.
template <typename Record>
Record* TailRecord(PluginDataRec* theData, int32_t offset) {
    return reinterpret_cast<Record*>(reinterpret_cast<uint8_t*>(theData) + offset);
}

// The loaded element at a byte offset, or null when the offset does not hold a whole element
// inside the loaded-elements area (from F to flareElementSize).
RingElement* RingAt(PluginDataRec* theData, int32_t offset);

// ---------------------------------------------------------------------------------------------
// 4. Validation and sizing (every working command runs CheckData first)
// ---------------------------------------------------------------------------------------------

// Sizes of host blocks are compared after rounding up to a multiple of 8.
int32_t RoundSize(int32_t size);

// Accepts, converts or defaults the control record, then brings the working record up to date:
// rebuilt (setPluginData, or invalid) or re-laid out (flareReset). Steady state: no host call.
int32_t CheckData(bool setControlData, bool setPluginData);
void CheckPluginData(bool setPluginData, bool resetPluginData, int32_t* theResult);
void DefaultData(PluginDataRec* theData);

// The live records after CheckData succeeded (null before).
ControlDataRec* LiveControl();
PluginDataRec* LiveData();

// Reset requests for the next CheckData: re-lay out everything, or reload the elements first.
void ResetFlareColors();
void ResetFlareElements();

#endif  // VELLUX_PLUGIN_PLUGIN_DATA_H
