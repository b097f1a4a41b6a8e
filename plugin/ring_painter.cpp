// Rings: each pixel inside a ring's rectangle reads the ring's colour table at its elliptical
// distance from the centre (16.16 fixed point, one square root per pixel), blends two
// neighbouring entries and adds the colour under the dissolve ceiling.
#include <cmath>

#include "kit/rect.h"
#include "painters.h"
#include "pixels.h"

namespace {

struct Pixel48 {
    static constexpr int32_t kBytes = 6;
    static constexpr bool kInRuns = false;   // measured: one pass is quicker for 48 bits
    uint32_t seed = 0;
    static int32_t Ceiling(double dissolve) { return RingCeiling48(dissolve); }
    void Begin(int32_t) {}
    void Add(uint8_t* pixel, int32_t r, int32_t g, int32_t b, int32_t maxPixel) { SumPixel48(pixel, r, g, b, maxPixel); }
};

struct Pixel32 {
    static constexpr int32_t kBytes = 4;
    static constexpr bool kInRuns = true;
    uint32_t seed = 0;
    static int32_t Ceiling(double dissolve) { return Ceiling32(dissolve); }
    // Every row restarts its own noise sequence, so a frame paints the same whatever the bands.
    void Begin(int32_t y) { seed = uint32_t(y); }
    // A painted ring pixel advances the seed once before its colour, and once more in the sum.
    void Add(uint8_t* pixel, int32_t r, int32_t g, int32_t b, int32_t maxPixel) {
        seed = NextSeedTwice(seed);
        AddDithered32(pixel, seed, r, g, b, maxPixel);
    }
};

int32_t Blend(uint16_t c0, uint16_t c1, uint32_t factor0, uint32_t factor1) {
    return int32_t((uint32_t(c0) * factor0 + uint32_t(c1) * factor1) >> 16);
}

// The table's colour at a 16.16 distance: two neighbouring entries blended.
template <typename Pixel>
void PaintAt(const FlareColor* table, uint8_t* pixel, uint32_t distance, int32_t maxPixel, Pixel& pixels) {
    const FlareColor& c0 = table[distance >> 16];
    const FlareColor& c1 = table[(distance >> 16) + 1];
    const uint32_t factor1 = distance & 0xFFFFu;
    const uint32_t factor0 = 65536u - factor1;
    pixels.Add(pixel, Blend(c0.red, c1.red, factor0, factor1), Blend(c0.green, c1.green, factor0, factor1),
               Blend(c0.blue, c1.blue, factor0, factor1), maxPixel);
}

// With kInRuns a row is worked through in runs of this many pixels: first the distances of the
// run's pixels the ring reaches, with no pixel touched, then those pixels painted in order. Each
// pass stays short enough for the processor to overlap many pixels' square roots and table reads
// (the 32-bit painter's dithered add is long); either way every pixel gets the same sum.
constexpr int32_t kRun = 256;

// The painter's state (the noise seed) is taken by value and handed back: held in a local, it
// stays in a register, where through a reference every byte written to a pixel could change it.
template <typename Pixel>
Pixel PaintRing(PluginDataRec* data, const RingElement* ring, const L_Rect& scan, int32_t y, int32_t maxPixel,
                Pixel pixels) {
    const FlareColor* table = TailRecord<FlareColor>(data, ring->ringFlareColorBase);
    const float xFactor = ring->ringXFactor;
    const float yFactor = ring->ringYFactor;
    const float dy = float(y) - ring->ringYPos;
    const float dySquared = (dy * yFactor) * (yFactor * dy);
    // Distances at or past the table's end paint nothing; testing the root against that bound
    // before converting it also keeps any distance from overflowing the integer. A squared
    // distance at or past the bound squared has a root at or past it too (the square root is
    // correctly rounded and the bound exact), so most pixels outside the ring skip the root.
    const double tableEnd = double(ring->ringFlareColors) * 65536.0;
    const double tableEndSquared = tableEnd * tableEnd;
    float dx = (float(scan.left) - ring->ringXPos) * xFactor;
    if constexpr (!Pixel::kInRuns) {
        uint8_t* pixel = PixelAt(data->flarePixelBuffer, scan.left, y, Pixel::kBytes);
        for (int32_t x = scan.left; x < scan.right; ++x, dx = dx + xFactor, pixel += Pixel::kBytes) {
            const double squared = double(dx * dx + dySquared);
            if (!(squared < tableEndSquared)) continue;
            const double root = std::sqrt(squared) + 0.5;
            if (!(root < tableEnd)) continue;
            PaintAt(table, pixel, uint32_t(root), maxPixel, pixels);
        }
        return pixels;
    }
    uint8_t* run = PixelAt(data->flarePixelBuffer, scan.left, y, Pixel::kBytes);
    int32_t offsets[kRun];
    uint32_t distances[kRun];
    for (int32_t left = scan.left; left < scan.right; left += kRun, run += kRun * Pixel::kBytes) {
        const int32_t length = scan.right - left < kRun ? scan.right - left : kRun;
        int32_t reached = 0;
        for (int32_t k = 0; k < length; ++k, dx = dx + xFactor) {
            const double squared = double(dx * dx + dySquared);
            if (!(squared < tableEndSquared)) continue;
            const double root = std::sqrt(squared) + 0.5;
            const bool inside = root < tableEnd;
            offsets[reached] = k;
            distances[reached] = inside ? uint32_t(root) : 0u;
            reached += inside ? 1 : 0;
        }
        for (int32_t i = 0; i < reached; ++i)
            PaintAt(table, run + offsets[i] * Pixel::kBytes, distances[i], maxPixel, pixels);
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
