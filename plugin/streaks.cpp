#include "streaks.h"

#include <cmath>
#include <initializer_list>

#include "flare_layout.h"
#include "kit/rect.h"
#include "scan_conversion.h"

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kDegrees = 0.017453292519943295;   // radians per degree
constexpr double kTwoPi = 6.283185307179586;
constexpr double kUnitFraction = 2.328306436e-10;   // just below 2^-32, so every fraction is below 1
constexpr double kByteFraction = 0.00392156862745098;   // 1 / 255
constexpr int32_t kStreakBytes = int32_t(sizeof(StreakElement));

struct StreakShape {
    float angle, length, width;
    RGB_Real color;
    uint32_t mode;
};

bool LightInFrame(const PluginDataRec* data) {
    const L_Rect& frame = data->flareRect;
    return data->flareXPosition >= float(frame.left) && data->flareXPosition < float(frame.right) &&
           data->flareYPosition >= float(frame.top) && data->flareYPosition < float(frame.bottom);
}

int32_t Add(ControlDataRec* control, PluginDataRec* data, StreakElement** last, int32_t* size, int32_t* base,
            const StreakShape& shape) {
    const int32_t result = AddStreak(data, last, size, base);
    if (result != kNoError) return result;
    StreakElement* streak = *last;
    streak->streakAngle = shape.angle;
    streak->streakLength = shape.length;
    streak->streakWidth = shape.width;
    streak->streakColor = shape.color;
    streak->streakMode = shape.mode;
    CalcStreakInfo(control, data, streak);
    return kNoError;
}

int32_t AddStarRays(ControlDataRec* control, PluginDataRec* data, StreakElement** last, int32_t* size,
                    int32_t* base) {
    const StarRays rays = StarFilterRays(control->flareStarFilter);
    if (rays.major > 0) {
        const float delta = float(kPi / rays.major);
        float theta = float(control->flareStarRotation * kDegrees);
        for (int32_t k = 0; k < rays.major; ++k, theta = theta + delta) {
            const StreakShape shape{theta, 0.2625f, 0.01125f, {0.2f, 0.2f, 0.2f}, kStreakMajor | kStreakTwoSided};
            if (int32_t result = Add(control, data, last, size, base, shape); result != kNoError) return result;
        }
    }
    if (rays.minor > 0) {
        const float delta = float(kPi / rays.minor);
        float theta = float(control->flareStarRotation * kDegrees + 0.5 * double(delta));
        for (int32_t k = 0; k < rays.minor; ++k, theta = theta + delta) {
            const StreakShape shape{theta, 0.13125f, 0.01125f, {0.1f, 0.1f, 0.1f}, kStreakMinor | kStreakTwoSided};
            if (int32_t result = Add(control, data, last, size, base, shape); result != kNoError) return result;
        }
    }
    return kNoError;
}

double NextFraction(uint32_t* seed) {
    *seed = *seed * 1103515245u + 12345u;
    return double(*seed) * kUnitFraction;
}

// The density's fractional part seeds the spray, so a density always gives the same rays and its
// integer part only their number. Beyond the 32-bit count the tail is full long before.
int32_t AddRandomStreaks(ControlDataRec* control, PluginDataRec* data, StreakElement** last, int32_t* size,
                         int32_t* base) {
    const double density = control->flareStreakDensity;
    const double whole = std::trunc(density);
    const int64_t count = whole >= double(INT32_MAX) ? INT32_MAX : int64_t(whole);
    const double scaled = (density - whole) * 4294967295.0;
    uint32_t seed = !(scaled > 0.0) ? 0u : scaled >= 4294967295.0 ? 4294967295u : uint32_t(scaled);
    const float intensity = float(control->flareStreakIntensity);
    for (int64_t i = 0; i < count; ++i) {
        StreakShape shape{};
        shape.angle = float(kTwoPi * NextFraction(&seed));
        float q = float(NextFraction(&seed));
        q = q * q;
        q = q * q;
        q = 1.0f - q;
        shape.length = float(double(q) * 0.3275 + 0.01);
        shape.width = float((NextFraction(&seed) * 0.030000000000000002 + 0.02) / control->flareStreakSharpness);
        shape.color = RGB_Real{intensity, intensity, intensity};
        shape.mode = kStreakRandom;
        if (int32_t result = Add(control, data, last, size, base, shape); result != kNoError) return result;
    }
    return kNoError;
}

// Random rays are as wide as 1 / sharpness: a sharpness of 0 or less (or not a number) would make
// them infinitely wide, so the spray is left out.
bool WantsRandomStreaks(const ControlDataRec* control) {
    return (control->flareFlags & kFlagRandomStreaks) != 0 && control->flareStreakDensity >= 1.0 &&
           control->flareStreakSharpness > 0.0 && std::isfinite(control->flareStreakSharpness);
}

bool AllFinite(std::initializer_list<float> values) {
    for (float v : values)
        if (!std::isfinite(v)) return false;
    return true;
}

}  // namespace

StarRays StarFilterRays(int32_t starFilter) {
    static const StarRays kRays[] = {{0, 0}, {1, 0}, {1, 1}, {2, 0}, {2, 2}, {3, 0}, {3, 3}, {4, 0}, {4, 4}, {5, 0}};
    return starFilter >= 0 && starFilter <= 9 ? kRays[starFilter] : StarRays{5, 5};
}

int32_t AddStreak(PluginDataRec* theData, StreakElement** theStreakElement, int32_t* theSize, int32_t* theBase) {
    if (*theSize < kStreakBytes) return kMemoryError;
    if (*theStreakElement != nullptr) (*theStreakElement)->streakNext = *theBase;
    else theData->flareStreakFirst = *theBase;
    ++theData->flareStreakCount;
    StreakElement* streak = TailRecord<StreakElement>(theData, *theBase);
    *streak = StreakElement{};
    *theStreakElement = streak;
    *theBase += kStreakBytes;
    *theSize -= kStreakBytes;
    return kNoError;
}

int32_t BuildStreaks(ControlDataRec* theControl, PluginDataRec* theData, int32_t* theSize, int32_t* theBase) {
    StreakElement* last = nullptr;
    theData->flareStreakCount = 0;
    theData->flareStreakFirst = 0;
    if ((theControl->flareFlags & kFlagStreaksOffFrame) == 0 && !LightInFrame(theData)) return kNoError;
    if ((theControl->flareFlags & kFlagAnamorphicStreak) != 0) {
        const StreakShape shape{float(kPi / 2), 0.7f, 0.045f, {0.04f, 0.08f, 0.32f}, kStreakAnamorphic | kStreakTwoSided};
        if (int32_t result = Add(theControl, theData, &last, theSize, theBase, shape); result != kNoError) return result;
    }
    if (theControl->flareStarFilter != 0) {
        if (int32_t result = AddStarRays(theControl, theData, &last, theSize, theBase); result != kNoError) return result;
    }
    if (WantsRandomStreaks(theControl)) return AddRandomStreaks(theControl, theData, &last, theSize, theBase);
    return kNoError;
}

void CalcStreakInfo(ControlDataRec* theControl, PluginDataRec* theData, StreakElement* theStreak) {
    const float aspect = AspectRatio(theControl);
    const double strength = theControl->flareIntensity * double(theData->flareLightIntensity);
    const float sx = float(strength * double(theData->flareXScale) * double(aspect));
    const float sy = float(strength * double(theData->flareYScale));
    const float l3 = 3.0f * theStreak->streakLength;
    const float w3 = 3.0f * theStreak->streakWidth;
    const float sn = float(std::sin(double(theStreak->streakAngle)));
    const float cs = float(std::cos(double(theStreak->streakAngle)));
    const float xL = sn * l3 * sx;
    const float yL = cs * l3 * sy;
    float xW = w3 * sx;
    float yW = w3 * sy;
    if (xW < 1.5f) xW = 1.5f;
    if (yW < 1.5f) yW = 1.5f;
    xW = xW * -cs;
    yW = yW * sn;
    const float x = theData->flareXPosition, y = theData->flareYPosition;
    theStreak->streakRect = L_Rect{};
    // A streak the host's numbers leave without a finite shape is not drawn.
    if (!AllFinite({x, y, xL, yL, xW, yW})) return;
    const bool twoSided = (theStreak->streakMode & kStreakTwoSided) != 0;
    const float p[4][2] = {
        {twoSided ? x - xL - xW : x - xW, twoSided ? y - yL - yW : y - yW},
        {twoSided ? x - xL + xW : x + xW, twoSided ? y - yL + yW : y + yW},
        {x + xL + xW, y + yL + yW},
        {x + xL - xW, y + yL - yW},
    };
    // Finite parts can still add up to an infinite corner.
    if (!AllFinite({p[0][0], p[0][1], p[1][0], p[1][1], p[2][0], p[2][1], p[3][0], p[3][1]})) return;
    int32_t xMin = kScanLimit, xMax = -kScanLimit, yMin = kScanLimit, yMax = -kScanLimit;
    for (int i = 0; i < 4; ++i) {
        const float* from = p[i];
        const float* to = p[(i + 1) % 4];
        SetEdge(&theStreak->streakEdges[i], theData->flareRect.top, from[0], from[1], to[0], to[1], &xMin, &yMin,
                &xMax, &yMax);
    }
    SetLRect(&theStreak->streakRect, xMin, yMin, xMax + 1, yMax + 1);
    if (SectLRect(&theStreak->streakRect, &theData->flareRect, &theStreak->streakRect) == 0) return;
    theStreak->streakXLength = sn / (theStreak->streakLength * sx);
    theStreak->streakYLength = cs / (theStreak->streakLength * sy);
    theStreak->streakXWidth = -cs / (theStreak->streakWidth * sx);
    theStreak->streakYWidth = sn / (theStreak->streakWidth * sy);
    if (!AllFinite({theStreak->streakXLength, theStreak->streakYLength, theStreak->streakXWidth,
                    theStreak->streakYWidth})) {
        theStreak->streakRect = L_Rect{};
        return;
    }
    const ARGB light = theData->flareLightColor;
    RGB_Real& color = theStreak->streakColor;
    color.r = float(double(light.r) * kByteFraction * double(color.r));
    color.g = float(double(light.g) * kByteFraction * double(color.g));
    color.b = float(double(light.b) * kByteFraction * double(color.b));
}
