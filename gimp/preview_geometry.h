// Where the dialog's preview is on the drawable. The preview shows the drawable scaled, scrolled: a
// preview pixel (px, py) is the drawable's point
//     bounds + (scroll + p) / factor           (each way with its own factor)
// where bounds is the corner of the area the preview covers (the selection's bounds) and scroll
// is the preview's offset into that area scaled. The two factors differ a little when the
// preview's shape is not quite the area's; the flare is then laid out with that pixel aspect, so
// it is as round on the drawable as the run paints it. The flare depends on the whole frame, so the
// preview's flare is rendered on the whole drawable at the preview's scale (the scaled frame) and
// the preview shows the part of it at `visible`.
#ifndef VELLUX_GIMP_PREVIEW_GEOMETRY_H
#define VELLUX_GIMP_PREVIEW_GEOMETRY_H

namespace vellux::gimp {

struct PreviewView {
    double factorX = 1.0, factorY = 1.0;   // preview pixels per drawable pixel
    int boundsX = 0, boundsY = 0;       // the drawable's point the unscrolled preview starts at
    int scrollX = 0, scrollY = 0;       // preview pixels scrolled past it
    int width = 0, height = 0;          // the preview's size in its pixels
};

struct Point {
    double x = 0.0, y = 0.0;
};

struct ScaledFrame {
    int width = 0, height = 0;          // the whole drawable at the preview's scale
    int visibleX = 0, visibleY = 0;     // where the preview's top left pixel is on it
    double pixelAspect = 1.0;           // a preview pixel's width over its height, in drawable pixels
};

// A point of the preview (a pointer's position, pixel (i, j) covering [i, i+1) x [j, j+1)) on the
// drawable, and back.
Point DrawablePointOf(const PreviewView& view, Point preview);
Point PreviewPointOf(const PreviewView& view, Point drawable);

// The drawable of this size at the preview's scale, at least a pixel each way.
ScaledFrame ScaledFrameOf(const PreviewView& view, int drawableWidth, int drawableHeight);

}  // namespace vellux::gimp

#endif  // VELLUX_GIMP_PREVIEW_GEOMETRY_H
