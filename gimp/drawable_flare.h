// A drawable with the flare, through GEGL buffers in a format that loses nothing: 8-bit and 16-bit
// perceptual (sRGB) images as their own integers, which the engine paints with the plug-in's own
// 32-bit and 48-bit pixels exactly as `vellux render` paints such a plate, and float linear ones as
// they are; every other precision (linear integers, half, perceptual floats) and images with a
// profile of their own as linear float, the engine's float path, converted back by GEGL once.
//
// The layer is read in its own channels (RGB or RGBA); flare-only layers are RGBA.
//
// The whole drawable is the frame (the flare's reflections lie across its centre); only the
// selection's bounds are written, through the shadow buffer, whose merge applies the selection
// mask (feathering included) and pushes the undo step. The alpha is kept.
#ifndef VELLUX_GIMP_DRAWABLE_FLARE_H
#define VELLUX_GIMP_DRAWABLE_FLARE_H

#include <functional>

#include <libgimp/gimp.h>

#include "engine/render_request.h"

namespace vellux::gimp {

using ProgressReport = std::function<void(double fraction)>;

// Whether the image uses GIMP's built-in sRGB (no profile assigned).
bool HasBuiltInProfile(gint32 image);

// Whether the image's layers are painted in their own pixel format, which GEGL hands over without
// converting (see above); asks GIMP only, so it may be called before GEGL starts.
bool TakenInItsOwnFormat(gint32 image);

// The flare onto the drawable, or with `flareOnly` onto a new layer above it (the flare painted on
// black, its brightest channel as a straight alpha: engine/flare_layer.h). Throws with the
// engine's message before anything is written when the request cannot be rendered.
void PaintDrawable(gint32 image, gint32 drawable, const engine::RenderRequest& request, bool flareOnly,
                   const ProgressReport& progress);

}  // namespace vellux::gimp

#endif  // VELLUX_GIMP_DRAWABLE_FLARE_H
