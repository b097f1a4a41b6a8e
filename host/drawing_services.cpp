// The host's image-buffer, drawing and rectangle services, exported under their plain names.
//
// Image buffers hold 32-bit pixels whose bytes are alpha, red, green, blue, rows of width * 4
// bytes, cleared to 0 when made. Drawing goes onto the canvas of the dialog whose draw context is
// given (dialog_model.h), clipped to the canvas; every drawing call makes the canvas's version grow.
// Images are drawn over the installed backdrop, if any (image_backdrop.h).
#include <algorithm>
#include <cstdint>
#include <exception>
#include <memory>
#include <vector>

#include "host/dialog_model.h"
#include "host/dialog_services_pvt.h"
#include "host/image_backdrop.h"

VELLUX_CHECK_SIGNATURE(KV_FrameRect);
VELLUX_CHECK_SIGNATURE(KV_PaintRect);
VELLUX_CHECK_SIGNATURE(KV_DrawImage);
VELLUX_CHECK_SIGNATURE(KV_SetForeColor);
VELLUX_CHECK_SIGNATURE(KV_GetForeColor);
VELLUX_CHECK_SIGNATURE(KV_MakeImageBuffer);
VELLUX_CHECK_SIGNATURE(KV_DestroyImageBuffer);
VELLUX_CHECK_SIGNATURE(KV_GetBufferRowBytes);
VELLUX_CHECK_SIGNATURE(KV_GetBufferBaseAddress);
VELLUX_CHECK_SIGNATURE(KV_GetBufferBounds);
VELLUX_CHECK_SIGNATURE(KV_InsetRect);
VELLUX_CHECK_SIGNATURE(KV_GetRectWidth);
VELLUX_CHECK_SIGNATURE(KV_GetRectHeight);

namespace vellux::host {

namespace {

struct ImageBuffer {
    KV_ImageBuffer handle{};
    KV_Rect bounds{};
    int rowBytes = 0;
    std::vector<uint8_t> pixels;
};

// Far beyond any preview or dialog; stops a wild rectangle from asking for gigabytes.
constexpr int64_t kMostImagePixels = int64_t(1) << 26;

Registry<ImageBuffer, KV_ImageBuffer>& Images() {
    static Registry<ImageBuffer, KV_ImageBuffer> images;
    return images;
}

ImageBackdrop* gBackdrop = nullptr;

void PutPixel(Canvas& canvas, int x, int y, const std::array<uint8_t, 3>& color) {
    uint8_t* pixel = canvas.Pixel(x, y);
    pixel[0] = color[0];
    pixel[1] = color[1];
    pixel[2] = color[2];
    pixel[3] = 255;
}

void FillRect(Canvas& canvas, const KV_Rect& rect, const std::array<uint8_t, 3>& color) {
    const KV_Rect on = canvas.Clip(rect);
    for (int y = on.top; y < on.bottom; ++y) {
        for (int x = on.left; x < on.right; ++x) PutPixel(canvas, x, y, color);
    }
}

// Where an image is drawn: each destination pixel takes the source pixel nearest it.
struct ImageDraw {
    const ImageBuffer& image;
    KV_Rect source;
    KV_Rect dest;
    int64_t sourceWidth, sourceHeight, destWidth, destHeight;

    // The image's pixel shown at destination row y, column x; null where the source rectangle
    // reaches past the image.
    const uint8_t* Row(int y) const {
        const int64_t sy = source.top + (int64_t(y) - dest.top) * sourceHeight / destHeight;
        if (sy < image.bounds.top || sy >= image.bounds.bottom) return nullptr;
        return image.pixels.data() + size_t(sy - image.bounds.top) * size_t(image.rowBytes);
    }
    const uint8_t* Pixel(const uint8_t* row, int x) const {
        const int64_t sx = source.left + (int64_t(x) - dest.left) * sourceWidth / destWidth;
        if (row == nullptr || sx < image.bounds.left || sx >= image.bounds.right) return nullptr;
        return row + size_t(sx - image.bounds.left) * 4;
    }
};

void DrawOpaque(Canvas& canvas, const ImageDraw& draw) {
    const KV_Rect on = canvas.Clip(draw.dest);
    for (int y = on.top; y < on.bottom; ++y) {
        const uint8_t* row = draw.Row(y);
        if (row == nullptr) continue;
        for (int x = on.left; x < on.right; ++x) {
            if (const uint8_t* argb = draw.Pixel(row, x)) PutPixel(canvas, x, y, {argb[1], argb[2], argb[3]});
        }
    }
}

// The image over the whole destination (0 where it does not reach), composed by the backdrop,
// then put on the canvas where the destination lies on it. False when the backdrop failed, its
// failure kept for the program.
bool DrawOverBackdrop(Canvas& canvas, const ImageDraw& draw, ImageBackdrop& backdrop) {
    thread_local std::vector<uint8_t> pixels;   // kept from draw to draw: a preview is drawn at every edit
    const int width = int(draw.destWidth), height = int(draw.destHeight);
    try {
        pixels.assign(size_t(width) * size_t(height) * 4, 0);
        for (int y = 0; y < height; ++y) {
            const uint8_t* row = draw.Row(draw.dest.top + y);
            uint8_t* out = pixels.data() + size_t(y) * size_t(width) * 4;
            for (int x = 0; x < width; ++x, out += 4) {
                if (const uint8_t* argb = draw.Pixel(row, draw.dest.left + x)) std::copy_n(argb, 4, out);
            }
        }
        backdrop.Compose(pixels.data(), width, height);
    } catch (...) {
        KeepRunnerFailure(std::current_exception());
        return false;
    }
    const KV_Rect on = canvas.Clip(draw.dest);
    for (int y = on.top; y < on.bottom; ++y) {
        const uint8_t* row = pixels.data() + size_t(y - draw.dest.top) * size_t(width) * 4;
        for (int x = on.left; x < on.right; ++x) {
            const uint8_t* argb = row + size_t(x - draw.dest.left) * 4;
            PutPixel(canvas, x, y, {argb[1], argb[2], argb[3]});
        }
    }
    return true;
}

}  // namespace

void SetImageBackdrop(ImageBackdrop* backdrop) { gBackdrop = backdrop; }
ImageBackdrop* CurrentImageBackdrop() { return gBackdrop; }

int LiveImageBuffers() { return Images().Count(); }

}  // namespace vellux::host

using namespace vellux::host;

// ---- Drawing ----

void KV_FrameRect(KV_DrawContext* ioContext, const KV_Rect* iFrame) {
    Dialog* dialog = DialogOfContext(ioContext);
    if (dialog == nullptr || iFrame == nullptr) return;
    const KV_Rect r = *iFrame;
    if (r.left >= r.right || r.top >= r.bottom) return;
    FillRect(dialog->canvas, {r.left, r.top, r.right, r.top + 1}, dialog->foreColor);
    FillRect(dialog->canvas, {r.left, r.bottom - 1, r.right, r.bottom}, dialog->foreColor);
    FillRect(dialog->canvas, {r.left, r.top, r.left + 1, r.bottom}, dialog->foreColor);
    FillRect(dialog->canvas, {r.right - 1, r.top, r.right, r.bottom}, dialog->foreColor);
    ++dialog->canvas.version;
}

void KV_PaintRect(KV_DrawContext* ioContext, const KV_Rect* iRect) {
    Dialog* dialog = DialogOfContext(ioContext);
    if (dialog == nullptr || iRect == nullptr) return;
    FillRect(dialog->canvas, *iRect, dialog->foreColor);
    ++dialog->canvas.version;
}

// The image is shown opaque: the dialog is a screen, where the alpha byte has no meaning (a
// preview's untouched pixels, all four bytes 0, show as black), unless a backdrop is installed,
// which then says what shows (image_backdrop.h). A destination of another size than the source is
// filled by nearest-pixel scaling.
void KV_DrawImage(KV_DrawContext* ioContext, const KV_ImageBuffer* iImage, const KV_Rect* iSourceRect, const KV_Rect* iDestRect) {
    Dialog* dialog = DialogOfContext(ioContext);
    const ImageBuffer* image = Images().Find(iImage);
    if (dialog == nullptr || image == nullptr || iSourceRect == nullptr || iDestRect == nullptr) return;
    const KV_Rect source = *iSourceRect, dest = *iDestRect;
    const ImageDraw draw{*image,
                         source,
                         dest,
                         int64_t(source.right) - source.left,
                         int64_t(source.bottom) - source.top,
                         int64_t(dest.right) - dest.left,
                         int64_t(dest.bottom) - dest.top};
    if (draw.sourceWidth <= 0 || draw.sourceHeight <= 0 || draw.destWidth <= 0 || draw.destHeight <= 0) return;
    ImageBackdrop* backdrop = CurrentImageBackdrop();
    // A destination far larger than any preview is drawn as it is rather than composed whole.
    const bool composed = backdrop != nullptr && draw.destWidth * draw.destHeight <= kMostImagePixels &&
                          DrawOverBackdrop(dialog->canvas, draw, *backdrop);
    if (!composed) DrawOpaque(dialog->canvas, draw);
    ++dialog->canvas.version;
}

void KV_SetForeColor(KV_DrawContext* ioContext, const KV_Color* iColor) {
    Dialog* dialog = DialogOfContext(ioContext);
    if (dialog != nullptr && iColor != nullptr) dialog->foreColor = {iColor->red, iColor->green, iColor->blue};
}

void KV_GetForeColor(const KV_DrawContext* iContext, KV_Color* oColor) {
    const Dialog* dialog = DialogOfContext(iContext);
    if (dialog != nullptr && oColor != nullptr) *oColor = {dialog->foreColor[0], dialog->foreColor[1], dialog->foreColor[2]};
}

// ---- Image buffers ----

KV_ImageBuffer* KV_MakeImageBuffer(const KV_Rect* iBounds) {
    if (iBounds == nullptr) return nullptr;
    const int64_t width = int64_t(iBounds->right) - iBounds->left, height = int64_t(iBounds->bottom) - iBounds->top;
    if (width <= 0 || height <= 0 || width * height > kMostImagePixels) return nullptr;
    try {
        auto image = std::make_unique<ImageBuffer>();
        image->bounds = *iBounds;
        image->rowBytes = int(width * 4);
        image->pixels.assign(size_t(width * height * 4), 0);
        return Images().Add(std::move(image));
    } catch (...) {
        return nullptr;
    }
}

void KV_DestroyImageBuffer(KV_ImageBuffer* iImage) { Images().Remove(iImage); }

int KV_GetBufferRowBytes(const KV_ImageBuffer* iImage) {
    const ImageBuffer* image = Images().Find(iImage);
    return image == nullptr ? 0 : image->rowBytes;
}

uint8_t* KV_GetBufferBaseAddress(const KV_ImageBuffer* iImage) {
    ImageBuffer* image = Images().Find(iImage);
    return image == nullptr ? nullptr : image->pixels.data();
}

void KV_GetBufferBounds(const KV_ImageBuffer* iImage, KV_Rect* oRect) {
    const ImageBuffer* image = Images().Find(iImage);
    if (image != nullptr && oRect != nullptr) *oRect = image->bounds;
}

// ---- Rectangles ----

void KV_InsetRect(KV_Rect* ioRect, int iInsetX, int iInsetY) {
    if (ioRect == nullptr) return;
    ioRect->left += iInsetX;
    ioRect->right -= iInsetX;
    ioRect->top += iInsetY;
    ioRect->bottom -= iInsetY;
}

int KV_GetRectWidth(const KV_Rect* iRect) { return iRect == nullptr ? 0 : iRect->right - iRect->left; }
int KV_GetRectHeight(const KV_Rect* iRect) { return iRect == nullptr ? 0 : iRect->bottom - iRect->top; }
