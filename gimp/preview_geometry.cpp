#include "gimp/preview_geometry.h"

#include <algorithm>
#include <cmath>

namespace vellux::gimp {

Point DrawablePointOf(const PreviewView& view, Point preview) {
    return {view.boundsX + (view.scrollX + preview.x) / view.factor,
            view.boundsY + (view.scrollY + preview.y) / view.factor};
}

Point PreviewPointOf(const PreviewView& view, Point drawable) {
    return {(drawable.x - view.boundsX) * view.factor - view.scrollX,
            (drawable.y - view.boundsY) * view.factor - view.scrollY};
}

ScaledFrame ScaledFrameOf(const PreviewView& view, int drawableWidth, int drawableHeight) {
    ScaledFrame frame;
    frame.width = std::max(1, int(std::lround(drawableWidth * view.factor)));
    frame.height = std::max(1, int(std::lround(drawableHeight * view.factor)));
    frame.visibleX = int(std::lround(view.boundsX * view.factor)) + view.scrollX;
    frame.visibleY = int(std::lround(view.boundsY * view.factor)) + view.scrollY;
    return frame;
}

}  // namespace vellux::gimp
