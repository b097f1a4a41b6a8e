#include "engine/sample_frame.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>

#include <OpenImageIO/imagebuf.h>

#include "engine/pending_output.h"

namespace vellux::engine {

namespace {

struct Rgb {
    float r, g, b;
};
Rgb operator+(Rgb a, Rgb b) { return {a.r + b.r, a.g + b.g, a.b + b.b}; }
Rgb operator*(Rgb a, float k) { return {a.r * k, a.g * k, a.b * k}; }
Rgb Mix(Rgb a, Rgb b, float t) { return a * (1.0f - t) + b * t; }
float Smooth(float e0, float e1, float x) {
    const float t = std::clamp((x - e0) / (e1 - e0), 0.0f, 1.0f);
    return t * t * (3.0f - 2.0f * t);
}

// Value noise from an integer hash: the same numbers everywhere, no library generator.
uint32_t Hash(int32_t x, int32_t y, uint32_t seed) {
    uint32_t h = uint32_t(x) * 0x8da6b343u ^ uint32_t(y) * 0xd8163841u ^ seed * 0xcb1ab31fu;
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    h ^= h >> 15;
    return h;
}
float Random(int32_t x, int32_t y, uint32_t seed) { return float(Hash(x, y, seed) & 0xFFFFFFu) / float(0xFFFFFF); }

float ValueNoise(float x, float y, uint32_t seed) {
    const float fx = std::floor(x), fy = std::floor(y);
    const int32_t ix = int32_t(fx), iy = int32_t(fy);
    const float tx = Smooth(0, 1, x - fx), ty = Smooth(0, 1, y - fy);
    const float top = Random(ix, iy, seed) * (1 - tx) + Random(ix + 1, iy, seed) * tx;
    const float bottom = Random(ix, iy + 1, seed) * (1 - tx) + Random(ix + 1, iy + 1, seed) * tx;
    return top * (1 - ty) + bottom * ty;
}

float Fbm(float x, float y, uint32_t seed, int octaves) {
    float sum = 0, amplitude = 0.5f, total = 0;
    for (int i = 0; i < octaves; ++i) {
        sum += ValueNoise(x, y, seed + uint32_t(i) * 101u) * amplitude;
        total += amplitude;
        x *= 2.03f, y *= 2.03f, amplitude *= 0.5f;
    }
    return sum / total;
}

// Everything below works in fractions of the frame height (u across, v down) so that the picture
// keeps its look at any size.
struct Landscape {
    float aspect;
    uint32_t seed;
    float sunU, sunV;
};

constexpr float kHorizon = 0.66f;

Rgb Sky(const Landscape& s, float u, float v) {
    const Rgb zenith{0.10f, 0.13f, 0.30f}, middle{0.42f, 0.33f, 0.50f}, low{0.98f, 0.58f, 0.32f};
    const float t = std::clamp(v / kHorizon, 0.0f, 1.0f);
    Rgb sky = t < 0.55f ? Mix(zenith, middle, Smooth(0, 0.55f, t)) : Mix(middle, low, Smooth(0.55f, 1.0f, t));
    const float du = u - s.sunU, dv = v - s.sunV;
    const float d = std::sqrt(du * du + dv * dv);
    sky = sky + Rgb{1.0f, 0.72f, 0.42f} * (0.55f * std::exp(-d * 5.5f));    // warm haze around the sun
    sky = sky + Rgb{1.0f, 0.93f, 0.80f} * (0.9f * std::exp(-d * 28.0f));    // the bright core
    // Thin clouds, stretched sideways, lit from below as they near the horizon.
    const float band = Smooth(0.12f, 0.30f, v) * (1.0f - Smooth(0.48f, 0.62f, v));
    const float cloud = Smooth(0.50f, 0.78f, Fbm(u * 2.2f, v * 14.0f, s.seed + 7u, 5)) * band;
    const Rgb lit = Mix(Rgb{0.55f, 0.38f, 0.48f}, Rgb{1.0f, 0.66f, 0.45f}, Smooth(0.15f, 0.6f, v));
    return Mix(sky, lit + Rgb{0.3f, 0.2f, 0.1f} * std::exp(-d * 4.0f), cloud * 0.7f);
}

float Ridge(float u, float base, float height, float scale, uint32_t seed) {
    return base - height * Fbm(u * scale, 0.5f, seed, 6);
}

Rgb Land(const Landscape& s, float u, float v, Rgb sky) {
    Rgb color = sky;
    const float farRidge = Ridge(u, kHorizon, 0.11f, 2.6f, s.seed + 11u);
    if (v > farRidge) color = Mix(Rgb{0.36f, 0.27f, 0.40f}, sky, 0.35f * (1.0f - Smooth(farRidge, farRidge + 0.1f, v)));
    const float nearRidge = Ridge(u, 0.80f, 0.13f, 1.4f, s.seed + 23u) - 0.012f * Fbm(u * 90.0f, 0.2f, s.seed + 5u, 3);
    if (v > nearRidge) color = Mix(Rgb{0.12f, 0.09f, 0.14f}, Rgb{0.04f, 0.035f, 0.05f}, Smooth(nearRidge, 1.0f, v));
    return color;
}

// A few buildings at the foot of the near hills, right of centre, with warm windows.
Rgb Town(const Landscape& s, float u, float v, Rgb color) {
    const float start = s.aspect * 0.58f, cell = 0.045f;
    if (u < start || u > start + cell * 9.0f) return color;
    const int32_t house = int32_t((u - start) / cell);
    const float top = 0.90f - 0.045f * Random(house, 3, s.seed) - 0.06f * (Random(house, 9, s.seed) > 0.75f);
    const float inset = cell * 0.08f;
    const float local = u - start - float(house) * cell;
    if (v < top || local < inset || local > cell - inset) return color;
    Rgb wall{0.05f, 0.04f, 0.055f};
    const int32_t wx = int32_t(local / (cell / 4.0f)), wy = int32_t((v - top) / 0.012f);
    const bool window = std::fmod(local, cell / 4.0f) > cell * 0.1f && std::fmod(v - top, 0.012f) > 0.005f;
    if (window && Random(house * 8 + wx, wy, s.seed + 3u) > 0.86f) wall = Rgb{0.95f, 0.66f, 0.30f};
    return wall;
}

uint8_t Encode(float value, float grain) { return uint8_t(std::clamp(value * 255.0f + grain, 0.0f, 255.0f) + 0.5f); }

}  // namespace

std::vector<uint8_t> MakeSampleFrame(FrameSize size, uint32_t seed) {
    const float h = float(size.height);
    const Landscape landscape{float(size.width) / h, seed, 0.3f * float(size.width) / h, 0.35f};
    std::vector<uint8_t> pixels(size_t(size.width) * size_t(size.height) * 3);
    for (int32_t y = 0; y < size.height; ++y) {
        for (int32_t x = 0; x < size.width; ++x) {
            const float u = (float(x) + 0.5f) / h, v = (float(y) + 0.5f) / h;
            const Rgb color = Town(landscape, u, v, Land(landscape, u, v, Sky(landscape, u, v)));
            // Grain, stronger in the dark, correlated over two pixels so that it stays soft.
            const float grain = (ValueNoise(float(x) * 0.5f, float(y) * 0.5f, seed + 99u) - 0.5f) * 1.6f;
            uint8_t* out = &pixels[(size_t(y) * size_t(size.width) + size_t(x)) * 3];
            out[0] = Encode(color.r, grain), out[1] = Encode(color.g, grain), out[2] = Encode(color.b, grain);
        }
    }
    return pixels;
}

void WriteSampleFrame(const std::filesystem::path& output, FrameSize size, uint32_t seed) {
    const std::vector<uint8_t> pixels = MakeSampleFrame(size, seed);
    OIIO::ImageBuf image(OIIO::ImageSpec(size.width, size.height, 3, OIIO::TypeDesc::UINT8));
    image.set_pixels(image.roi(), OIIO::TypeDesc::UINT8, pixels.data());
    PendingOutput pending(output);
    if (!image.write(pending.temporary().string(), OIIO::TypeUnknown, output.string()))
        throw std::runtime_error(output.string() + ": cannot write the image: " + image.geterror());
    pending.Commit();
}

}  // namespace vellux::engine
