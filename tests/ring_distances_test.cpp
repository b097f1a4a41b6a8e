// The ring distances of a run: the packed path against the scalar one, and both against known
// distances.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "plugin/ring_distances.h"

namespace {

// What a run's distances answer: the reached pixels' places and distances in order, the count,
// first and last, and the offset left for the pixel after the run.
struct Distances {
    std::vector<int32_t> places;
    std::vector<uint32_t> distances;
    RingReach reach;
    float next;
};

// A run of `length` pixels whose offsets start at `first` and step by the terms' xStep.
template <typename F>
Distances Reach(F distancesOf, float first, int32_t length, RingRowTerms terms) {
    std::vector<uint32_t> all(size_t(length) + 1);
    std::vector<uint8_t> reached(size_t(length) + 1, 7);
    Distances out{{}, {}, {}, first};
    out.reach = distancesOf(&out.next, length, terms, all.data(), reached.data());
    for (int32_t k = 0; k < length; ++k) {
        EXPECT_LE(reached[size_t(k)], 1) << "flag of pixel " << k;
        if (reached[size_t(k)] == 0) continue;
        out.places.push_back(k);
        out.distances.push_back(all[size_t(k)]);
    }
    EXPECT_EQ(reached[size_t(length)], 7) << "written past the run";
    EXPECT_EQ(out.reach.count, int32_t(out.places.size()));
    if (!out.places.empty()) {
        EXPECT_EQ(out.reach.first, out.places.front());
        EXPECT_EQ(out.reach.last, out.places.back());
    }
    return out;
}

void ExpectSame(float first, int32_t length, RingRowTerms terms, const char* what) {
    const Distances scalar = Reach(RingDistancesScalar, first, length, terms);
    const Distances packed = Reach(RingDistances, first, length, terms);
    EXPECT_EQ(packed.places, scalar.places) << what << ", " << length << " pixels";
    EXPECT_EQ(packed.distances, scalar.distances) << what << ", " << length << " pixels";
    EXPECT_EQ(std::memcmp(&packed.next, &scalar.next, sizeof(float)), 0) << what << ", " << length << " pixels";
    // Offsets that step one way reach one stretch (the painter's quick path relies on it).
    if (scalar.reach.count > 0)
        EXPECT_EQ(scalar.reach.last - scalar.reach.first + 1, scalar.reach.count) << what << ", " << length << " pixels";
}

TEST(RingDistances, KnownDistancesAndTheTableEnd) {
    // Pixels 2, 1 and 0 entries left of the centre of a 2-entry table, then 1, 2 and 3 right of
    // it, on the centre row: reached at whole entries (the half rounds) up to the table's end.
    for (const auto& distancesOf : {RingDistancesScalar, RingDistances}) {
        const Distances d = Reach(distancesOf, -131072.0f, 6, RingRowTerms{65536.0f, 0.0f, 2});
        EXPECT_EQ(d.places, (std::vector<int32_t>{1, 2, 3}));
        EXPECT_EQ(d.distances, (std::vector<uint32_t>{65536u, 0u, 65536u}));
        EXPECT_EQ(d.next, 262144.0f);
    }
    // Off the centre row by 3/5 of an entry, the pixel 4/5 of an entry across lies one entry out.
    for (const auto& distancesOf : {RingDistancesScalar, RingDistances}) {
        const float dy = 0.6f * 65536.0f;
        const Distances d = Reach(distancesOf, 0.8f * 65536.0f, 1, RingRowTerms{65536.0f, dy * dy, 2});
        ASSERT_EQ(d.distances.size(), 1u);
        EXPECT_NEAR(double(d.distances[0]), 65536.0, 1.0);
    }
}

TEST(RingDistances, PackedMatchesScalarOverRowsAndRunLengths) {
    struct Case {
        const char* what;
        float first, step, dySquared;
        int32_t colors;
    };
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const Case cases[] = {
        {"centre inside the run", -300000.0f, 4096.5f, 1.0e9f, 12},
        {"run starting on the ring's edge", -786432.0f, 65536.0f * 0.37f, 0.0f, 12},
        {"row past the ring", -100000.0f, 1000.0f, 1.0e12f, 12},
        {"elliptical x factor", -2.0e6f, 38123.25f, 3.5e10f, 40},
        {"largest packed table", -2.147e9f, 1.7e7f, 0.0f, 32767},
        {"table past the packed size", -2.2e9f, 1.7e7f, 0.0f, 32768},
        {"huge table", -2.0e9f, 1.5e7f, 1.0e18f, 300000000},
        // Whole steps from offsets with a coarse grain: the lanes step at once while every sum
        // is exact, and one at a time from where the far end would pass 2^24 grains.
        {"whole steps, exact in lanes", -16777214.0f, 65536.0f, 0.0f, 300},
        {"whole steps past 2^24 grains", 27000830.0f, 65536.0f, 0.0f, 1000},
        {"whole steps ending at 2^24 grains", 33554432.0f - 255.0f * 65536.0f, 65536.0f, 0.0f, 1000},
        {"fine step beside a coarse offset", 65536.0f * 3.0f, 0.375f, 1.0e6f, 12},
        {"zero offset", 0.0f, 65536.0f, 0.0f, 300},
        {"zero step", -65536.0f, 0.0f, 0.0f, 12},
        {"negative step", 1.0e6f, -4096.0f, 0.0f, 40},
        {"not-a-number row", -1000.0f, 10.0f, nan, 12},
        {"infinite row", -1000.0f, 10.0f, inf, 12},
        {"not-a-number offsets", nan, 1.0f, 0.0f, 12},
        {"infinite step", -1.0e5f, inf, 0.0f, 12},
    };
    for (const Case& c : cases)
        for (int32_t length : {0, 1, 2, 3, 4, 5, 7, 8, 9, 63, 255, 256})
            ExpectSame(c.first, length, RingRowTerms{c.step, c.dySquared, c.colors}, c.what);
}

TEST(RingDistances, PackedMatchesScalarOnRandomRings) {
    std::mt19937 random(29);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    for (int32_t ring = 0; ring < 400; ++ring) {
        const int32_t colors = 1 + int32_t(unit(random) * 600.0f);
        const float radius = float(colors) * 65536.0f;
        const float step = 200.0f + unit(random) * 65536.0f;
        const float dy = (unit(random) * 2.2f - 1.1f) * radius;
        const int32_t length = 1 + int32_t(unit(random) * 256.0f);
        ExpectSame(-radius * 1.1f * unit(random), length, RingRowTerms{step, dy * dy, colors}, "random ring");
        // A circle at a pixel position with a few bits of fraction: a step of one entry per pixel.
        const float centre = float(int32_t(unit(random) * 4000.0f)) + float(int32_t(unit(random) * 16.0f)) / 16.0f;
        const float left = centre - float(colors) * 1.1f * unit(random);
        ExpectSame((float(int32_t(left)) - centre) * 65536.0f, length, RingRowTerms{65536.0f, dy * dy, colors},
                   "random circle");
    }
}

}  // namespace
