// Runs of pixel sums: the packed forms against the scalar ones over run lengths and ceilings,
// nothing written outside the run, and the scalar forms against the single-pixel sums.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "plugin/pixel_runs.h"
#include "plugin/pixels.h"

namespace {

constexpr int32_t kGuard = 16;   // bytes either side of the run, which must stay as they were

struct Depth {
    const char* name;
    int32_t bytes;      // per pixel
    int32_t addends;    // per pixel
    int32_t largest;    // largest addend
    int32_t ceiling;    // largest ceiling
    void (*packed)(uint8_t*, const uint16_t*, int32_t, int32_t);
    void (*scalar)(uint8_t*, const uint16_t*, int32_t, int32_t);
    int32_t Count(int32_t pixels) const { return addends == 3 ? pixels * 3 : pixels; }   // channels or pixels
};

const Depth kDepths[] = {{"48-bit", 6, 3, 65535, 65535, AddRun48, AddRun48Scalar},
                         {"32-bit", 4, 4, 1024, 255, AddRun32, AddRun32Scalar}};

TEST(PixelRuns, PackedMatchesScalarOverLengthsAndCeilingsAndStaysInsideTheRun) {
    std::mt19937 random(7);
    for (const Depth& depth : kDepths)
        for (int32_t pixels : {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 256})
            for (int32_t ceiling : {0, 1, 100, 255, 16320, 65535}) {
                if (ceiling > depth.ceiling) continue;
                std::vector<uint8_t> frame(size_t(pixels * depth.bytes + 2 * kGuard));
                for (uint8_t& b : frame) b = uint8_t(random());
                std::vector<uint16_t> addends(size_t(pixels * depth.addends));
                // Mostly small addends, some at either end of their range.
                for (uint16_t& a : addends) {
                    const uint32_t pick = random() % 8;
                    a = uint16_t(pick == 0 ? 0 : pick == 1 ? depth.largest : random() % uint32_t(depth.largest + 1));
                }
                std::vector<uint8_t> expected = frame;
                depth.scalar(expected.data() + kGuard, addends.data(), depth.Count(pixels), ceiling);
                depth.packed(frame.data() + kGuard, addends.data(), depth.Count(pixels), ceiling);
                EXPECT_EQ(frame, expected) << depth.name << ", " << pixels << " pixels, ceiling " << ceiling;
            }
}

// A ring's colours go in as numbers 0..65535: the run sums leave each pixel as the single-pixel
// sums do, the 32-bit one with the same noise.
TEST(PixelRuns, ScalarRunsEqualTheSinglePixelSums) {
    std::mt19937 random(11);
    for (int32_t trial = 0; trial < 20000; ++trial) {
        const int32_t r = int32_t(random() % 65536), g = int32_t(random() % 65536), b = int32_t(random() % 65536);
        const int32_t ceiling48 = trial % 3 == 0 ? 65535 : int32_t(random() % 65536);
        const int32_t ceiling32 = trial % 3 == 0 ? 255 : int32_t(random() % 256);
        uint8_t single[6], run[6];
        for (uint8_t& byte : single) byte = uint8_t(random());
        std::copy(single, single + 6, run);
        SumPixel48(single, r, g, b, ceiling48);
        const uint16_t colours[3] = {uint16_t(r), uint16_t(g), uint16_t(b)};
        AddRun48Scalar(run, colours, 3, ceiling48);
        ASSERT_TRUE(std::equal(single, single + 6, run)) << r << " " << g << " " << b << " under " << ceiling48;

        const uint32_t seed = random();
        const int32_t noise = int32_t(seed >> 26);
        std::copy(single, single + 4, run);
        AddDithered32(single, seed, r, g, b, ceiling32);
        const uint16_t steps[4] = {0, uint16_t((r + noise) >> 6), uint16_t((g + noise) >> 6), uint16_t((b + noise) >> 6)};
        AddRun32Scalar(run, steps, 1, ceiling32);
        ASSERT_TRUE(std::equal(single, single + 4, run)) << r << " " << g << " " << b << " under " << ceiling32;
    }
}

}  // namespace
