// Streaks: each row is sliced once per streak to find its span, then every pixel of the spans'
// union adds a brightness falling off as e^(-d^1.5) along and across each covering streak. Within
// a run of consecutive covering streaks of one kind only the brightest adds; the runs add up.
//
// The row is walked in segments over which the set of covering streaks does not change, so a
// pixel costs nothing for streaks that do not cover it; the covering ones keep their list order.
// Both lists live in scratch space after the streaks in the working record's tail. A row with up
// to kRowStreaks streaks first copies what the pixel loop reads of them (spans, kinds and the
// products of their y terms with the row's yp) to the stack; its segments come from the streaks
// sorted by first column. A row with more reads the records and finds each segment's streaks by
// a pass over all of them.
//
// Nothing here changes a pixel from the plain evaluation of every covering streak: the 48-bit
// falloff is found without the library's exp and log only where it rounds to the same float, and
// a streak is passed over only where a bound from above shows it cannot be its run's brightest.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

// 2^(-j/64) for j = 0..63, for the quick falloff below.
struct SixtyFourths {
    double power[64];
    SixtyFourths() {
        for (int32_t j = 0; j < 64; ++j) power[j] = std::exp2(-double(j) / 64.0);
    }
};
const SixtyFourths kSixtyFourths;

// ln 2 / 64 in two parts, the first short enough that k times it is exact for every k below.
constexpr double kStepHigh = 6.93147180369123816490e-01 / 64.0;
constexpr double kStepLow = 1.90821492927058770002e-10 / 64.0;
constexpr double kStepsPerUnit = 64.0 / 0.69314718055994530942;

// A double whose float rounding lies within this many units of its last place of a midpoint
// between two floats (relative 2^-36) could round apart from the library's value.
constexpr uint64_t kMidpointMargin = uint64_t(1) << 16;
constexpr uint64_t kBelowFloat = (uint64_t(1) << 29) - 1;   // the 29 bits a float drops
constexpr uint64_t kMidpoint = uint64_t(1) << 28;

// d^1.5 = x as d times its square root, then e^-x = 2^(-k/64) e^q with |q| <= ln 2 / 128: the
// power from the table and the exponent, e^q from its series to q^5. In double that is within
// about 1e-14 of e^-x; the library's exp(-exp(1.5 log d)) is within about 2e-13 for d below 16.
// Both therefore round to the same float unless e^-x lies next to a midpoint, and there (one
// value in 4096) the library is asked. The tests check every float of the range against it.
float QuickFalloff48(float d) {
    const double x = double(d) * std::sqrt(double(d));
    const int32_t k = int32_t(x * kStepsPerUnit + 0.5);
    const double q = (double(k) * kStepHigh - x) + double(k) * kStepLow;
    const double series = 1.0 + q * (1.0 + q * (0.5 + q * (1.0 / 6.0 + q * (1.0 / 24.0 + q * (1.0 / 120.0)))));
    const uint64_t scaleBits = uint64_t(1023 - (k >> 6)) << 52;
    double scale;
    std::memcpy(&scale, &scaleBits, sizeof(scale));
    const double y = kSixtyFourths.power[k & 63] * series * scale;
    uint64_t bits;
    std::memcpy(&bits, &y, sizeof(bits));
    if ((bits & kBelowFloat) - (kMidpoint - kMidpointMargin) < 2 * kMidpointMargin) return Falloff48(d);
    return float(y);
}

inline float Falloff48Fast(float d) {
    return d >= kQuickFalloffLow && d < kQuickFalloffHigh ? QuickFalloff48(d) : Falloff48(d);
}

inline bool InQuickRange(float d) { return d >= kQuickFalloffLow && d < kQuickFalloffHigh; }

// The double's float rounding lies too near a midpoint to be trusted (see QuickFalloff48).
inline bool NearMidpoint(double y) {
    uint64_t bits;
    std::memcpy(&bits, &y, sizeof(bits));
    return (bits & kBelowFloat) - (kMidpoint - kMidpointMargin) < 2 * kMidpointMargin;
}

// Two falloffs at once, along and across a streak: QuickFalloff48's very operations on a pair of
// doubles (the packed square root, products and sums round as the single ones do), with the
// table read and the midpoint test lane by lane.
#if defined(__SSE2__)
void QuickFalloffPair48(float* a, float* b) {
    const __m128d d = _mm_cvtps_pd(_mm_setr_ps(*a, *b, 0.0f, 0.0f));
    const __m128d x = _mm_mul_pd(d, _mm_sqrt_pd(d));
    const __m128i k = _mm_cvttpd_epi32(_mm_add_pd(_mm_mul_pd(x, _mm_set1_pd(kStepsPerUnit)), _mm_set1_pd(0.5)));
    const __m128d kd = _mm_cvtepi32_pd(k);
    const __m128d q = _mm_add_pd(_mm_sub_pd(_mm_mul_pd(kd, _mm_set1_pd(kStepHigh)), x),
                                 _mm_mul_pd(kd, _mm_set1_pd(kStepLow)));
    __m128d series = _mm_add_pd(_mm_set1_pd(1.0 / 24.0), _mm_mul_pd(q, _mm_set1_pd(1.0 / 120.0)));
    series = _mm_add_pd(_mm_set1_pd(1.0 / 6.0), _mm_mul_pd(q, series));
    series = _mm_add_pd(_mm_set1_pd(0.5), _mm_mul_pd(q, series));
    series = _mm_add_pd(_mm_set1_pd(1.0), _mm_mul_pd(q, series));
    series = _mm_add_pd(_mm_set1_pd(1.0), _mm_mul_pd(q, series));
    // 1023 - (k >> 6) is positive here (k is at most 64 * 64 / ln 2), so widening it with zeros
    // gives the exponent field the scalar form shifts into place.
    const __m128i exponent = _mm_sub_epi32(_mm_set1_epi32(1023), _mm_srai_epi32(k, 6));
    const __m128d scale = _mm_castsi128_pd(_mm_slli_epi64(_mm_unpacklo_epi32(exponent, _mm_setzero_si128()), 52));
    const int32_t k0 = _mm_cvtsi128_si32(k), k1 = _mm_cvtsi128_si32(_mm_srli_si128(k, 4));
    const __m128d power = _mm_setr_pd(kSixtyFourths.power[k0 & 63], kSixtyFourths.power[k1 & 63]);
    const __m128d y = _mm_mul_pd(_mm_mul_pd(power, series), scale);
    alignas(16) double ys[2];
    _mm_store_pd(ys, y);
    *a = NearMidpoint(ys[0]) ? Falloff48(*a) : float(ys[0]);
    *b = NearMidpoint(ys[1]) ? Falloff48(*b) : float(ys[1]);
}
#endif

inline void Falloff48Pair(float* a, float* b) {
#if defined(__SSE2__)
    if (InQuickRange(*a) && InQuickRange(*b)) return QuickFalloffPair48(a, b);
#endif
    *a = Falloff48Fast(*a);
    *b = Falloff48Fast(*b);
}

// Bounds from above for the 48-bit falloff, one per 1/256 of d: on [k/256, (k+1)/256) it is at
// most its value at k/256, since it falls as d grows (the tests check every float of [1/256, 4)).
// Below 1/256, from 4 on and for NaN the bound is infinite.
constexpr float kBoundSteps = 256.0f;
constexpr int32_t kBoundEntries = 1024;
struct FalloffBounds {
    float bound[kBoundEntries + 1];
    FalloffBounds() {
        bound[0] = bound[kBoundEntries] = INFINITY;
        for (int32_t k = 1; k < kBoundEntries; ++k) bound[k] = Falloff48(float(k) / kBoundSteps);
    }
};
const FalloffBounds kFalloffBounds;

inline float FalloffBound(float d) {
    const float steps = d * kBoundSteps;
    return kFalloffBounds.bound[steps >= 0.0f && steps < float(kBoundEntries) ? int32_t(steps) : kBoundEntries];
}

// The table value at d = 3, partner of the table's last entry in the interpolation: the 32-bit
// lookup treats the table as if it had a 1025th entry there.
float LookupEnd() {
    static const float end = float(std::exp(-std::exp(1.5 * std::log(3.0))));
    return end;
}

float Lookup(const LookupElement* table, float end, float d) {
    const float s = float(double(d) * 341.3333333333333);
    const int32_t t = int32_t(s);
    const float next = t + 1 < kLookupEntries ? table[t + 1].value : end;
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
        bounded = intensity > 0.0f && intensity < INFINITY;
    }
    bool bounded;   // whether Outshone may skip streaks
    bool Falloff(const LookupElement*, float* along, float* across) const {
        Falloff48Pair(along, across);
        return true;
    }
    // True when a streak at these distances cannot outshine `brightest`. With a positive, finite
    // intensity the bounds give a product at least as large as v itself, since rounding keeps
    // the order of what it rounds.
    bool Outshone(float along, float across, float brightest) const {
        return bounded && FalloffBound(along) * (FalloffBound(across) * intensity) <= brightest;
    }
    void Add(uint8_t* pixel, int32_t r, int32_t g, int32_t b) { SumPixel48(pixel, r, g, b, maxPixel); }
};

struct Streak32 {
    static constexpr int32_t kBytes = 4;
    int32_t maxPixel;
    float intensity;
    float end = LookupEnd();
    uint32_t seed;
    Streak32(const ControlDataRec* control, int32_t y) : seed(uint32_t(y)) {
        intensity = float(16320.0 * (1.0 - control->flareDissolve));
        maxPixel = Ceiling32(control->flareDissolve);
    }
    // Beyond 3 lengths or widths the table ends: the streak is passed over at this pixel.
    bool Falloff(const LookupElement* table, float* along, float* across) const {
        if (!(*along < 3.0f && *across < 3.0f)) return false;
        *along = Lookup(table, end, *along);
        *across = Lookup(table, end, *across);
        return true;
    }
    // A bound would cost about what the two lookups cost: no streak is skipped.
    bool Outshone(float, float, float) const { return false; }
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

// What the pixel loop reads of one streak on a row, with the y terms already multiplied by the
// row's yp: the very products the loop would form.
struct RowStreak {
    float xLength, yLength, xWidth, yWidth;
    int32_t mode;
};

// Rows with up to this many streaks are painted from a copy on the stack (about 20 KB).
constexpr int32_t kRowStreaks = 512;

// The row's active streaks copied to the stack, indexed as in the active list. Colours are read
// from the records: only a streak that becomes the brightest of its run needs one.
struct CopiedStreaks {
    PluginDataRec* data;
    const int32_t* active;
    int32_t xMin[kRowStreaks], xMax[kRowStreaks];
    RowStreak streak[kRowStreaks];
    uint64_t starts[kRowStreaks];   // first column (from the row's left) above, index below, sorted
    float bound[kRowStreaks];       // per place in the covering list, for the 48-bit runs

    CopiedStreaks(PluginDataRec* theData, const int32_t* theActive, int32_t count, float yp)
        : data(theData), active(theActive) {
        for (int32_t i = 0; i < count; ++i) {
            const StreakElement* s = TailRecord<StreakElement>(data, active[i]);
            xMin[i] = s->streakXMin;
            xMax[i] = s->streakXMax;
            streak[i] = RowStreak{s->streakXLength, s->streakYLength * yp, s->streakXWidth, s->streakYWidth * yp,
                                  int32_t(s->streakMode & 3u)};
        }
    }
    void Distances(int32_t i, float xp, float* along, float* across) const {
        const RowStreak& s = streak[i];
        *along = std::fabs(s.xLength * xp + s.yLength);
        *across = std::fabs(s.xWidth * xp + s.yWidth);
    }
    int32_t Mode(int32_t i) const { return streak[i].mode; }
    const RGB_Real& Color(int32_t i) const { return TailRecord<StreakElement>(data, active[i])->streakColor; }
};

// The row's active streaks read from their records, for rows with more than the stack holds.
struct RecordStreaks {
    PluginDataRec* data;
    const int32_t* active;
    float yp;

    const StreakElement* At(int32_t i) const { return TailRecord<StreakElement>(data, active[i]); }
    void Distances(int32_t i, float xp, float* along, float* across) const {
        const StreakElement* s = At(i);
        *along = std::fabs(s->streakXLength * xp + s->streakYLength * yp);
        *across = std::fabs(s->streakXWidth * xp + s->streakYWidth * yp);
    }
    int32_t Mode(int32_t i) const { return int32_t(At(i)->streakMode & 3u); }
    const RGB_Real& Color(int32_t i) const { return At(i)->streakColor; }
};

// One pixel, streak by streak in list order. The brightest of a run is kept as its place in the
// covering list and turned into colour numbers when the run is added.
template <typename Pixel, typename Streaks>
void PaintPixel(const Streaks& streaks, const LookupElement* table, const int32_t* covering, int32_t count, float xp,
                uint8_t* pixel, Pixel& paint) {
    const auto add = [&streaks, pixel, &paint](int32_t k, float v) {
        const RGB_Real& color = streaks.Color(k);
        paint.Add(pixel, Number(color.r * v), Number(color.g * v), Number(color.b * v));
    };
    int32_t lastMode = -1;
    float brightest = 0.0f;
    int32_t winner = 0;
    for (int32_t i = 0; i < count; ++i) {
        const int32_t k = covering[i];
        float along, across;
        streaks.Distances(k, xp, &along, &across);
        const int32_t mode = streaks.Mode(k);
        // Within a run a streak that cannot outshine the brightest so far changes nothing.
        if (mode == lastMode && paint.Outshone(along, across, brightest)) continue;
        if (!paint.Falloff(table, &along, &across)) continue;
        const float v = along * (across * paint.intensity);
        if (mode != lastMode) {
            if (lastMode >= 0) add(winner, brightest);
            brightest = v;
            winner = k;
            lastMode = mode;
        } else {
            const bool brighter = v > brightest;
            brightest = brighter ? v : brightest;
            winner = brighter ? k : winner;
        }
    }
    if (lastMode >= 0) add(winner, brightest);
}

// One 48-bit pixel of a copied row, run by run, for a positive finite intensity (every 48-bit
// streak covering a pixel takes part, so the runs are the stretches of one kind). A run ends with
// its brightest streak, the first of equal ones, unless its first streak's distances are not
// numbers: then nothing replaces that one. Otherwise only the streak with the largest bound is
// worked out at first; a streak whose bound stays below its value (or only reaches it from
// behind) can be neither the brightest nor the first of equals, and is passed over.
void PaintPixelByRuns(CopiedStreaks& row, const int32_t* covering, int32_t count, float xp, uint8_t* pixel,
                      Streak48& paint) {
    const auto exact = [&row, xp, &paint](int32_t k) {
        float along, across;
        row.Distances(k, xp, &along, &across);
        paint.Falloff(nullptr, &along, &across);
        return along * (across * paint.intensity);
    };
    for (int32_t first = 0; first < count;) {
        const int32_t mode = row.Mode(covering[first]);
        int32_t end = first + 1;
        while (end < count && row.Mode(covering[end]) == mode) ++end;
        float along, across;
        row.Distances(covering[first], xp, &along, &across);
        float brightest;
        int32_t winner = first;
        if (end - first == 1 || along != along || across != across) {
            brightest = exact(covering[first]);
        } else {
            int32_t top = first;
            for (int32_t i = first; i < end; ++i) {
                row.Distances(covering[i], xp, &along, &across);
                row.bound[i] = FalloffBound(along) * (FalloffBound(across) * paint.intensity);
                if (row.bound[i] > row.bound[top]) top = i;
            }
            // Every value is at least 0, and one that is not a number never leads.
            const float topValue = exact(covering[top]);
            const bool topLeads = topValue == topValue;
            const float lead = topLeads ? topValue : -1.0f;
            const int32_t leader = topLeads ? top : -1;
            brightest = -1.0f;
            for (int32_t i = first; i < end; ++i) {
                if (i != top && (row.bound[i] < lead || (row.bound[i] == lead && i > leader))) continue;
                const float v = i == top ? topValue : exact(covering[i]);
                if (v > brightest) {
                    brightest = v;
                    winner = i;
                }
            }
        }
        const RGB_Real& color = row.Color(covering[winner]);
        paint.Add(pixel, Number(color.r * brightest), Number(color.g * brightest), Number(color.b * brightest));
        first = end;
    }
}

template <typename Pixel>
void PaintCovered(CopiedStreaks& row, const LookupElement* table, const int32_t* covering, int32_t count, float xp,
                  uint8_t* pixel, Pixel& paint) {
    if constexpr (std::is_same_v<Pixel, Streak48>) {
        if (paint.bounded) return PaintPixelByRuns(row, covering, count, xp, pixel, paint);
    }
    PaintPixel(row, table, covering, count, xp, pixel, paint);
}

// A row whose streaks are on the stack, in segments over which the covering streaks stay the
// same: streaks join the covering list (kept in list order) at their first column, sorted by it,
// and leave it after their last. A sliced span is never empty.
template <typename Pixel>
void PaintCopiedRow(CopiedStreaks& row, const LookupElement* table, int32_t activeCount, int32_t left, int32_t right,
                    float xp, uint8_t* pixel, int32_t* covering, Pixel& paint) {
    uint64_t* starts = row.starts;
    for (int32_t i = 0; i < activeCount; ++i) starts[i] = uint64_t(uint32_t(row.xMin[i] - left)) << 32 | uint32_t(i);
    std::sort(starts, starts + activeCount);
    int32_t count = 0, joined = 0;
    for (int32_t x = left; x <= right;) {
        int32_t kept = 0;
        for (int32_t i = 0; i < count; ++i)
            if (row.xMax[covering[i]] >= x) covering[kept++] = covering[i];
        const int32_t from = joined;
        while (joined < activeCount && int32_t(starts[joined] >> 32) == x - left) ++joined;
        count = kept + (joined - from);
        for (int32_t out = count, a = kept - 1, b = joined - 1; b >= from;) {
            const int32_t joining = int32_t(uint32_t(starts[b]));
            if (a >= 0 && covering[a] > joining) {
                covering[--out] = covering[a--];
            } else {
                covering[--out] = joining;
                --b;
            }
        }
        int32_t next = joined < activeCount ? left + int32_t(starts[joined] >> 32) : right + 1;
        for (int32_t i = 0; i < count; ++i)
            if (row.xMax[covering[i]] < next) next = row.xMax[covering[i]] + 1;
        for (; x < next; ++x, xp = xp + 1.0f, pixel += Pixel::kBytes)
            if (count > 0) PaintCovered(row, table, covering, count, xp, pixel, paint);
    }
}

// A row read from the records: each segment finds its covering streaks, in list order, and the
// first column after it where they change, by a pass over all the row's streaks.
template <typename Pixel>
void PaintRecordRow(const RecordStreaks& streaks, const LookupElement* table, int32_t activeCount, int32_t left,
                    int32_t right, float xp, uint8_t* pixel, int32_t* covering, Pixel& paint) {
    for (int32_t x = left; x <= right;) {
        int32_t count = 0;
        int32_t next = right + 1;
        for (int32_t i = 0; i < activeCount; ++i) {
            const StreakElement* s = streaks.At(i);
            if (s->streakXMin <= x && x <= s->streakXMax) {
                covering[count++] = i;
                if (s->streakXMax + 1 < next) next = s->streakXMax + 1;
            } else if (s->streakXMin > x && s->streakXMin < next) {
                next = s->streakXMin;
            }
        }
        for (; x < next; ++x, xp = xp + 1.0f, pixel += Pixel::kBytes)
            if (count > 0) PaintPixel(streaks, table, covering, count, xp, pixel, paint);
    }
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
    const float xp = float(left) - data->flareXPosition;
    uint8_t* pixel = PixelAt(data->flarePixelBuffer, left, y, Pixel::kBytes);
    if (activeCount <= kRowStreaks) {
        CopiedStreaks copied(data, active, activeCount, yp);
        PaintCopiedRow(copied, data->flareLookup, activeCount, left, right, xp, pixel, covering, paint);
    } else {
        PaintRecordRow(RecordStreaks{data, active, yp}, data->flareLookup, activeCount, left, right, xp, pixel,
                       covering, paint);
    }
}

}  // namespace

float StreakFalloff48(float d) { return Falloff48Fast(d); }

void StreakFalloffPair48(float* a, float* b) { Falloff48Pair(a, b); }

float StreakFalloffBound48(float d) { return FalloffBound(d); }

int32_t StreakScratchBytes(int32_t streakCount) { return (streakCount * 2 * int32_t(sizeof(int32_t)) + 7) & ~7; }

void PaintStreaks48(const ControlDataRec* theControl, PluginDataRec* theData, const L_Rect* curRect, int32_t y) {
    PaintStreaks<Streak48>(theControl, theData, curRect, y);
}

void PaintStreaks32(const ControlDataRec* theControl, PluginDataRec* theData, const L_Rect* curRect, int32_t y) {
    PaintStreaks<Streak32>(theControl, theData, curRect, y);
}
