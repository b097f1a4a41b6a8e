// Ring distances for a run of pixels: scalar, and packed in pairs of doubles with SSE2.
#include "ring_distances.h"

#include <cmath>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

double TableEnd(int32_t colors) { return double(colors) * 65536.0; }

#if defined(__SSE2__)
// Tables up to this size keep every distance that is reached below 2^31, where the packed
// conversion to a 32-bit integer truncates as the scalar one does.
constexpr int32_t kPackedColors = 32767;

// Four pixels at a time: their offsets stepped one after another (in the same loop, so that the
// processor overlaps the chain of sums with the roots of earlier pixels), their float squares and
// sums as four floats, the two halves widened to double, rooted and compared; a mask bit per
// reached pixel.
int32_t PackedDistances(float* dx, int32_t length, RingRowTerms terms, int32_t* offsets, uint32_t* distances) {
    const double tableEnd = TableEnd(terms.colors);
    const __m128 dySquared = _mm_set1_ps(terms.dySquared);
    const __m128d endSquared = _mm_set1_pd(tableEnd * tableEnd);
    const __m128d end = _mm_set1_pd(tableEnd);
    const __m128d half = _mm_set1_pd(0.5);
    int32_t reached = 0;
    int32_t k = 0;
    float x = *dx;
    for (; k + 4 <= length; k += 4) {
        const float x0 = x;
        const float x1 = x0 + terms.xStep;
        const float x2 = x1 + terms.xStep;
        const float x3 = x2 + terms.xStep;
        x = x3 + terms.xStep;
        const __m128 d = _mm_setr_ps(x0, x1, x2, x3);
        const __m128 squared = _mm_add_ps(_mm_mul_ps(d, d), dySquared);
        const __m128d low = _mm_cvtps_pd(squared);
        const __m128d high = _mm_cvtps_pd(_mm_movehl_ps(squared, squared));
        const int mask = _mm_movemask_pd(_mm_cmplt_pd(low, endSquared)) |
                         _mm_movemask_pd(_mm_cmplt_pd(high, endSquared)) << 2;
        if (mask == 0) continue;
        const __m128d lowRoot = _mm_add_pd(_mm_sqrt_pd(low), half);
        const __m128d highRoot = _mm_add_pd(_mm_sqrt_pd(high), half);
        const int inside = mask & (_mm_movemask_pd(_mm_cmplt_pd(lowRoot, end)) |
                                   _mm_movemask_pd(_mm_cmplt_pd(highRoot, end)) << 2);
        alignas(16) uint32_t roots[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(roots),
                        _mm_unpacklo_epi64(_mm_cvttpd_epi32(lowRoot), _mm_cvttpd_epi32(highRoot)));
        for (int32_t j = 0; j < 4; ++j) {
            offsets[reached] = k + j;
            distances[reached] = roots[j];
            reached += (inside >> j) & 1;
        }
    }
    *dx = x;
    if (k < length) {
        const int32_t rest = RingDistancesScalar(dx, length - k, terms, offsets + reached, distances + reached);
        for (int32_t i = reached; i < reached + rest; ++i) offsets[i] += k;
        reached += rest;
    }
    return reached;
}
#endif

}  // namespace

int32_t RingDistancesScalar(float* dx, int32_t length, RingRowTerms terms, int32_t* offsets, uint32_t* distances) {
    // Distances at or past the table's end paint nothing; testing the root against that bound
    // before converting it also keeps any distance from overflowing the integer. A squared
    // distance at or past the bound squared has a root at or past it too (the square root is
    // correctly rounded and the bound exact), so most pixels outside the ring skip the root.
    const double tableEnd = TableEnd(terms.colors);
    const double tableEndSquared = tableEnd * tableEnd;
    int32_t reached = 0;
    float x = *dx;
    for (int32_t k = 0; k < length; ++k, x = x + terms.xStep) {
        const double squared = double(x * x + terms.dySquared);
        if (!(squared < tableEndSquared)) continue;
        const double root = std::sqrt(squared) + 0.5;
        const bool inside = root < tableEnd;
        offsets[reached] = k;
        distances[reached] = inside ? uint32_t(root) : 0u;
        reached += inside ? 1 : 0;
    }
    *dx = x;
    return reached;
}

int32_t RingDistances(float* dx, int32_t length, RingRowTerms terms, int32_t* offsets, uint32_t* distances) {
#if defined(__SSE2__)
    if (terms.colors <= kPackedColors) return PackedDistances(dx, length, terms, offsets, distances);
#endif
    return RingDistancesScalar(dx, length, terms, offsets, distances);
}
