// Types of the host's named services: opaque handles, rectangles and colours, enumerations and
// the callback shapes a plug-in hands to the host.
//
// The host owns every handle; a plug-in never creates one or looks inside it. A null handle means
// none or failure. This header is shared by the kit's service table (plug-in side) and by any host
// that implements the services, so it declares types only.
#ifndef VELLUX_KIT_HOST_SERVICE_TYPES_H
#define VELLUX_KIT_HOST_SERVICE_TYPES_H

#include <cstdint>

// ---- Opaque handles: each a record of one int, known to the host only ----
struct KV_Control { int data; };
struct KV_Dialog { int data; };
struct KV_ResourceFile { int data; };
struct KV_DiskImage { int data; };
struct KV_ImageBuffer { int data; };
struct KV_DrawContext { int data; };
struct KV_DirectoryRef { int data; };
struct KV_FileRef { int data; };
struct KV_Stream { int data; };
struct KV_Timer { int data; };
struct KV_Cursor { int data; };

// ---- Plain records passed by pointer ----
struct KV_Color {               // 3 bytes
    uint8_t red;
    uint8_t green;
    uint8_t blue;
};

struct KV_Rect {                // note the order: left, top, right, bottom (L_Rect differs)
    int left;
    int top;
    int right;
    int bottom;
};

// ---- Enumerations (fixed values) ----
enum KV_ControlType : int {
    cKV_NoControlType = 0,
    cKV_PushButton = 1,
    cKV_CheckBox = 2,
    cKV_RadioGroup = 3,
    cKV_DividerLine = 4,
    cKV_GroupBox = 5,
    cKV_TabGroup = 6,
    cKV_ColorSlider = 7,
    cKV_Scroller = 8,
    cKV_StaticText = 9,
    cKV_EditText = 10,
    cKV_ColorButton = 11,
    cKV_ListBox = 12,
    cKV_PopupMenu = 13,
    cKV_Picture = 14,
    cKV_UserControl = 15,
    cKV_OpenGLControl = 16,
};

enum KV_EditFilterType : int {
    cKV_NoFilter = 0,
    cKV_UnsignedInt = 1,
    cKV_SignedInt = 2,
    cKV_UnsignedFloat = 3,
    cKV_SignedFloat = 4,
    cKV_Custom = 5,
};

enum KV_PenMode : int {
    cKV_PenColor = 0,
    cKV_PenXOR = 1,
};

enum KV_StreamAccess : int {
    cKV_ReadOnly = 0,
    cKV_WriteOnly = 1,
    cKV_ReadWrite = 2,
};

// ---- Callbacks the plug-in implements ----
typedef void (*KV_UserDrawFunction)(const KV_Control* iControl, KV_DrawContext* iContext);
typedef int (*KV_UserClickFunction)(KV_Control* iControl, KV_DrawContext* iContext,
                                    int iModifierKeys, int iClickH, int iClickV);
typedef void (*KV_ControlHitFunction)(KV_Control* iControl, KV_DrawContext* iContext);

// ---- Callbacks only passed through to the host (argument lists are ours) ----
typedef int (*KV_EditFilterFunction)(KV_Control* iControl, int iCharacter);
typedef void (*KV_ListDoubleClickFunction)(KV_Control* iControl, int iItem);
typedef void (*KV_ListReorderFunction)(KV_Control* iControl, int iFromItem, int iToItem);
typedef void (*KV_DialogHitFunction)(KV_Dialog* iDialog, KV_Control* iControl);
typedef void (*KV_TimerFunction)(KV_Timer* iTimer);
typedef void (*KV_GLDrawFunction)(KV_Control* iControl);
typedef int (*KV_GLClickFunction)(KV_Control* iControl, int iModifierKeys, int iClickH, int iClickV);
typedef int (*KV_DialogKeyFilter)(KV_Dialog* iDialog, int iKey, int iModifierKeys);
typedef void (*KV_UserMouseMovedFunction)(KV_Control* iControl, KV_DrawContext* iContext,
                                          int iMouseH, int iMouseV);
typedef void (*KV_GLMouseMovedFunction)(KV_Control* iControl, int iMouseH, int iMouseV);

#endif  // VELLUX_KIT_HOST_SERVICE_TYPES_H
