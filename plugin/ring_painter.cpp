// Rings: each pixel inside a ring's rectangle reads the ring's colour table at its elliptical
// distance from the centre (16.16 fixed point, one square root per pixel, found a run of pixels
// at a time: ring_distances.h), blends two neighbouring entries and adds the colour under the
// dissolve ceiling.

#include "kit/rect.h"
#include "painters.h"
#include "pixel_runs.h"
#include "pixels.h"
#include "ring_distances.h"

namespace {

// A row is worked through in runs of this many pixels: first the distances of the pixels the ring
// reaches, with no pixel touched (ring_distances.h), then those pixels painted in order (their
// colours first, then the sums, where they lie side by side: pixel_runs.h). Each pass stays short
// and simple enough for the processor to overlap many pixels' square roots and table reads;
// every pixel gets the same sum as in one pass.
constexpr int32_t kRun = 256;

struct Pixel48 {
    static constexpr int32_t kBytes = 6;
    uint32_t seed = 0;
    static int32_t Ceiling(double dissolve) { return RingCeiling48(dissolve); }
    void Begin(int32_t) {}
    void Add(uint8_t* pixel, int32_t r, int32_t g, int32_t b, int32_t maxPixel) { SumPixel48(pixel, r, g, b, maxPixel); }
    // A run's colours as pixel_runs.h takes them: the colour numbers themselves.
    static constexpr int32_t kAddends = 3;
    void Addends(uint16_t* addends, int32_t r, int32_t g, int32_t b) {
        addends[0] = uint16_t(r);
        addends[1] = uint16_t(g);
        addends[2] = uint16_t(b);
    }
    static void AddRun(uint8_t* pixels, const uint16_t* addends, int32_t count, int32_t maxPixel) {
        AddRun48(pixels, addends, count * kAddends, maxPixel);
    }
};

struct Pixel32 {
    static constexpr int32_t kBytes = 4;
    uint32_t seed = 0;
    static int32_t Ceiling(double dissolve) { return Ceiling32(dissolve); }
    // Every row restarts its own noise sequence, so a frame paints the same whatever the bands.
    void Begin(int32_t y) { seed = uint32_t(y); }
    // A painted ring pixel advances the seed once before its colour, and once more in the sum.
    void Add(uint8_t* pixel, int32_t r, int32_t g, int32_t b, int32_t maxPixel) {
        seed = NextSeedTwice(seed);
        AddDithered32(pixel, seed, r, g, b, maxPixel);
    }
    // A run's colours as pixel_runs.h takes them: each pixel's dithered steps, with the seed
    // advanced as Add advances it.
    static constexpr int32_t kAddends = 4;
    void Addends(uint16_t* addends, int32_t r, int32_t g, int32_t b) {
        seed = NextSeedTwice(seed);
        const int32_t noise = int32_t(seed >> 26);
        addends[0] = 0;
        addends[1] = uint16_t((r + noise) >> 6);
        addends[2] = uint16_t((g + noise) >> 6);
        addends[3] = uint16_t((b + noise) >> 6);
    }
    static void AddRun(uint8_t* pixels, const uint16_t* addends, int32_t count, int32_t maxPixel) {
        AddRun32(pixels, addends, count, maxPixel);
    }
};

// c0 (65536 - factor1) + c1 factor1, >> 16, with one product: c0 65536 + (c1 - c0) factor1,
// worked modulo 2^32. The blend itself lies in [0, 2^32), so the modular sum is the blend.
int32_t Blend(uint16_t c0, uint16_t c1, uint32_t factor1) {
    return int32_t(((uint32_t(c0) << 16) + (uint32_t(c1) - uint32_t(c0)) * factor1) >> 16);
}

// The table's colour at a 16.16 distance: two neighbouring entries blended, handed to `use` as
// its red, green and blue numbers (each in 0..65535).
template <typename Use>
void ColourAt(const FlareColor* table, uint32_t distance, Use use) {
    const FlareColor& c0 = table[distance >> 16];
    const FlareColor& c1 = table[(distance >> 16) + 1];
    const uint32_t factor1 = distance & 0xFFFFu;
    use(Blend(c0.red, c1.red, factor1), Blend(c0.green, c1.green, factor1), Blend(c0.blue, c1.blue, factor1));
}

// The reached pixels of a run painted in order. When they lie side by side (as they do wherever
// the offsets step one way) the colours are worked out first and added as a run; otherwise pixel
// by pixel. The noise seed advances in the same order either way.
template <typename Pixel>
void PaintReached(const FlareColor* table, uint8_t* run, const uint32_t* distances, const uint8_t* reached,
                  int32_t length, RingReach reach, int32_t maxPixel, Pixel& pixels) {
    if (reach.count == 0) return;
    if (reach.last - reach.first + 1 != reach.count) {
        for (int32_t k = 0; k < length; ++k) {
            if (reached[k] == 0) continue;
            uint8_t* pixel = run + k * Pixel::kBytes;
            ColourAt(table, distances[k], [&](int32_t r, int32_t g, int32_t b) { pixels.Add(pixel, r, g, b, maxPixel); });
        }
        return;
    }
    uint16_t addends[kRun * Pixel::kAddends];
    const uint32_t* stretch = distances + reach.first;
    for (int32_t i = 0; i < reach.count; ++i)
        ColourAt(table, stretch[i],
                 [&](int32_t r, int32_t g, int32_t b) { pixels.Addends(addends + i * Pixel::kAddends, r, g, b); });
    Pixel::AddRun(run + reach.first * Pixel::kBytes, addends, reach.count, maxPixel);
}

// The painter's state (the noise seed) is taken by value and handed back: held in a local, it
// stays in a register, where through a reference every byte written to a pixel could change it.
template <typename Pixel>
Pixel PaintRing(PluginDataRec* data, const RingElement* ring, const L_Rect& scan, int32_t y, int32_t maxPixel,
                Pixel pixels) {
    const FlareColor* table = TailRecord<FlareColor>(data, ring->ringFlareColorBase);
    const float xFactor = ring->ringXFactor;
    const float yFactor = ring->ringYFactor;
    const float dy = float(y) - ring->ringYPos;
    const RingRowTerms terms{xFactor, (dy * yFactor) * (yFactor * dy), ring->ringFlareColors};
    float dx = (float(scan.left) - ring->ringXPos) * xFactor;
    uint8_t* run = PixelAt(data->flarePixelBuffer, scan.left, y, Pixel::kBytes);
    uint32_t distances[kRun];
    uint8_t reached[kRun];
    for (int32_t left = scan.left; left < scan.right; left += kRun, run += kRun * Pixel::kBytes) {
        const int32_t length = scan.right - left < kRun ? scan.right - left : kRun;
        const RingReach reach = RingDistances(&dx, length, terms, distances, reached);
        PaintReached(table, run, distances, reached, length, reach, maxPixel, pixels);
    }
    return pixels;
}

template <typename Pixel>
void PaintRings(const ControlDataRec* control, PluginDataRec* data, const L_Rect* curRect, int32_t y) {
    const int32_t maxPixel = Pixel::Ceiling(control->flareDissolve);
    Pixel pixels;
    pixels.Begin(y);
    const RingElement* ring = RingAt(data, data->flareRingFirst);
    for (int32_t i = 0; i < data->flareRingCount && ring != nullptr; ++i, ring = RingAt(data, ring->ringNext)) {
        L_Rect scan;
        if (ring->ringFlareColors == 0 || SectLRect(curRect, &ring->ringRect, &scan) == 0) continue;
        pixels = PaintRing(data, ring, scan, y, maxPixel, pixels);
    }
}

}  // namespace

void PaintRings48(const ControlDataRec* theControl, PluginDataRec* theData, const L_Rect* curRect, int32_t y) {
    PaintRings<Pixel48>(theControl, theData, curRect, y);
}

void PaintRings32(const ControlDataRec* theControl, PluginDataRec* theData, const L_Rect* curRect, int32_t y) {
    PaintRings<Pixel32>(theControl, theData, curRect, y);
}
