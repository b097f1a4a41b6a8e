// The host's image-buffer, drawing and rectangle services, exported under their plain names.
//
// Image buffers hold 32-bit pixels whose bytes are alpha, red, green, blue, rows of width * 4
// bytes, cleared to 0 when made. Drawing goes onto the canvas of the dialog whose draw context is
// given (dialog_model.h), clipped to the canvas; every drawing call makes the canvas's version grow.
// Images are drawn over the installed backdrop, if any (image_backdrop.h).
#include <algorithm>
#include <cstdint>
#include <cstring>
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

// The image's column shown at each destination column from `left` to `right` (as bytes into a
// row of the image), -1 where the source reaches past the image: worked out once a draw, not once
// a pixel. Kept from draw to draw, as a preview is drawn at every edit.
const std::vector<int64_t>& SourceColumns(const ImageDraw& draw, int left, int right) {
    thread_local std::vector<int64_t> columns;
    columns.resize(size_t(std::max(0, right - left)));
    for (int x = left; x < right; ++x) {
        const int64_t sx = draw.source.left + (int64_t(x) - draw.dest.left) * draw.sourceWidth / draw.destWidth;
        const bool inside = sx >= draw.image.bounds.left && sx < draw.image.bounds.right;
        columns[size_t(x - left)] = inside ? (sx - draw.image.bounds.left) * 4 : -1;
    }
    return columns;
}

// `count` pixels, ARGB as the image holds them, put on the canvas opaque: as 32-bit words the
// colour bytes move down one and the alpha byte becomes 255.
void PutOpaque(uint8_t* out, const uint8_t* argb, int count) {
    for (int i = 0; i < count; ++i) {
        uint32_t word;
        std::memcpy(&word, argb + size_t(i) * 4, 4);
        word = (word >> 8) | 0xFF000000u;
        std::memcpy(out + size_t(i) * 4, &word, 4);
    }
}

// Destination pixels from the image's `row` through `columns`, opaque.
void PutRow(uint8_t* out, const uint8_t* row, const std::vector<int64_t>& columns) {
    for (const int64_t column : columns) {
        if (column >= 0) PutOpaque(out, row + column, 1);
        out += 4;
    }
}

void DrawOpaque(Canvas& canvas, const ImageDraw& draw) {
    const KV_Rect on = canvas.Clip(draw.dest);
    if (on.left >= on.right) return;
    const std::vector<int64_t>& columns = SourceColumns(draw, on.left, on.right);
    // Drawn at its own size and all inside the image (a preview): each row is one run.
    const int count = on.right - on.left;
    const bool run = draw.sourceWidth == draw.destWidth && columns.front() >= 0 && columns.back() >= 0;
    for (int y = on.top; y < on.bottom; ++y) {
        const uint8_t* row = draw.Row(y);
        if (row == nullptr) continue;
        if (run) PutOpaque(canvas.Pixel(on.left, y), row + columns.front(), count);
        else PutRow(canvas.Pixel(on.left, y), row, columns);
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
        const std::vector<int64_t>& columns = SourceColumns(draw, draw.dest.left, draw.dest.right);
        for (int y = 0; y < height; ++y) {
            const uint8_t* row = draw.Row(draw.dest.top + y);
            if (row == nullptr) continue;
            uint8_t* out = pixels.data() + size_t(y) * size_t(width) * 4;
            for (const int64_t column : columns) {
                if (column >= 0) std::copy_n(row + column, 4, out);
                out += 4;
            }
        }
        backdrop.Compose(pixels.data(), width, height);
    } catch (...) {
        KeepRunnerFailure(std::current_exception());
        return false;
    }
    const KV_Rect on = canvas.Clip(draw.dest);
    if (on.left >= on.right) return true;
    for (int y = on.top; y < on.bottom; ++y) {
        const uint8_t* argb = pixels.data() + (size_t(y - draw.dest.top) * size_t(width) + size_t(on.left - draw.dest.left)) * 4;
        PutOpaque(canvas.Pixel(on.left, y), argb, on.right - on.left);
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
