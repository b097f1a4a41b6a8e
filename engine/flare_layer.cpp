#include "engine/flare_layer.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace vellux::engine {

namespace {

template <typename Level>
void StraightIntegers(Level* rgba, size_t count, uint32_t full) {
    for (size_t i = 0; i < count; ++i, rgba += 4) {
        const uint32_t alpha = std::max({rgba[0], rgba[1], rgba[2]});
        for (int c = 0; c < 3; ++c)
            rgba[c] = alpha == 0 ? 0 : Level((uint64_t(rgba[c]) * full + alpha / 2) / alpha);
        rgba[3] = Level(alpha);
    }
}

void StraightFloats(float* rgba, size_t count) {
    for (size_t i = 0; i < count; ++i, rgba += 4) {
        const float alpha = std::min(1.0f, std::max({rgba[0], rgba[1], rgba[2], 0.0f}));
        for (int c = 0; c < 3; ++c) rgba[c] = alpha > 0.0f ? rgba[c] / alpha : 0.0f;
        rgba[3] = alpha;
    }
}

}  // namespace

void MakeStraightFlareLayer(OIIO::ImageBuf& image) {
    const OIIO::ImageSpec& spec = image.spec();
    if (spec.nchannels != 4 || image.localpixels() == nullptr)
        throw std::invalid_argument("a flare layer is RGBA in its own memory");
    const size_t count = size_t(spec.width) * size_t(spec.height);
    void* pixels = image.localpixels();
    if (spec.format == OIIO::TypeUInt8) StraightIntegers(static_cast<uint8_t*>(pixels), count, 255);
    else if (spec.format == OIIO::TypeUInt16) StraightIntegers(static_cast<uint16_t*>(pixels), count, 65535);
    else if (spec.format == OIIO::TypeFloat) StraightFloats(static_cast<float*>(pixels), count);
    else throw std::invalid_argument("a flare layer is 8-bit, 16-bit or float");
}

}  // namespace vellux::engine
