// Vellux host interface: the records a host and the plug-in exchange, and the one entry `Main`.
//
// This is the only public header of the plug-in. Every record here is part of the wire contract
// with the host and is declared field by field in contract order with fixed-width types.
//
//   Sections
//   1. Basic types ........ four-character codes, result codes, strings, rectangles, colours
//   2. Common header ...... PluginInfoRec, KVPluginRoutine, Main
//   3. Command blocks ..... INIT FINI INFO CHEK DESC, channel commands, SETF, GENF, INTF
//   4. Host callbacks ..... FREE ALOC MMAL MFRE, ACHN GCHN SCHN RCHN, STAT
//   5. Persistent record .. ControlDataRec and its flag bits
//
// Layout rules. Records use natural alignment, except the three large host records
// PluginFlareSetupRec, PluginFlareGenerateRec and FlareBuffer, which the host lays out on
// 2-byte boundaries. PluginInfoRec is declared outside any packing and embedded as the first
// member of every command block. The reference byte layout is the 32-bit one (4-byte pointers);
// a 64-bit build gets larger records from the same declarations, and all size checks in the code
// use sizeof, never a number.
#ifndef VELLUX_PLUGIN_RECORDS_H
#define VELLUX_PLUGIN_RECORDS_H

#include <cstdint>

// ---------------------------------------------------------------------------------------------
// 1. Basic types
// ---------------------------------------------------------------------------------------------

// A four-character code, first character in the most significant byte: 'INIT' is 0x494E4954.
typedef uint32_t IFFType;

constexpr IFFType MakeIFF(const char (&code)[5]) {
    return (IFFType(uint8_t(code[0])) << 24) | (IFFType(uint8_t(code[1])) << 16) |
           (IFFType(uint8_t(code[2])) << 8) | IFFType(uint8_t(code[3]));
}

// Result codes shared by Main, every handler and the host callback. Fixed numbers; never renumbered.
enum : int32_t {
    kNoError = 0,               // "No plug-in error"
    kMemoryError = 1,           // "Plug-in could not allocate needed memory"
    kUnsupportedCommand = 2,    // "Unsupported plug-in command was received"
    kIncompatibleRecord = 3,    // "Incompatible plug-in parameter record was received"
    kUserCanceled = 4,          // "The user canceled the plug-in operation"
    kOutOfSequence = 5,         // "A plug-in command was received out of sequence"
    kMissingResource = 6,       // "Plug-in could not get a required resource"
    kUnsupportedFeature = 8,    // "A requested plug-in feature or mode is not supported"
};

// Length-prefixed strings: byte 0 is the length, the characters follow; nothing marks the end.
typedef unsigned char PStr255[256];
typedef unsigned char PStr31[32];
typedef unsigned char* PStrPtr;

// A pixel rectangle; right and bottom are exclusive. Built with SetLRect (left, top, right, bottom).
struct L_Rect {
    int32_t top;
    int32_t left;
    int32_t bottom;
    int32_t right;
    uint32_t width;
    uint32_t height;
};
typedef L_Rect* LRectPtr;

// Colours. 16320 (= 255 x 64) is a full channel inside the plug-in.
struct ARGB_Color {     // 16-bit components, signed as the host declares them
    int16_t alpha;
    int16_t red;
    int16_t green;
    int16_t blue;
};
struct RGB_Color {
    int16_t red;
    int16_t green;
    int16_t blue;
};
struct RGB_Real {
    float r;
    float g;
    float b;
};
struct ARGB {           // one 32-bit colour seen as the bytes a, r, g, b in memory order
    uint8_t a;
    uint8_t r;
    uint8_t g;
    uint8_t b;
};

struct DCoordinate {
    double x;
    double y;
    double z;
};
struct Matrix4 {
    double m00, m01, m02, m03;
    double m10, m11, m12, m13;
    double m20, m21, m22, m23;
    double m30, m31, m32, m33;
};

// ---------------------------------------------------------------------------------------------
// 2. Common header and entry
// ---------------------------------------------------------------------------------------------

// The host callback: (selector, record size, record) -> result code. Every record sent through it
// starts with the host reference taken from PluginInfoRec::theHostReference.
typedef int32_t (*KVPluginRoutine)(IFFType selector, int32_t size, void* record);

// The header at the start of every command block.
struct PluginInfoRec {
    uint8_t* theControlData;        // persistent ControlDataRec, host-owned; may be null
    int32_t theControlDataSize;     // its size as the host holds it (0 when none)
    uint8_t* thePluginData;         // working record, host-owned; may be null
    int32_t thePluginDataSize;      // its size
    KVPluginRoutine theHostProc;    // host callback; null when the host offers none
    void* theHostReference;         // opaque host cookie, first field of every callback record
};
typedef PluginInfoRec* PluginInfoPtr;

extern "C" int32_t Main(IFFType command, int32_t theCommandRecSize, void* theCommandRec);

// Command codes.
constexpr IFFType kCmdCheck = MakeIFF("CHEK");
constexpr IFFType kCmdDescribe = MakeIFF("DESC");
constexpr IFFType kCmdFinishChannel = MakeIFF("FCHN");
constexpr IFFType kCmdFinish = MakeIFF("FINI");
constexpr IFFType kCmdGenerate = MakeIFF("GENF");
constexpr IFFType kCmdInitializeChannel = MakeIFF("ICHN");
constexpr IFFType kCmdInformation = MakeIFF("INFO");
constexpr IFFType kCmdInitialize = MakeIFF("INIT");
constexpr IFFType kCmdInterface = MakeIFF("INTF");
constexpr IFFType kCmdLoadChannel = MakeIFF("LCHN");
constexpr IFFType kCmdSetup = MakeIFF("SETF");
constexpr IFFType kCmdUpdateChannel = MakeIFF("UCHN");

// ---------------------------------------------------------------------------------------------
// 3. Command blocks
// ---------------------------------------------------------------------------------------------

struct PluginInitializeRec {    // INIT
    PluginInfoRec theInfo;
};
struct PluginFinishRec {        // FINI
    PluginInfoRec theInfo;
};

struct PluginInformationRec {   // INFO: filled by the plug-in
    PluginInfoRec theInfo;
    IFFType thePluginType;
    int32_t thePluginVersion;
    PStr255 thePluginName;
    PStr255 thePluginCopyright;
    PStr255 thePluginAuthor;
    PStr255 thePluginDescription;
    uint32_t thePluginPermission;
};

struct PluginCheckRec {         // CHEK: is theCommand supported?
    PluginInfoRec theInfo;
    IFFType theCommand;
};

struct PluginDescribeRec {      // DESC: the text of a result code
    PluginInfoRec theInfo;
    int32_t theResult;
    PStr255 theDescription;
};

// Channel commands. Only the frame numbers are read; the times are carried for the host.
struct PluginInitializeChannelRec {     // ICHN
    PluginInfoRec theInfo;
    int32_t theStartFrame;
    int32_t theEndFrame;
    double theStartTime;
    double theFrameTime;
};
struct PluginUpdateChannelRec {         // UCHN
    PluginInfoRec theInfo;
    int32_t theStartFrame;
    int32_t theEndFrame;
    double theStartTime;
    double theFrameTime;
};
struct PluginLoadChannelRec {           // LCHN
    PluginInfoRec theInfo;
    int32_t theStartFrame;
    int32_t theEndFrame;
    double theStartTime;
    double theFrameTime;
    int32_t theFrame;
};
struct PluginFinishChannelRec {         // FCHN
    PluginInfoRec theInfo;
};

struct PluginInterfaceRec {             // INTF: the settings dialog
    PluginInfoRec theInfo;
};

#pragma pack(push, 2)

// SETF: the frame's camera and the light. Doubles sit on 2-byte boundaries.
struct PluginFlareSetupRec {
    PluginInfoRec theInfo;
    int32_t theFrameIndex;
    double theFrameTime;
    double theFrameTimeDelta;
    L_Rect theFrameRect;
    double theFrameXScale;
    double theFrameYScale;
    double theFrameXCenter;
    double theFrameYCenter;
    double theBlurShutter;
    Matrix4 theCameraMatrix;
    Matrix4 theCameraRotMatrix;
    Matrix4 theCameraBlurMatrix;
    DCoordinate theLightWorldPosition;
    DCoordinate theLightBlurWorldPosition;
    DCoordinate theLightFramePosition;
    DCoordinate theLightBlurFramePosition;
    DCoordinate theLightDirection;
    DCoordinate theLightBlurDirection;
    ARGB theLightColor;
    double theLightIntensity;
    double theLightDropoff;
    double theLightWorldRadius;
    double theLightFrameRadius;
    double theLightOuterAngle;
    double theLightInnerAngle;
    double theLightSoftExponent;
    double theCameraView;
    double theCameraZoom;
    double theCameraXScale;
    double theCameraYScale;
    double theCameraXOffset;
    double theCameraYOffset;
    Matrix4 theLightMatrix;
    Matrix4 theLightRotMatrix;
    Matrix4 theLightBlurMatrix;
};

// The host's pixel buffer: the whole frame or a band of it.
struct FlareBuffer {
    uint8_t* bufferBase;        // pixel at (bufferRect.left, bufferRect.top)
    int32_t bufferRowBytes;
    L_Rect bufferRect;          // frame coordinates
    int16_t bufferDepth;        // 48, 32 or 8 bits per pixel
    int32_t bufferIndex;        // palette index of the 8-bit sketch
};

// GENF.
struct PluginFlareGenerateRec {
    PluginInfoRec theInfo;
    FlareBuffer theFlareBuffer;
};

#pragma pack(pop)

// ---------------------------------------------------------------------------------------------
// 4. Host callback records. theReference is always PluginInfoRec::theHostReference.
// ---------------------------------------------------------------------------------------------

constexpr IFFType kHostFree = MakeIFF("FREE");
constexpr IFFType kHostAllocate = MakeIFF("ALOC");
constexpr IFFType kHostMemMalloc = MakeIFF("MMAL");
constexpr IFFType kHostMemFree = MakeIFF("MFRE");
constexpr IFFType kHostAddChannel = MakeIFF("ACHN");
constexpr IFFType kHostGetChannel = MakeIFF("GCHN");
constexpr IFFType kHostSetChannel = MakeIFF("SCHN");
constexpr IFFType kHostResetChannel = MakeIFF("RCHN");
constexpr IFFType kHostStatus = MakeIFF("STAT");

struct HostFreeRec {            // FREE: how many bytes can the working record have?
    void* theReference;
    int32_t theFreeSize;        // out
};

struct HostAllocateRec {        // ALOC: resize both records, keeping their contents
    void* theReference;
    uint8_t* theControlData;    // in/out
    int32_t theControlDataSize; // in: wanted, out: given
    uint8_t* thePluginData;     // in/out
    int32_t thePluginDataSize;  // in: wanted, out: given
};

struct HostMemMallocRec {       // MMAL: general allocation for kit code
    void* theReference;
    uint32_t theSize;
    void* thePtr;               // in/out
};

struct HostMemFreeRec {         // MFRE
    void* theReference;
    void* thePtr;
};

// Channel types.
constexpr IFFType kChannelLabel = MakeIFF("LABL");
constexpr IFFType kChannelReal = MakeIFF("REAL");
constexpr IFFType kChannelColor = MakeIFF("CRGB");
constexpr IFFType kChannelEnd = MakeIFF("LEND");

struct HostAddChannelRec {      // ACHN: publish a channel
    void* theReference;
    int32_t theChannelID;
    IFFType theChannelType;
    PStr255 theChannelName;
    void* theChannelDefault;
    void* theChannelMinimum;
    void* theChannelMaximum;
    void* theChannelBefore;
    void* theChannelReference;  // out: the new channel
};

struct HostGetChannelRec {      // GCHN: the channel's value at a frame
    void* theReference;
    void* theChannelReference;
    int32_t theChannelID;       // in/out: the host writes back what it found
    IFFType theChannelType;     // in/out
    int32_t theChannelFrame;
    void* theChannelData;       // out: pointer to the value, valid until the next host call
};

struct HostSetChannelRec {      // SCHN: key the channel at a frame
    void* theReference;
    void* theChannelReference;
    int32_t theChannelID;
    IFFType theChannelType;
    int32_t theChannelFrame;
    void* theChannelData;       // in: pointer to the value
};

struct HostResetChannelRec {    // RCHN: drop every channel published for this record
    void* theReference;
};

struct HostStatusRec {          // STAT: progress report; a non-zero answer stops the work
    void* theReference;
    float theStatusPos;         // 0.0 to 1.0
    PStr255 theStatusUnit;
    PStr255 theStatusInfo;
    int32_t theStatusMin;
    int32_t theStatusMax;
    int32_t theStatusValue;
    int32_t theStatusTick;      // tick before which no further report is wanted; 0 = at once
};

// ---------------------------------------------------------------------------------------------
// 5. The persistent record, stored by the host with the scene in the writer's byte order
// ---------------------------------------------------------------------------------------------

constexpr IFFType kVelluxOwner = MakeIFF("VLUX");
constexpr int32_t kVelluxVersion = 1;

struct ControlDataRec {
    IFFType ownerType;              // 'VLUX'
    int32_t ownerVersion;           // 1
    double flareIntensity;
    double flareDissolve;           // 0 to 1
    double flareAnamorphicFactor;
    double flareRingSize;
    double flareStarRotation;       // degrees
    double flareStreakDensity;
    double flareStreakIntensity;
    double flareStreakSharpness;
    ARGB_Color flareRingColor;
    uint32_t flareFlags;            // switches, below
    int32_t flareStarFilter;        // 0 = none
};
typedef ControlDataRec* ControlDataPtr;

// flareFlags bits (bit 31 is the most significant). Bits 21 to 0 are kept as stored.
enum : uint32_t {
    kFlagAnamorphic = 0x80000000u,      // 31: rings and streaks use flareAnamorphicFactor
    kFlagGlow = 0x40000000u,            // 30: glow elements shown
    kFlagGlowInLightColor = 0x20000000u,// 29: glow in the light's colour instead of white
    kFlagHalo = 0x10000000u,            // 28: halo shown
    kFlagReflections = 0x08000000u,     // 27: reflections shown
    kFlagAnamorphicStreak = 0x04000000u,// 26: one extra fixed streak
    kFlagStreaksOffFrame = 0x02000000u, // 25: streaks even when the light is off the frame
    kFlagRandomStreaks = 0x01000000u,   // 24: the random spray
    kFlagWireframePreview = 0x00800000u,// 23: the preview sketches outlines
    kFlagFollowLightSize = 0x00400000u, // 22: glow size follows the light's on-frame radius
};

#endif  // VELLUX_PLUGIN_RECORDS_H
