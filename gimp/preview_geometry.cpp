#include "gimp/preview_geometry.h"

#include <algorithm>
#include <cmath>

namespace vellux::gimp {

Point DrawablePointOf(const PreviewView& view, Point preview) {
    return {view.boundsX + (view.scrollX + preview.x) / view.factorX,
            view.boundsY + (view.scrollY + preview.y) / view.factorY};
}

Point PreviewPointOf(const PreviewView& view, Point drawable) {
    return {(drawable.x - view.boundsX) * view.factorX - view.scrollX,
            (drawable.y - view.boundsY) * view.factorY - view.scrollY};
}

ScaledFrame ScaledFrameOf(const PreviewView& view, int drawableWidth, int drawableHeight) {
    ScaledFrame frame;
    frame.width = std::max(1, int(std::lround(drawableWidth * view.factorX)));
    frame.height = std::max(1, int(std::lround(drawableHeight * view.factorY)));
    frame.visibleX = int(std::lround(view.boundsX * view.factorX)) + view.scrollX;
    frame.visibleY = int(std::lround(view.boundsY * view.factorY)) + view.scrollY;
    frame.pixelAspect = view.factorY / view.factorX;
    return frame;
}

}  // namespace vellux::gimp
