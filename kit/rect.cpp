#include "rect.h"

#include <algorithm>

namespace {
// Sizes are differences of 32-bit sides; computed in 64 bits so that no side pair overflows.
uint32_t Extent(int32_t low, int32_t high) { return uint32_t(int64_t(high) - int64_t(low)); }
}  // namespace

void SetLRect(LRectPtr theLRect, int32_t theLeft, int32_t theTop, int32_t theRight, int32_t theBottom) {
    theLRect->top = theTop;
    theLRect->left = theLeft;
    theLRect->bottom = theBottom;
    theLRect->right = theRight;
    theLRect->width = Extent(theLeft, theRight);
    theLRect->height = Extent(theTop, theBottom);
}

int32_t SectLRect(const L_Rect* srcA, const L_Rect* srcB, LRectPtr dst) {
    const L_Rect a = *srcA;
    const L_Rect b = *srcB;
    if (a.left < b.right && a.top < b.bottom && a.right > b.left && a.bottom > b.top) {
        SetLRect(dst, std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
                 std::min(a.bottom, b.bottom));
        if (dst->width != 0 && dst->height != 0) return 1;
        dst->top = dst->left = dst->bottom = dst->right = 0;
        return 0;
    }
    *dst = L_Rect{};
    return 0;
}
