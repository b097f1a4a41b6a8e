// Streaks: each row is sliced once per streak to find its span, then every pixel of the spans'
// union adds a brightness falling off as e^(-d^1.5) along and across each covering streak. Within
// a run of consecutive covering streaks of one kind only the brightest adds; the runs add up.
//
// The row is walked in segments over which the set of covering streaks does not change, so a
// pixel costs nothing for streaks that do not cover it; the covering ones keep their list order.
// Both lists live in scratch space after the streaks in the working record's tail.
#include <cmath>

#include "kit/rect.h"
#include "painters.h"
#include "pixels.h"
#include "scan_conversion.h"

namespace {

constexpr int32_t kNoSpanLeft = INT32_MAX;
constexpr int32_t kNoSpanRight = INT32_MIN;

// A float colour number truncated toward zero; held inside the integers a pixel sum can take,
// so that no product of an extreme streak colour converts out of range.
int32_t Number(float value) {
    if (!(value > -1073741824.0f)) return value != value ? 0 : -1073741824;
    if (value > 1073741824.0f) return 1073741824;
    return int32_t(value);
}

// e^(-d^1.5), exactly as the 48-bit painter evaluates it.
float Falloff48(float d) { return float(std::exp(-std::exp(1.5 * std::log(double(d))))); }

// The table value at d = 3, partner of the table's last entry in the interpolation: the 32-bit
// lookup treats the table as if it had a 1025th entry there.
float LookupEnd() {
    static const float end = float(std::exp(-std::exp(1.5 * std::log(3.0))));
    return end;
}

float Lookup(const LookupElement* table, float d) {
    const float s = float(double(d) * 341.3333333333333);
    const int32_t t = int32_t(s);
    const float next = t + 1 < kLookupEntries ? table[t + 1].value : LookupEnd();
    return (s - table[t].index) * (next - table[t].value) + table[t].value;
}

struct Streak48 {
    static constexpr int32_t kBytes = 6;
    int32_t maxPixel;
    float intensity;
    uint32_t seed = 0;
    Streak48(const ControlDataRec* control, int32_t) {
        intensity = float(16320.0 * (1.0 - control->flareDissolve));
        maxPixel = StreakCeiling48(intensity);
    }
    bool Falloff(const LookupElement*, float* along, float* across) const {
        *along = Falloff48(*along);
        *across = Falloff48(*across);
        return true;
    }
    void Add(uint8_t* pixel, int32_t r, int32_t g, int32_t b) { SumPixel48(pixel, r, g, b, maxPixel); }
};

struct Streak32 {
    static constexpr int32_t kBytes = 4;
    int32_t maxPixel;
    float intensity;
    uint32_t seed;
    Streak32(const ControlDataRec* control, int32_t y) : seed(uint32_t(y)) {
        intensity = float(16320.0 * (1.0 - control->flareDissolve));
        maxPixel = Ceiling32(control->flareDissolve);
    }
    // Beyond 3 lengths or widths the table ends: the streak is passed over at this pixel.
    bool Falloff(const LookupElement* table, float* along, float* across) const {
        if (!(*along < 3.0f && *across < 3.0f)) return false;
        *along = Lookup(table, *along);
        *across = Lookup(table, *across);
        return true;
    }
    void Add(uint8_t* pixel, int32_t r, int32_t g, int32_t b) { SumPixel32(pixel, &seed, r, g, b, maxPixel); }
};

// Slices every streak whose rectangle meets the row; lists those with a span and returns the
// span of the union in *left..*right.
int32_t SliceStreaks(PluginDataRec* data, const L_Rect* curRect, int32_t y, int32_t* active, int32_t* left,
                     int32_t* right) {
    int32_t count = 0;
    *left = kNoSpanLeft;
    *right = kNoSpanRight;
    int32_t offset = data->flareStreakFirst;
    for (int32_t i = 0; i < data->flareStreakCount; ++i) {
        StreakElement* streak = TailRecord<StreakElement>(data, offset);
        L_Rect scan;
        if (SectLRect(curRect, &streak->streakRect, &scan) != 0 &&
            SliceEdges(&scan, y, streak->streakEdges, &streak->streakXMin, &streak->streakXMax)) {
            active[count++] = offset;
            if (streak->streakXMin < *left) *left = streak->streakXMin;
            if (streak->streakXMax > *right) *right = streak->streakXMax;
        } else {
            streak->streakXMin = kNoSpanLeft;
            streak->streakXMax = kNoSpanRight;
        }
        offset = streak->streakNext;
    }
    return count;
}

// The streaks covering column x, in list order, and the first column after x where that set changes.
int32_t Covering(PluginDataRec* data, const int32_t* active, int32_t activeCount, int32_t x, int32_t right,
                 int32_t* covering, int32_t* next) {
    int32_t count = 0;
    *next = right + 1;
    for (int32_t i = 0; i < activeCount; ++i) {
        const StreakElement* streak = TailRecord<StreakElement>(data, active[i]);
        if (streak->streakXMin <= x && x <= streak->streakXMax) {
            covering[count++] = active[i];
            if (streak->streakXMax + 1 < *next) *next = streak->streakXMax + 1;
        } else if (streak->streakXMin > x && streak->streakXMin < *next) {
            *next = streak->streakXMin;
        }
    }
    return count;
}

template <typename Pixel>
void PaintPixel(PluginDataRec* data, const int32_t* covering, int32_t count, float xp, float yp, uint8_t* pixel,
                Pixel& paint) {
    int32_t lastMode = -1;
    float brightest = 0.0f;
    int32_t r = 0, g = 0, b = 0;
    for (int32_t i = 0; i < count; ++i) {
        const StreakElement* streak = TailRecord<StreakElement>(data, covering[i]);
        float along = std::fabs(streak->streakXLength * xp + streak->streakYLength * yp);
        float across = std::fabs(streak->streakXWidth * xp + streak->streakYWidth * yp);
        const int32_t mode = int32_t(streak->streakMode & 3u);
        if (!paint.Falloff(data->flareLookup, &along, &across)) continue;
        const float v = along * (across * paint.intensity);
        if (mode != lastMode && lastMode >= 0) paint.Add(pixel, r, g, b);
        if (mode != lastMode || v > brightest) {
            r = Number(streak->streakColor.r * v);
            g = Number(streak->streakColor.g * v);
            b = Number(streak->streakColor.b * v);
            brightest = v;
            lastMode = mode;
        }
    }
    if (lastMode >= 0) paint.Add(pixel, r, g, b);
}

template <typename Pixel>
void PaintStreaks(const ControlDataRec* control, PluginDataRec* data, const L_Rect* curRect, int32_t y) {
    const int32_t streaks = data->flareStreakCount;
    if (streaks <= 0) return;
    const int32_t scratch = data->flareStreakFirst + streaks * int32_t(sizeof(StreakElement));
    if (int64_t(scratch) + StreakScratchBytes(streaks) > data->flareDataSize) return;
    int32_t* active = TailRecord<int32_t>(data, scratch);
    int32_t* covering = active + streaks;
    Pixel paint(control, y);
    const float yp = float(y) - data->flareYPosition;
    int32_t left, right;
    const int32_t activeCount = SliceStreaks(data, curRect, y, active, &left, &right);
    if (left > right) return;
    float xp = float(left) - data->flareXPosition;
    uint8_t* pixel = PixelAt(data->flarePixelBuffer, left, y, Pixel::kBytes);
    for (int32_t x = left; x <= right;) {
        int32_t next;
        const int32_t count = Covering(data, active, activeCount, x, right, covering, &next);
        for (; x < next; ++x, xp = xp + 1.0f, pixel += Pixel::kBytes)
            if (count > 0) PaintPixel(data, covering, count, xp, yp, pixel, paint);
    }
}

}  // namespace

int32_t StreakScratchBytes(int32_t streakCount) { return (streakCount * 2 * int32_t(sizeof(int32_t)) + 7) & ~7; }

void PaintStreaks48(const ControlDataRec* theControl, PluginDataRec* theData, const L_Rect* curRect, int32_t y) {
    PaintStreaks<Streak48>(theControl, theData, curRect, y);
}

void PaintStreaks32(const ControlDataRec* theControl, PluginDataRec* theData, const L_Rect* curRect, int32_t y) {
    PaintStreaks<Streak32>(theControl, theData, curRect, y);
}
