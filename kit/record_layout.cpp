// Compile-time proof of the host records' byte layout.
//
// The reference layout is the 32-bit one (4-byte pointers, 4-byte alignment of doubles inside
// records); the -m32 build checks every size and offset of it here. The 64-bit build checks what
// holds for any pointer size: the pointer-free records and the packing of the large blocks.
#include <cstddef>

#include "vellux/plugin_records.h"

#define VX_OFFSET(Record, field, at) static_assert(offsetof(Record, field) == (at), #Record "::" #field)
#define VX_SIZE(Record, bytes) static_assert(sizeof(Record) == (bytes), "sizeof " #Record)

// ---- Any pointer size ----
VX_SIZE(L_Rect, 24);
VX_SIZE(ARGB_Color, 8);
VX_SIZE(RGB_Color, 6);
VX_SIZE(RGB_Real, 12);
VX_SIZE(ARGB, 4);
VX_SIZE(DCoordinate, 24);
VX_SIZE(Matrix4, 128);
VX_SIZE(PStr255, 256);
VX_SIZE(PStr31, 32);

VX_SIZE(ControlDataRec, 88);
VX_OFFSET(ControlDataRec, ownerType, 0);
VX_OFFSET(ControlDataRec, ownerVersion, 4);
VX_OFFSET(ControlDataRec, flareIntensity, 8);
VX_OFFSET(ControlDataRec, flareDissolve, 16);
VX_OFFSET(ControlDataRec, flareAnamorphicFactor, 24);
VX_OFFSET(ControlDataRec, flareRingSize, 32);
VX_OFFSET(ControlDataRec, flareStarRotation, 40);
VX_OFFSET(ControlDataRec, flareStreakDensity, 48);
VX_OFFSET(ControlDataRec, flareStreakIntensity, 56);
VX_OFFSET(ControlDataRec, flareStreakSharpness, 64);
VX_OFFSET(ControlDataRec, flareRingColor, 72);
VX_OFFSET(ControlDataRec, flareFlags, 80);
VX_OFFSET(ControlDataRec, flareStarFilter, 84);

// Packed blocks: each field directly after the one before, whatever the pointer size.
constexpr std::size_t kInfo = sizeof(PluginInfoRec);
constexpr std::size_t kPtr = sizeof(void*);
VX_OFFSET(FlareBuffer, bufferRowBytes, kPtr);
VX_OFFSET(FlareBuffer, bufferRect, kPtr + 4);
VX_OFFSET(FlareBuffer, bufferDepth, kPtr + 28);
VX_OFFSET(FlareBuffer, bufferIndex, kPtr + 30);
VX_SIZE(FlareBuffer, kPtr + 34);
VX_SIZE(PluginFlareGenerateRec, kInfo + sizeof(FlareBuffer));
VX_OFFSET(PluginFlareSetupRec, theFrameTime, kInfo + 4);
VX_OFFSET(PluginFlareSetupRec, theLightColor, kInfo + 612);
VX_SIZE(PluginFlareSetupRec, kInfo + 1104);

#if UINTPTR_MAX == 0xFFFFFFFFu
// ---- The 32-bit reference layout ----
VX_SIZE(PluginInfoRec, 24);
VX_OFFSET(PluginInfoRec, theControlData, 0);
VX_OFFSET(PluginInfoRec, theControlDataSize, 4);
VX_OFFSET(PluginInfoRec, thePluginData, 8);
VX_OFFSET(PluginInfoRec, thePluginDataSize, 12);
VX_OFFSET(PluginInfoRec, theHostProc, 16);
VX_OFFSET(PluginInfoRec, theHostReference, 20);

VX_SIZE(PluginInitializeRec, 24);
VX_SIZE(PluginFinishRec, 24);
VX_SIZE(PluginInterfaceRec, 24);
VX_SIZE(PluginFinishChannelRec, 24);

VX_SIZE(PluginInformationRec, 1060);
VX_OFFSET(PluginInformationRec, thePluginType, 24);
VX_OFFSET(PluginInformationRec, thePluginVersion, 28);
VX_OFFSET(PluginInformationRec, thePluginName, 32);
VX_OFFSET(PluginInformationRec, thePluginCopyright, 288);
VX_OFFSET(PluginInformationRec, thePluginAuthor, 544);
VX_OFFSET(PluginInformationRec, thePluginDescription, 800);
VX_OFFSET(PluginInformationRec, thePluginPermission, 1056);

VX_SIZE(PluginCheckRec, 28);
VX_OFFSET(PluginCheckRec, theCommand, 24);
VX_SIZE(PluginDescribeRec, 284);
VX_OFFSET(PluginDescribeRec, theResult, 24);
VX_OFFSET(PluginDescribeRec, theDescription, 28);

VX_SIZE(PluginInitializeChannelRec, 48);
VX_SIZE(PluginUpdateChannelRec, 48);
VX_SIZE(PluginLoadChannelRec, 52);
VX_OFFSET(PluginLoadChannelRec, theStartFrame, 24);
VX_OFFSET(PluginLoadChannelRec, theEndFrame, 28);
VX_OFFSET(PluginLoadChannelRec, theStartTime, 32);
VX_OFFSET(PluginLoadChannelRec, theFrameTime, 40);
VX_OFFSET(PluginLoadChannelRec, theFrame, 48);
VX_OFFSET(PluginUpdateChannelRec, theStartFrame, 24);
VX_OFFSET(PluginUpdateChannelRec, theEndFrame, 28);
VX_OFFSET(PluginUpdateChannelRec, theStartTime, 32);
VX_OFFSET(PluginUpdateChannelRec, theFrameTime, 40);
VX_OFFSET(PluginInitializeChannelRec, theStartFrame, 24);
VX_OFFSET(PluginInitializeChannelRec, theFrameTime, 40);

VX_SIZE(PluginFlareSetupRec, 1128);
VX_OFFSET(PluginFlareSetupRec, theFrameIndex, 24);
VX_OFFSET(PluginFlareSetupRec, theFrameTime, 28);
VX_OFFSET(PluginFlareSetupRec, theFrameTimeDelta, 36);
VX_OFFSET(PluginFlareSetupRec, theFrameRect, 44);
VX_OFFSET(PluginFlareSetupRec, theFrameRect.top, 44);
VX_OFFSET(PluginFlareSetupRec, theFrameRect.left, 48);
VX_OFFSET(PluginFlareSetupRec, theFrameRect.bottom, 52);
VX_OFFSET(PluginFlareSetupRec, theFrameRect.right, 56);
VX_OFFSET(PluginFlareSetupRec, theFrameRect.width, 60);
VX_OFFSET(PluginFlareSetupRec, theFrameRect.height, 64);
VX_OFFSET(PluginFlareSetupRec, theFrameXScale, 68);
VX_OFFSET(PluginFlareSetupRec, theFrameYScale, 76);
VX_OFFSET(PluginFlareSetupRec, theFrameXCenter, 84);
VX_OFFSET(PluginFlareSetupRec, theFrameYCenter, 92);
VX_OFFSET(PluginFlareSetupRec, theBlurShutter, 100);
VX_OFFSET(PluginFlareSetupRec, theCameraMatrix, 108);
VX_OFFSET(PluginFlareSetupRec, theCameraRotMatrix, 236);
VX_OFFSET(PluginFlareSetupRec, theCameraBlurMatrix, 364);
VX_OFFSET(PluginFlareSetupRec, theLightWorldPosition, 492);
VX_OFFSET(PluginFlareSetupRec, theLightBlurWorldPosition, 516);
VX_OFFSET(PluginFlareSetupRec, theLightFramePosition, 540);
VX_OFFSET(PluginFlareSetupRec, theLightBlurFramePosition, 564);
VX_OFFSET(PluginFlareSetupRec, theLightDirection, 588);
VX_OFFSET(PluginFlareSetupRec, theLightBlurDirection, 612);
VX_OFFSET(PluginFlareSetupRec, theLightColor, 636);
VX_OFFSET(PluginFlareSetupRec, theLightIntensity, 640);
VX_OFFSET(PluginFlareSetupRec, theLightDropoff, 648);
VX_OFFSET(PluginFlareSetupRec, theLightWorldRadius, 656);
VX_OFFSET(PluginFlareSetupRec, theLightFrameRadius, 664);
VX_OFFSET(PluginFlareSetupRec, theLightOuterAngle, 672);
VX_OFFSET(PluginFlareSetupRec, theLightInnerAngle, 680);
VX_OFFSET(PluginFlareSetupRec, theLightSoftExponent, 688);
VX_OFFSET(PluginFlareSetupRec, theCameraView, 696);
VX_OFFSET(PluginFlareSetupRec, theCameraZoom, 704);
VX_OFFSET(PluginFlareSetupRec, theCameraXScale, 712);
VX_OFFSET(PluginFlareSetupRec, theCameraYScale, 720);
VX_OFFSET(PluginFlareSetupRec, theCameraXOffset, 728);
VX_OFFSET(PluginFlareSetupRec, theCameraYOffset, 736);
VX_OFFSET(PluginFlareSetupRec, theLightMatrix, 744);
VX_OFFSET(PluginFlareSetupRec, theLightRotMatrix, 872);
VX_OFFSET(PluginFlareSetupRec, theLightBlurMatrix, 1000);

VX_SIZE(FlareBuffer, 38);
VX_SIZE(PluginFlareGenerateRec, 62);
VX_OFFSET(PluginFlareGenerateRec, theFlareBuffer, 24);
VX_OFFSET(PluginFlareGenerateRec, theFlareBuffer.bufferBase, 24);
VX_OFFSET(PluginFlareGenerateRec, theFlareBuffer.bufferRowBytes, 28);
VX_OFFSET(PluginFlareGenerateRec, theFlareBuffer.bufferRect.top, 32);
VX_OFFSET(PluginFlareGenerateRec, theFlareBuffer.bufferRect.left, 36);
VX_OFFSET(PluginFlareGenerateRec, theFlareBuffer.bufferRect.bottom, 40);
VX_OFFSET(PluginFlareGenerateRec, theFlareBuffer.bufferRect.right, 44);
VX_OFFSET(PluginFlareGenerateRec, theFlareBuffer.bufferRect.width, 48);
VX_OFFSET(PluginFlareGenerateRec, theFlareBuffer.bufferRect.height, 52);
VX_OFFSET(PluginFlareGenerateRec, theFlareBuffer.bufferDepth, 56);
VX_OFFSET(PluginFlareGenerateRec, theFlareBuffer.bufferIndex, 58);

VX_SIZE(HostFreeRec, 8);
VX_OFFSET(HostFreeRec, theFreeSize, 4);
VX_SIZE(HostAllocateRec, 20);
VX_OFFSET(HostAllocateRec, theControlData, 4);
VX_OFFSET(HostAllocateRec, theControlDataSize, 8);
VX_OFFSET(HostAllocateRec, thePluginData, 12);
VX_OFFSET(HostAllocateRec, thePluginDataSize, 16);
VX_SIZE(HostMemMallocRec, 12);
VX_OFFSET(HostMemMallocRec, theSize, 4);
VX_OFFSET(HostMemMallocRec, thePtr, 8);
VX_SIZE(HostMemFreeRec, 8);
VX_OFFSET(HostMemFreeRec, thePtr, 4);

VX_SIZE(HostAddChannelRec, 288);
VX_OFFSET(HostAddChannelRec, theChannelID, 4);
VX_OFFSET(HostAddChannelRec, theChannelType, 8);
VX_OFFSET(HostAddChannelRec, theChannelName, 12);
VX_OFFSET(HostAddChannelRec, theChannelDefault, 268);
VX_OFFSET(HostAddChannelRec, theChannelMinimum, 272);
VX_OFFSET(HostAddChannelRec, theChannelMaximum, 276);
VX_OFFSET(HostAddChannelRec, theChannelBefore, 280);
VX_OFFSET(HostAddChannelRec, theChannelReference, 284);
VX_SIZE(HostGetChannelRec, 24);
VX_SIZE(HostSetChannelRec, 24);
VX_OFFSET(HostGetChannelRec, theChannelReference, 4);
VX_OFFSET(HostGetChannelRec, theChannelID, 8);
VX_OFFSET(HostGetChannelRec, theChannelType, 12);
VX_OFFSET(HostGetChannelRec, theChannelFrame, 16);
VX_OFFSET(HostGetChannelRec, theChannelData, 20);
VX_OFFSET(HostSetChannelRec, theChannelReference, 4);
VX_OFFSET(HostSetChannelRec, theChannelID, 8);
VX_OFFSET(HostSetChannelRec, theChannelType, 12);
VX_OFFSET(HostSetChannelRec, theChannelFrame, 16);
VX_OFFSET(HostSetChannelRec, theChannelData, 20);
VX_SIZE(HostResetChannelRec, 4);

VX_SIZE(HostStatusRec, 536);
VX_OFFSET(HostStatusRec, theStatusPos, 4);
VX_OFFSET(HostStatusRec, theStatusUnit, 8);
VX_OFFSET(HostStatusRec, theStatusInfo, 264);
VX_OFFSET(HostStatusRec, theStatusMin, 520);
VX_OFFSET(HostStatusRec, theStatusMax, 524);
VX_OFFSET(HostStatusRec, theStatusValue, 528);
VX_OFFSET(HostStatusRec, theStatusTick, 532);
#endif
