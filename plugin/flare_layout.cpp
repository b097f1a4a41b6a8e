#include "flare_layout.h"

#include <cmath>

#include "color_ramps.h"
#include "flare_table.h"
#include "kit/rect.h"
#include "painters.h"
#include "streaks.h"

namespace {

// How one element is drawn this frame: whether at all, its tint, size factor and intensity.
struct ElementLook {
    bool shown = false;
    FlareColor tint{0, 0, 0};
    float size = 1.0f;
    float intensity = 0.0f;
};

constexpr int32_t kHaloStops = 5;
// Pixel bounds are kept well inside the 32-bit range; anything larger covers the frame anyway.
constexpr double kPixelLimit = 1073741824.0;

FlareColor LightTint(const ARGB& light) {
    return FlareColor{uint16_t(light.r * 257), uint16_t(light.g * 257), uint16_t(light.b * 257)};
}

// The halo's tint: the ring colour (16 bits) scaled by the light's (8 bits).
FlareColor HaloTint(const ARGB_Color& ring, const ARGB& light) {
    auto scale = [](int16_t component, uint8_t lightByte) {
        return uint16_t((uint32_t(uint16_t(component)) * (uint32_t(lightByte) + 1u)) >> 8);
    };
    return FlareColor{scale(ring.red, light.r), scale(ring.green, light.g), scale(ring.blue, light.b)};
}

ElementLook LookOf(const ControlDataRec* control, const PluginDataRec* data, const RingElement* ring) {
    const uint32_t flags = control->flareFlags;
    const float dissolve = float(1.0 - control->flareDissolve);
    const double strength = control->flareIntensity * double(data->flareLightIntensity);
    ElementLook look;
    switch (ring->ringType) {
        case kWhiteGlow:
        case kColoredGlow: {
            const bool colored = (flags & kFlagGlowInLightColor) != 0;
            look.shown = (flags & kFlagGlow) != 0 && colored == (ring->ringType == kColoredGlow);
            look.tint = colored ? LightTint(data->flareLightColor) : FlareColor{65535, 65535, 65535};
            look.size = float(strength);
            look.intensity = dissolve * ring->ringIntensity;
            break;
        }
        case kHalo:
            look.shown = (flags & kFlagHalo) != 0;
            look.tint = HaloTint(control->flareRingColor, data->flareLightColor);
            look.intensity = float(strength * double(ring->ringIntensity) * double(dissolve));
            break;
        case kReflection:
            look.shown = (flags & kFlagReflections) != 0;
            look.tint = LightTint(data->flareLightColor);
            look.intensity = float(strength * double(ring->ringIntensity) * double(dissolve));
            break;
        default:
            look.shown = (flags & kFlagReflections) != 0;
            look.tint = LightTint(data->flareLightColor);
            look.intensity = float(0.29 * (strength * double(ring->ringIntensity)) * double(dissolve));
            break;
    }
    return look;
}

// Rebuilds the halo from the ring size: a thin bright band about 0.015 flare units wide just
// inside half the ring size. Returns false when the ring size gives no band (0, negative or not
// a number): the halo is then not drawn, and no infinite stop radius is made.
bool RebuildHalo(const ControlDataRec* control, RingElement* ring, ElementColor* stops) {
    const float h = float(0.5 * control->flareRingSize);
    const float s = float(0.015 / double(h));
    if (!(h > 0.0f) || !std::isfinite(s) || !std::isfinite(h)) return false;
    ring->ringPosition = 1.0f;
    ring->ringOuter = float(double(h) + 0.0075);
    ring->ringInner = 0.0f;
    ring->ringScale = 1.0f;
    ring->ringIntensity = 0.55f;
    ring->ringColor.red = ring->ringColor.green = ring->ringColor.blue = int16_t(-1);
    ring->ringElementColors = kHaloStops;
    const float radii[kHaloStops] = {0.0f, 1.0f - s, float(1.0 - 0.55 * double(s)), float(1.0 - 0.45 * double(s)),
                                     1.0f};
    const uint16_t levels[kHaloStops] = {0, 0, 0x3FFF, 0x3FFF, 0};
    for (int32_t k = 0; k < kHaloStops; ++k) {
        stops[k].rgb.radius = radii[k];
        stops[k].rgb.alpha = k == kHaloStops - 1 ? 0 : 0xFFFF;
        stops[k].rgb.red = stops[k].rgb.green = stops[k].rgb.blue = levels[k];
    }
    return true;
}

// A pixel bound: floor or ceil of a finite coordinate, held inside the 32-bit range.
int32_t PixelBound(double value) {
    if (value < -kPixelLimit) return -int32_t(kPixelLimit);
    if (value > kPixelLimit) return int32_t(kPixelLimit);
    return int32_t(value);
}

bool Finite(float a, float b, float c, float d) {
    return std::isfinite(a) && std::isfinite(b) && std::isfinite(c) && std::isfinite(d);
}

// Places and sizes the element; false when it lies off the frame or has no usable size.
bool PlaceRing(const ControlDataRec* control, const PluginDataRec* data, RingElement* ring, const ElementLook& look) {
    const float aspect = AspectRatio(control);
    const float x = data->flareXCenter + (data->flareXPosition - data->flareXCenter) * ring->ringPosition;
    const float y = data->flareYCenter + (data->flareYPosition - data->flareYCenter) * ring->ringPosition;
    float rx = ring->ringScale * look.size * ring->ringOuter * data->flareXScale * aspect;
    float ry = ring->ringScale * look.size * ring->ringOuter * data->flareYScale;
    if (data->flareLightSize != 0.0f && (ring->ringType == kWhiteGlow || ring->ringType == kColoredGlow)) {
        rx = rx * data->flareLightSize;
        ry = ry * data->flareLightSize;
    }
    ring->ringXPos = x;
    ring->ringYPos = y;
    ring->ringXRadius = rx;
    ring->ringYRadius = ry;
    // Whatever the host sent, nothing that is not a finite, positive size goes on to become pixels.
    if (!Finite(x, y, rx, ry) || !(rx > 0.0f) || !(ry > 0.0f)) return false;
    SetLRect(&ring->ringRect, PixelBound(std::floor(x - rx)), PixelBound(std::floor(y - ry)),
             PixelBound(std::ceil(x + rx)), PixelBound(std::ceil(y + ry)));
    L_Rect onFrame;
    return SectLRect(&ring->ringRect, &data->flareRect, &onFrame) != 0;
}

// Room for the streak painter's per-row lists, right after the streaks.
int32_t ReserveStreakScratch(const PluginDataRec* data, int32_t* size, int32_t* base) {
    const int32_t need = StreakScratchBytes(data->flareStreakCount);
    if (*size < need) return kMemoryError;
    *base += need;
    *size -= need;
    return kNoError;
}

}  // namespace

float AspectRatio(const ControlDataRec* theControl) {
    return (theControl->flareFlags & kFlagAnamorphic) != 0 ? float(theControl->flareAnamorphicFactor) : 1.0f;
}

void DisableRing(RingElement* theRing) {
    theRing->ringFlareColors = 0;
    theRing->ringFlareColorBase = 0;
    theRing->ringRect = L_Rect{};
}

void CalcRingInfo(ControlDataRec* theControl, PluginDataRec* theData, RingElement* theRing, int32_t* theSize,
                  int32_t* theBase, int32_t* result) {
    ElementColor haloColors[kHaloStops];
    const ElementColor* stops = reinterpret_cast<const ElementColor*>(theRing + 1);
    bool drawable = true;
    if (theRing->ringType == kHalo && (theControl->flareFlags & kFlagHalo) != 0) {
        drawable = RebuildHalo(theControl, theRing, haloColors);
        stops = haloColors;
    }
    const ElementLook look = LookOf(theControl, theData, theRing);
    if (!drawable || !look.shown || (theRing->ringMode & kRingNeverDrawn) != 0 || !PlaceRing(theControl, theData, theRing, look)) {
        DisableRing(theRing);
        return;
    }
    const float L = theRing->ringYRadius < theRing->ringXRadius ? theRing->ringYRadius : theRing->ringXRadius;
    theRing->ringXFactor = float(double(L) * 65536.0 / double(theRing->ringXRadius));
    theRing->ringYFactor = float(double(L) * 65536.0 / double(theRing->ringYRadius));
    // An element whose table would not fit the 32-bit sizes of the tail cannot get one: skipped.
    const double entries = std::ceil(double(L));
    if (entries > double((INT32_MAX - 13) / 6)) {
        DisableRing(theRing);
        return;
    }
    const int32_t m = int32_t(entries);
    const int32_t need = (m * 6 + 13) & ~7;
    if (*theSize < need) {
        DisableRing(theRing);
        *result = kMemoryError;
        return;
    }
    theRing->ringFlareColors = m;
    theRing->ringFlareColorBase = *theBase;
    const auto tint = [&](uint16_t t, int16_t c) { return uint16_t((uint32_t(t) * (uint32_t(uint16_t(c)) + 1u)) >> 16); };
    const FlareColor color{tint(look.tint.red, theRing->ringColor.red), tint(look.tint.green, theRing->ringColor.green),
                           tint(look.tint.blue, theRing->ringColor.blue)};
    FlareColor* table = TailRecord<FlareColor>(theData, *theBase);
    if (CalcRGBColors(L, look.intensity, &color, theRing->ringElementColors, m, stops, table)) {
        *theBase += need;
        *theSize -= need;
    } else {
        theRing->ringFlareColors = 0;
        theRing->ringFlareColorBase = 0;
    }
}

int32_t CalcFlareInfo(ControlDataRec* theControl, PluginDataRec* theData) {
    int32_t result = kNoError;
    int32_t base = theData->flareElementSize;
    int32_t size = theData->flareDataSize - base;
    if (size > 0) {
        RingElement* ring = RingAt(theData, theData->flareRingFirst);
        for (int32_t i = 0; i < theData->flareRingCount && ring != nullptr; ++i) {
            // After a failure the remaining elements are not laid out; they are marked not drawn,
            // so that no element keeps a table of an earlier frame that this one overwrote.
            if (result == kNoError) CalcRingInfo(theControl, theData, ring, &size, &base, &result);
            else DisableRing(ring);
            ring = RingAt(theData, ring->ringNext);
        }
        if (result == kNoError) result = BuildStreaks(theControl, theData, &size, &base);
        if (result == kNoError) result = ReserveStreakScratch(theData, &size, &base);
    }
    theData->flareDataSize = base;
    return result;
}
