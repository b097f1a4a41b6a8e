#include "preview.h"

#include <cstdlib>
#include <cstring>

#include "generate.h"
#include "globals.h"
#include "kit/host_services.h"
#include "kit/rect.h"
#include "plugin_data.h"

bool previewWireframeFlag = false;

namespace {

KV_ImageBuffer* previewBuffer = nullptr;   // 32-bit pixels covering the control inset by 1
char* wireframeBuffer = nullptr;           // the sketch's band: width x 10 bytes
int32_t previewScanline = 0;               // next row to render, in the buffer's coordinates
float previewXPos = 0.25f;                 // the light, as fractions of the preview's size
float previewYPos = 0.25f;

constexpr int32_t kSketchBandRows = 10;
constexpr float kStartPosition = 0.25f;

PluginDataRec* WorkingData() { return reinterpret_cast<PluginDataRec*>(sThePluginData); }

bool WorkingDataHasFixedPart() { return sThePluginData != nullptr && sThePluginDataSize >= kPluginDataFixedSize; }

KV_Rect InsetBounds(const KV_Control* control) {
    KV_Rect bounds{};
    KV_GetControlBounds(control, &bounds);
    KV_InsetRect(&bounds, 1, 1);
    return bounds;
}

// The synthetic frame: the preview's own size, scaled by its smaller side, the light where the
// artist put it, a white light (black in the sketch, which plots outlines only).
void DescribePreviewFrame(PluginDataRec* data, int32_t width, int32_t height) {
    SetLRect(&data->flareRect, 0, 0, width, height);
    const float scale = float(width < height ? width : height);
    data->flareXScale = scale;
    data->flareYScale = scale;
    data->flareXCenter = float(0.5 * width);
    data->flareYCenter = float(0.5 * height);
    data->flareXPosition = previewXPos * float(width);
    data->flareYPosition = previewYPos * float(height);
    const uint8_t light = previewWireframeFlag ? 0 : 255;
    data->flareLightColor = ARGB{light, light, light, light};
    data->flareLightIntensity = 1.0f;
    data->flareLightSize = 0.0f;
    VelluxBuffer& buffer = data->flarePixelBuffer;
    buffer.bufferBase = nullptr;
    buffer.bufferRowBytes = KV_GetBufferRowBytes(previewBuffer);
    buffer.bufferRect = data->flareRect;
    buffer.bufferDepth = 32;
    buffer.bufferIndex = 0;
}

// One scan line at a time through the 32-bit painters, each row cleared first.
void RenderPainted(PluginDataRec* data, const KV_Rect& bounds, uint8_t* row, int32_t rowBytes) {
    const int32_t width = bounds.right - bounds.left;
    VelluxBuffer& buffer = data->flarePixelBuffer;
    buffer.bufferRowBytes = rowBytes;
    buffer.bufferDepth = 32;
    buffer.bufferIndex = 0;
    int32_t result = kNoError;
    while (previewScanline < bounds.bottom && result == kNoError) {
        std::memset(row, 0, size_t(width) * 4);
        buffer.bufferBase = row;
        const int32_t r = previewScanline - bounds.top;
        SetLRect(&buffer.bufferRect, 0, r, width, r + 1);
        L_Rect overlap;
        if (SectLRect(&buffer.bufferRect, &data->flareRect, &overlap) != 0)
            result = GenerateFlare(LiveControl(), data, 32, 0);
        row += rowBytes;
        ++previewScanline;
    }
}

// A sketched band to the image: outline points (0) opaque white, the rest opaque black.
void CopySketchBand(const uint8_t* band, int32_t width, int32_t rows, uint8_t*& row, int32_t rowBytes) {
    for (int32_t y = 0; y < rows; ++y, band += width, row += rowBytes) {
        for (int32_t x = 0; x < width; ++x) {
            const uint8_t shade = band[x] == 0 ? 255 : 0;
            uint8_t* pixel = row + size_t(x) * 4;
            pixel[0] = 255;
            pixel[1] = shade;
            pixel[2] = shade;
            pixel[3] = shade;
        }
    }
}

// Bands of 10 rows (the last one shorter) sketched into the one-byte band buffer.
void RenderSketch(PluginDataRec* data, const KV_Rect& bounds, uint8_t* row, int32_t rowBytes) {
    if (wireframeBuffer == nullptr) return;
    const int32_t width = bounds.right - bounds.left;
    VelluxBuffer& buffer = data->flarePixelBuffer;
    buffer.bufferBase = reinterpret_cast<uint8_t*>(wireframeBuffer);
    buffer.bufferRowBytes = width;
    buffer.bufferDepth = 8;
    buffer.bufferIndex = 0;
    int32_t result = kNoError;
    while (previewScanline < bounds.bottom && result == kNoError) {
        const int32_t bandRows = bounds.bottom - previewScanline < kSketchBandRows ? bounds.bottom - previewScanline
                                                                                  : kSketchBandRows;
        std::memset(wireframeBuffer, 255, size_t(bandRows) * size_t(width));
        const int32_t r = previewScanline - bounds.top;
        SetLRect(&buffer.bufferRect, 0, r, width, r + bandRows);
        L_Rect overlap;
        if (SectLRect(&buffer.bufferRect, &data->flareRect, &overlap) != 0)
            result = GenerateFlare(LiveControl(), data, 8, 0);
        if (result == kNoError) {
            CopySketchBand(reinterpret_cast<const uint8_t*>(wireframeBuffer), width, bandRows, row, rowBytes);
            previewScanline += bandRows;
        }
    }
}

}  // namespace

void InitPreview(KV_Dialog* theDialog, int theItem) {
    FinishPreview();   // a dialog that never closed its preview must not leak it
    KV_Control* control = KV_FindControlByID(theDialog, theItem);
    if (control == nullptr) return;
    KV_Rect bounds = InsetBounds(control);
    previewBuffer = KV_MakeImageBuffer(&bounds);
    if (previewBuffer != nullptr) ErasePreview();
    const int32_t width = bounds.right - bounds.left;
    if (width > 0) wireframeBuffer = static_cast<char*>(std::malloc(size_t(width) * kSketchBandRows));
    previewScanline = bounds.top;
    previewXPos = kStartPosition;
    previewYPos = kStartPosition;
    KV_InvalControl(control);
}

int32_t SetupPreview() {
    if (previewBuffer == nullptr) return kNoError;
    KV_Rect bounds{};
    KV_GetBufferBounds(previewBuffer, &bounds);
    previewScanline = bounds.top;
    // A working record that lost its fixed part (a failed rebuild) is built again first, so the
    // frame has somewhere to go.
    if (!WorkingDataHasFixedPart()) {
        const int32_t result = CheckData(false, false);
        if (result != kNoError) return result;
    }
    DescribePreviewFrame(WorkingData(), bounds.right - bounds.left, bounds.bottom - bounds.top);
    ResetFlareColors();
    return CheckData(false, false);
}

void UpdatePreview() {
    if (previewBuffer == nullptr || !WorkingDataHasFixedPart() || sTheControlData == nullptr) return;
    KV_Rect bounds{};
    KV_GetBufferBounds(previewBuffer, &bounds);
    const int32_t rowBytes = KV_GetBufferRowBytes(previewBuffer);
    uint8_t* base = KV_GetBufferBaseAddress(previewBuffer);
    if (base == nullptr) return;
    if (previewScanline < bounds.top) previewScanline = bounds.top;
    if (previewScanline >= bounds.bottom) return;
    uint8_t* row = base + ptrdiff_t(previewScanline - bounds.top) * rowBytes;
    PluginDataRec* data = WorkingData();
    data->theInfo = nullptr;
    data->flareHostProc = sTheHostProc;
    data->flareHostReference = sTheHostReference;
    if (previewWireframeFlag) RenderSketch(data, bounds, row, rowBytes);
    else RenderPainted(data, bounds, row, rowBytes);
}

void PreviewWindow(const KV_Control* iControl, KV_DrawContext* iContext) {
    UpdatePreview();
    KV_Rect bounds{};
    KV_GetControlBounds(iControl, &bounds);
    KV_FrameRect(iContext, &bounds);
    if (previewBuffer == nullptr) return;
    KV_Rect source{};
    KV_GetBufferBounds(previewBuffer, &source);
    KV_InsetRect(&bounds, 1, 1);
    KV_DrawImage(iContext, previewBuffer, &source, &bounds);
}

int PreviewHitFunction(KV_Control* iControl, KV_DrawContext* iContext, int, int iClickH, int iClickV) {
    const KV_Rect r = InsetBounds(iControl);
    while (KV_TrackMouseDown(iControl, &iClickH, &iClickV) != 0) {
        int h = iClickH > r.left ? iClickH : r.left;
        if (!(h < r.right - 1)) h = r.right - 1;
        int v = iClickV > r.top ? iClickV : r.top;
        if (!(v < r.bottom - 1)) v = r.bottom - 1;
        iClickH = h;
        iClickV = v;
        previewXPos = float(double(h - r.left) / double(r.right - r.left));
        previewYPos = float(double(v - r.top) / double(r.bottom - r.top));
        SetupPreview();
        PreviewWindow(iControl, iContext);
    }
    return 0;
}

void FinishPreview() {
    if (previewBuffer != nullptr) KV_DestroyImageBuffer(previewBuffer);
    previewBuffer = nullptr;
    if (wireframeBuffer != nullptr) std::free(wireframeBuffer);
    wireframeBuffer = nullptr;
}

void ErasePreview() {
    if (previewBuffer == nullptr) return;
    KV_Rect bounds{};
    KV_GetBufferBounds(previewBuffer, &bounds);
    const int32_t rowBytes = KV_GetBufferRowBytes(previewBuffer);
    uint8_t* row = KV_GetBufferBaseAddress(previewBuffer);
    if (row == nullptr || bounds.right <= bounds.left) return;
    for (int32_t y = bounds.top; y < bounds.bottom; ++y, row += rowBytes)
        std::memset(row, 0, size_t(bounds.right - bounds.left) * 4);
}
