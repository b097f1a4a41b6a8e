// The 48-bit streak falloff against the library's exp and log: bit for bit over every float the
// quick evaluation takes, and around and outside that range.
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

// Floats with bit patterns in [from, to) where the painter's falloff differs from the library's:
// their number and the first of them.
struct Differences {
    uint64_t count = 0;
    uint32_t first = 0;
};

Differences Compare(uint32_t from, uint32_t to) {
    Differences found;
    for (uint32_t bits = from; bits < to; ++bits) {
        const float d = FromBits(bits);
        if (Bits(StreakFalloff48(d)) != Bits(LibraryFalloff(d)) && found.count++ == 0) found.first = bits;
    }
    return found;
}

}  // namespace

// Positive floats are ordered as their bit patterns, so the range is one run of patterns, halved
// between two threads.
TEST(StreakFalloff, EqualsTheLibraryForEveryFloatOfTheQuickRange) {
    const uint32_t from = Bits(kQuickFalloffLow), to = Bits(kQuickFalloffHigh);
    ASSERT_LT(from, to);
    const uint32_t middle = from + (to - from) / 2;
    Differences low, high;
    std::thread lower([&] { low = Compare(from, middle); });
    high = Compare(middle, to);
    lower.join();
    EXPECT_EQ(low.count + high.count, 0u) << "first at d = " << FromBits(low.count > 0 ? low.first : high.first);
}

TEST(StreakFalloff, EqualsTheLibraryAroundAndOutsideTheQuickRange) {
    const float inf = std::numeric_limits<float>::infinity();
    const float cases[] = {0.0f,
                           std::numeric_limits<float>::denorm_min(),
                           std::numeric_limits<float>::min(),
                           9.6e-6f,   // about where the falloff first rounds below 1
                           std::nextafter(kQuickFalloffLow, 0.0f),
                           std::nextafter(kQuickFalloffHigh, inf),
                           22.1111393f,   // about where it first rounds to 0
                           22.1111412f,
                           1e30f,
                           std::numeric_limits<float>::max(),
                           inf};
    for (float d : cases) EXPECT_EQ(Bits(StreakFalloff48(d)), Bits(LibraryFalloff(d))) << d;
    EXPECT_TRUE(std::isnan(StreakFalloff48(std::numeric_limits<float>::quiet_NaN())));
}
