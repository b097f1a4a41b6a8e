#include "color_ramps.h"

#include <cstring>

namespace {

constexpr int32_t kFullChannel = 16320;   // 255 x 64

void SwapStops(ElementColor* a, ElementColor* b) {
    ElementColor swap;
    std::memcpy(&swap, a, sizeof(swap));
    std::memcpy(a, b, sizeof(swap));
    std::memcpy(b, &swap, sizeof(swap));
}

// One channel of a table entry: the scaled sum to the nearest integer, clamped to a full
// channel. The clamp comes before the integer conversion so that no sum is too large for it.
int32_t Channel(float sum) {
    const double rounded = double(sum) + 0.5;
    if (!(rounded > 0.0)) return 0;
    if (rounded >= double(kFullChannel)) return kFullChannel;
    return int32_t(rounded);
}

FlareColor StopColor(const ElementColor* stop) { return FlareColor{stop->rgb.red, stop->rgb.green, stop->rgb.blue}; }

}  // namespace

void SortColors(int32_t elementColorCount, ElementColor* firstElementColor) {
    for (int32_t i = 0; i < elementColorCount; ++i) {
        int32_t smallest = i;
        for (int32_t j = i + 1; j < elementColorCount; ++j)
            if (firstElementColor[j].rgb.radius < firstElementColor[smallest].rgb.radius) smallest = j;
        if (smallest != i) SwapStops(&firstElementColor[i], &firstElementColor[smallest]);
    }
}

void AddColor(const ElementColor* theElementColor, const ElementColor* nextElementColor, float p1, float p2,
              float* rSum, float* gSum, float* bSum) {
    const float r0 = theElementColor->rgb.radius;
    const float span = nextElementColor->rgb.radius - r0;
    // Two stops at one radius make a hard edge: the interval between them has no width and
    // contributes nothing (instead of zero divided by zero).
    if (span == 0.0f) return;
    float f1 = p2 - p1;
    const float mid = p1 + p2;
    const float f2 = float(double(f1) * (double(mid) * 0.5 - double(r0)) / double(span));
    f1 = f1 - f2;
    *rSum = (float(nextElementColor->rgb.red) * f2 + float(theElementColor->rgb.red) * f1) + *rSum;
    *gSum = (float(nextElementColor->rgb.green) * f2 + float(theElementColor->rgb.green) * f1) + *gSum;
    *bSum = (float(nextElementColor->rgb.blue) * f2 + float(theElementColor->rgb.blue) * f1) + *bSum;
}

bool CalcRGBColors(float theScale, float theIntensity, const FlareColor* theColor, int32_t elementColorCount,
                   int32_t flareColorCount, const ElementColor* firstElementColor, FlareColor* firstFlareColor) {
    // No stops, no ramp: such an element gets no table.
    if (elementColorCount <= 0) return false;
    const float w = 1.0f / theScale;
    const float k = float(double(theIntensity) / 65535.0 * double(theScale));
    const float sr = float(theColor->red) * k;
    const float sg = float(theColor->green) * k;
    const float sb = float(theColor->blue) * k;
    if (!(sr > 0.0f) && !(sg > 0.0f) && !(sb > 0.0f)) return false;

    const ElementColor* cur = firstElementColor;
    // A single stop is its own neighbour: with one stop left no interval is ever integrated, so
    // nothing past it is read.
    const ElementColor* nxt = elementColorCount > 1 ? firstElementColor + 1 : firstElementColor;
    float nextPos = nxt->rgb.radius;
    float pos = 0.0f;
    float end = w;
    int32_t left = elementColorCount;
    bool result = false;
    for (int32_t i = 0; i < flareColorCount; ++i) {
        FlareColor& entry = firstFlareColor[i];
        if (cur->rgb.radius > end || pos >= 1.0f) {
            entry = StopColor(cur);
        } else {
            float r = 0.0f, g = 0.0f, b = 0.0f;
            if (cur->rgb.radius > pos) {
                r = float(cur->rgb.red);
                g = float(cur->rgb.green);
                b = float(cur->rgb.blue);
                pos = cur->rgb.radius;
            }
            while (left > 1 && end > nextPos) {
                AddColor(cur, nxt, pos, nextPos, &r, &g, &b);
                pos = nextPos;
                cur = nxt;
                --left;
                if (left > 1) {
                    nxt = cur + 1;
                    nextPos = nxt->rgb.radius;
                }
            }
            if (left > 1) AddColor(cur, nxt, pos, end, &r, &g, &b);
            r *= sr;
            g *= sg;
            b *= sb;
            const int32_t red = Channel(r), green = Channel(g), blue = Channel(b);
            if (red > 0 || green > 0 || blue > 0) {
                result = true;
                entry = FlareColor{uint16_t(red), uint16_t(green), uint16_t(blue)};
            } else {
                entry = FlareColor{0, 0, 0};
            }
        }
        pos = end;
        end = end + w;
    }
    firstFlareColor[flareColorCount] = FlareColor{0, 0, 0};
    return result;
}
