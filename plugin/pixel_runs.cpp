// Runs of pixel sums: scalar, and eight 16-bit channels at a time with SSE2.
#include "pixel_runs.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

inline uint16_t Held(int32_t sum, int32_t maxPixel) { return uint16_t(sum < maxPixel ? sum : maxPixel); }

#if defined(__SSE2__)
// Unsigned 16-bit minimum from the signed one: flipping the top bit keeps the order.
inline __m128i MinU16(__m128i a, __m128i b) {
    const __m128i flip = _mm_set1_epi16(int16_t(-32768));
    return _mm_xor_si128(_mm_min_epi16(_mm_xor_si128(a, flip), _mm_xor_si128(b, flip)), flip);
}
#endif

}  // namespace

void AddRun48Scalar(uint8_t* pixels, const uint16_t* addends, int32_t channels, int32_t maxPixel) {
    for (int32_t i = 0; i < channels; ++i) {
        uint16_t channel;
        std::memcpy(&channel, pixels + 2 * i, sizeof(channel));
        channel = Held(int32_t(channel) + addends[i], maxPixel);
        std::memcpy(pixels + 2 * i, &channel, sizeof(channel));
    }
}

void AddRun32Scalar(uint8_t* pixels, const uint16_t* addends, int32_t count, int32_t maxPixel) {
    for (int32_t i = 0; i < count; ++i)
        for (int32_t c = 1; c < 4; ++c)
            pixels[4 * i + c] = uint8_t(Held(int32_t(pixels[4 * i + c]) + addends[4 * i + c], maxPixel));
}

void AddRun48(uint8_t* pixels, const uint16_t* addends, int32_t channels, int32_t maxPixel) {
    int32_t i = 0;
#if defined(__SSE2__)
    // The sum saturates at 65535, at or above every ceiling, so the minimum is the held sum.
    const __m128i ceiling = _mm_set1_epi16(int16_t(uint16_t(maxPixel)));
    for (; i + 8 <= channels; i += 8) {
        __m128i* at = reinterpret_cast<__m128i*>(pixels + 2 * i);
        const __m128i sum = _mm_adds_epu16(_mm_loadu_si128(at), _mm_loadu_si128(reinterpret_cast<const __m128i*>(addends + i)));
        _mm_storeu_si128(at, MinU16(sum, ceiling));
    }
#endif
    AddRun48Scalar(pixels + 2 * i, addends + i, channels - i, maxPixel);
}

void AddRun32(uint8_t* pixels, const uint16_t* addends, int32_t count, int32_t maxPixel) {
    int32_t i = 0;
#if defined(__SSE2__)
    // Four pixels as sixteen 16-bit lanes in two halves. The alpha lanes add nothing and are held
    // at 255, so they come back as they were; the sums stay below 255 + 1025, well inside the
    // signed lanes, and the held values inside a byte.
    const int16_t m = int16_t(maxPixel);
    const __m128i ceiling = _mm_setr_epi16(255, m, m, m, 255, m, m, m);
    const __m128i colour = _mm_setr_epi16(0, -1, -1, -1, 0, -1, -1, -1);
    const __m128i zero = _mm_setzero_si128();
    for (; i + 4 <= count; i += 4) {
        __m128i* at = reinterpret_cast<__m128i*>(pixels + 4 * i);
        const __m128i bytes = _mm_loadu_si128(at);
        const __m128i* add = reinterpret_cast<const __m128i*>(addends + 4 * i);
        const __m128i low = _mm_add_epi16(_mm_unpacklo_epi8(bytes, zero), _mm_and_si128(_mm_loadu_si128(add), colour));
        const __m128i high = _mm_add_epi16(_mm_unpackhi_epi8(bytes, zero), _mm_and_si128(_mm_loadu_si128(add + 1), colour));
        _mm_storeu_si128(at, _mm_packus_epi16(_mm_min_epi16(low, ceiling), _mm_min_epi16(high, ceiling)));
    }
#endif
    AddRun32Scalar(pixels + 4 * i, addends + 4 * i, count - i, maxPixel);
}
