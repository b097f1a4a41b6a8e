// Ring distances for a run of pixels: scalar, and packed in pairs of doubles with SSE2.
#include "ring_distances.h"

#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

double TableEnd(int32_t colors) { return double(colors) * 65536.0; }

// Adds pixel k, reached or not, to the answer.
inline void Note(RingReach* reach, int32_t k, bool inside) {
    if (!inside) return;
    if (reach->count++ == 0) reach->first = k;
    reach->last = k;
}

#if defined(__SSE2__)
// Tables up to this size keep every distance that is reached below 2^31, where the packed
// conversion to a 32-bit integer truncates as the scalar one does.
constexpr int32_t kPackedColors = 32767;

// For a mask of four pixels: how many are set, the lowest and the highest, and the flags as four
// bytes (lowest pixel first in memory).
struct MaskFacts {
    int32_t count[16], lowest[16], highest[16];
    uint8_t flags[16][4];
    MaskFacts() {
        for (int32_t mask = 0; mask < 16; ++mask) {
            count[mask] = 0;
            lowest[mask] = highest[mask] = -1;
            for (int32_t j = 0; j < 4; ++j) {
                const bool set = ((mask >> j) & 1) != 0;
                flags[mask][j] = set ? 1 : 0;
                if (!set) continue;
                ++count[mask];
                if (lowest[mask] < 0) lowest[mask] = j;
                highest[mask] = j;
            }
        }
    }
};
const MaskFacts kMaskFacts;

// The largest power of two that a finite float is a whole multiple of (0 for zero).
double Grain(float f) {
    uint32_t bits;
    std::memcpy(&bits, &f, sizeof(bits));
    const int32_t exponent = int32_t((bits >> 23) & 0xFFu);
    uint32_t mantissa = bits & 0x7FFFFFu;
    if (exponent != 0) mantissa |= 0x800000u;
    if (mantissa == 0) return 0.0;
    int32_t zeros = 0;
    while ((mantissa & 1u) == 0) {
        mantissa >>= 1;
        ++zeros;
    }
    return std::ldexp(1.0, (exponent != 0 ? exponent - 150 : -149) + zeros);
}

// Whether every float sum x + step, x + step + step, ... up to `length` steps is exact, so that
// the k-th offset is x + k step and four lanes may each step by 4 step. It is when x and step
// are whole multiples of a power of two g and every x + k step lies within 2^24 g: each is then
// a float, so each rounded sum is the sum itself. The far end is checked in double, where
// length times step is exact and the one rounded sum keeps its order against 2^24 g.
bool StepsAreExact(float x, float step, int32_t length) {
    if (!std::isfinite(x) || !std::isfinite(step)) return false;
    const double gx = Grain(x), gs = Grain(step);
    const double g = gx == 0.0 ? gs : gs == 0.0 ? gx : gx < gs ? gx : gs;
    if (g == 0.0) return false;
    const double limit = g * 16777216.0;
    return std::fabs(double(x)) <= limit && std::fabs(double(x) + double(length) * double(step)) <= limit;
}

// Four pixels at a time: their offsets stepped (one after another, in the same loop, so that the
// processor overlaps the chain of sums with the roots of earlier pixels; or four lanes at once
// where every sum is exact), their float squares and sums as four floats, the two halves widened
// to double, rooted and compared; a mask bit per reached pixel.
RingReach PackedDistances(float* dx, int32_t length, RingRowTerms terms, uint32_t* distances, uint8_t* reached) {
    const double tableEnd = TableEnd(terms.colors);
    const __m128 dySquared = _mm_set1_ps(terms.dySquared);
    const __m128d endSquared = _mm_set1_pd(tableEnd * tableEnd);
    const __m128d end = _mm_set1_pd(tableEnd);
    const __m128d half = _mm_set1_pd(0.5);
    RingReach reach{0, 0, 0};
    int32_t k = 0;
    float x = *dx;
    const bool exact = StepsAreExact(x, terms.xStep, length);
    const float x1 = x + terms.xStep, x2 = x1 + terms.xStep, x3 = x2 + terms.xStep;
    __m128 lanes = _mm_setr_ps(x, x1, x2, x3);
    const __m128 fourSteps = _mm_set1_ps(terms.xStep * 4.0f);
    for (; k + 4 <= length; k += 4) {
        __m128 d;
        if (exact) {
            d = lanes;
            lanes = _mm_add_ps(lanes, fourSteps);
            x = _mm_cvtss_f32(lanes);
        } else {
            const float x0 = x;
            const float y1 = x0 + terms.xStep;
            const float y2 = y1 + terms.xStep;
            const float y3 = y2 + terms.xStep;
            x = y3 + terms.xStep;
            d = _mm_setr_ps(x0, y1, y2, y3);
        }
        const __m128 squared = _mm_add_ps(_mm_mul_ps(d, d), dySquared);
        const __m128d low = _mm_cvtps_pd(squared);
        const __m128d high = _mm_cvtps_pd(_mm_movehl_ps(squared, squared));
        const int mask = _mm_movemask_pd(_mm_cmplt_pd(low, endSquared)) |
                         _mm_movemask_pd(_mm_cmplt_pd(high, endSquared)) << 2;
        int inside = 0;
        if (mask != 0) {
            const __m128d lowRoot = _mm_add_pd(_mm_sqrt_pd(low), half);
            const __m128d highRoot = _mm_add_pd(_mm_sqrt_pd(high), half);
            inside = mask & (_mm_movemask_pd(_mm_cmplt_pd(lowRoot, end)) |
                             _mm_movemask_pd(_mm_cmplt_pd(highRoot, end)) << 2);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(distances + k),
                             _mm_unpacklo_epi64(_mm_cvttpd_epi32(lowRoot), _mm_cvttpd_epi32(highRoot)));
        }
        std::memcpy(reached + k, kMaskFacts.flags[inside], 4);
        if (inside == 0) continue;
        if (reach.count == 0) reach.first = k + kMaskFacts.lowest[inside];
        reach.last = k + kMaskFacts.highest[inside];
        reach.count += kMaskFacts.count[inside];
    }
    *dx = x;
    if (k < length) {
        const RingReach rest = RingDistancesScalar(dx, length - k, terms, distances + k, reached + k);
        if (rest.count > 0) {
            if (reach.count == 0) reach.first = k + rest.first;
            reach.last = k + rest.last;
            reach.count += rest.count;
        }
    }
    return reach;
}
#endif

}  // namespace

RingReach RingDistancesScalar(float* dx, int32_t length, RingRowTerms terms, uint32_t* distances, uint8_t* reached) {
    // Distances at or past the table's end paint nothing; testing the root against that bound
    // before converting it also keeps any distance from overflowing the integer. A squared
    // distance at or past the bound squared has a root at or past it too (the square root is
    // correctly rounded and the bound exact), so most pixels outside the ring skip the root.
    const double tableEnd = TableEnd(terms.colors);
    const double tableEndSquared = tableEnd * tableEnd;
    RingReach reach{0, 0, 0};
    float x = *dx;
    for (int32_t k = 0; k < length; ++k, x = x + terms.xStep) {
        const double squared = double(x * x + terms.dySquared);
        reached[k] = 0;
        if (!(squared < tableEndSquared)) continue;
        const double root = std::sqrt(squared) + 0.5;
        const bool inside = root < tableEnd;
        distances[k] = inside ? uint32_t(root) : 0u;
        reached[k] = inside ? 1 : 0;
        Note(&reach, k, inside);
    }
    *dx = x;
    return reach;
}

RingReach RingDistances(float* dx, int32_t length, RingRowTerms terms, uint32_t* distances, uint8_t* reached) {
#if defined(__SSE2__)
    if (terms.colors <= kPackedColors) return PackedDistances(dx, length, terms, distances, reached);
#endif
    return RingDistancesScalar(dx, length, terms, distances, reached);
}
