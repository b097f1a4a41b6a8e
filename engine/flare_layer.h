// The flare as a layer of its own, for editors that stack layers: the flare painted on black
// (Flare::Composite over a black plate), its brightest channel made the alpha and the colour
// divided by it (straight alpha). Laid over an image with the normal mode it adds the flare and
// dims what is beneath by its alpha, which is the flare's own screen-like look on display levels.
#ifndef VELLUX_ENGINE_FLARE_LAYER_H
#define VELLUX_ENGINE_FLARE_LAYER_H

#include <OpenImageIO/imagebuf.h>

namespace vellux::engine {

// In place, on an RGBA image of 8-bit, 16-bit or float pixels in its own memory. Integers round
// to the nearest level; float levels past 1.0 keep alpha 1 and their level. Throws
// std::invalid_argument for another layout.
void MakeStraightFlareLayer(OIIO::ImageBuf& image);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_FLARE_LAYER_H
