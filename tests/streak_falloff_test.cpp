// The 48-bit streak falloff against the library's exp and log: bit for bit over every float the
// quick evaluation takes, and around and outside that range; and the bounds the painter skips
// streaks by, at least the falloff wherever they are finite.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <thread>

#include "plugin/painters.h"

namespace {

// e^(-d^1.5) as the 48-bit painter has always evaluated it.
float LibraryFalloff(float d) { return float(std::exp(-std::exp(1.5 * std::log(double(d))))); }

uint32_t Bits(float f) {
    uint32_t bits;
    std::memcpy(&bits, &f, sizeof(bits));
    return bits;
}

float FromBits(uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, sizeof(f));
    return f;
}

// Floats with bit patterns in [from, to) where the painter's falloff differs from the library's,
// and where its bound falls below the library's falloff: how many and the first.
struct Faults {
    uint64_t count = 0;
    uint32_t first = 0;
    void Add(uint32_t bits) {
        if (count++ == 0) first = bits;
    }
};

// The pair form takes every float of [from, to) in each lane, beside its mirror in the range.
void Compare(uint32_t from, uint32_t to, Faults* differs, Faults* above, Faults* pairDiffers) {
    for (uint32_t bits = from; bits < to; ++bits) {
        const float d = FromBits(bits);
        const float library = LibraryFalloff(d);
        if (Bits(StreakFalloff48(d)) != Bits(library)) differs->Add(bits);
        if (!(library <= StreakFalloffBound48(d))) above->Add(bits);
        const float mirror = FromBits(to - 1 - (bits - from));
        float a = d, b = mirror;
        StreakFalloffPair48(&a, &b);
        if (Bits(a) != Bits(library) || Bits(b) != Bits(LibraryFalloff(mirror))) pairDiffers->Add(bits);
    }
}

}  // namespace

// Positive floats are ordered as their bit patterns, so the range is one run of patterns, halved
// between two threads. The bounds are finite only inside it (checked below).
TEST(StreakFalloff, EqualsTheLibraryAndStaysUnderItsBoundsForEveryFloatOfTheQuickRange) {
    const uint32_t from = Bits(kQuickFalloffLow), to = Bits(kQuickFalloffHigh);
    ASSERT_LT(from, to);
    const uint32_t middle = from + (to - from) / 2;
    Faults differs[2], above[2], pairDiffers[2];
    std::thread lower([&] { Compare(from, middle, &differs[0], &above[0], &pairDiffers[0]); });
    Compare(middle, to, &differs[1], &above[1], &pairDiffers[1]);
    lower.join();
    for (int half = 0; half < 2; ++half) {
        EXPECT_EQ(differs[half].count, 0u) << "differs first at d = " << FromBits(differs[half].first);
        EXPECT_EQ(pairDiffers[half].count, 0u) << "the pair differs first at d = " << FromBits(pairDiffers[half].first);
        EXPECT_EQ(above[half].count, 0u) << "above its bound first at d = " << FromBits(above[half].first);
    }
}

TEST(StreakFalloff, EqualsTheLibraryAroundAndOutsideTheQuickRange) {
    const float inf = std::numeric_limits<float>::infinity();
    const float below = std::nextafter(kQuickFalloffLow, 0.0f), above = kQuickFalloffHigh;
    const float cases[] = {0.0f,
                           std::numeric_limits<float>::denorm_min(),
                           std::numeric_limits<float>::min(),
                           9.6e-6f,   // about where the falloff first rounds below 1
                           below,
                           above,
                           22.1111393f,   // about where it first rounds to 0
                           22.1111412f,
                           1e30f,
                           std::numeric_limits<float>::max(),
                           inf};
    for (float d : cases) EXPECT_EQ(Bits(StreakFalloff48(d)), Bits(LibraryFalloff(d))) << d;
    // Pairs with one lane or both outside the quick range, beside one inside it.
    for (float d : cases)
        for (float inside : {kQuickFalloffLow, 1.0f, std::nextafter(kQuickFalloffHigh, 0.0f)}) {
            float a = d, b = inside;
            StreakFalloffPair48(&a, &b);
            EXPECT_EQ(Bits(a), Bits(LibraryFalloff(d))) << d << " beside " << inside;
            EXPECT_EQ(Bits(b), Bits(LibraryFalloff(inside))) << inside << " beside " << d;
            a = inside, b = d;
            StreakFalloffPair48(&a, &b);
            EXPECT_EQ(Bits(a), Bits(LibraryFalloff(inside))) << inside << " beside " << d;
            EXPECT_EQ(Bits(b), Bits(LibraryFalloff(d))) << d << " beside " << inside;
        }
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(std::isnan(StreakFalloff48(nan)));
    // Outside the range checked above, and for not a number, the painter never skips a streak.
    for (float d : {0.0f, below, above, inf, nan}) EXPECT_EQ(StreakFalloffBound48(d), inf) << d;
}
