// The ring distances of a run: the packed path against the scalar one, and both against known
// distances.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "plugin/ring_distances.h"

namespace {

struct Distances {
    std::vector<int32_t> offsets;
    std::vector<uint32_t> distances;
};

template <typename F>
Distances Reach(F distancesOf, const std::vector<float>& dx, RingRowTerms terms) {
    Distances out{std::vector<int32_t>(dx.size() + 1), std::vector<uint32_t>(dx.size() + 1)};
    const int32_t reached = distancesOf(dx.data(), int32_t(dx.size()), terms, out.offsets.data(), out.distances.data());
    out.offsets.resize(size_t(reached));
    out.distances.resize(size_t(reached));
    return out;
}

void ExpectSame(const std::vector<float>& dx, RingRowTerms terms, const char* what) {
    const Distances scalar = Reach(RingDistancesScalar, dx, terms);
    const Distances packed = Reach(RingDistances, dx, terms);
    EXPECT_EQ(packed.offsets, scalar.offsets) << what << ", " << dx.size() << " pixels";
    EXPECT_EQ(packed.distances, scalar.distances) << what << ", " << dx.size() << " pixels";
}

// The painter's offsets along a row: the first one scaled, then one float sum per pixel.
std::vector<float> Steps(float first, float step, int32_t length) {
    std::vector<float> dx;
    for (int32_t k = 0; k < length; ++k, first = first + step) dx.push_back(first);
    return dx;
}

TEST(RingDistances, KnownDistancesAndTheTableEnd) {
    // dx 0, 1, 2 and 3 table entries from the centre on the centre row of a 3-entry table: the
    // first three are reached at whole entries (the half rounds), the last lies on the end.
    const std::vector<float> dx{0.0f, 65536.0f, 131072.0f, 196608.0f, -65536.0f};
    for (const auto& distancesOf : {RingDistancesScalar, RingDistances}) {
        const Distances d = Reach(distancesOf, dx, RingRowTerms{0.0f, 3});
        EXPECT_EQ(d.offsets, (std::vector<int32_t>{0, 1, 2, 4}));
        EXPECT_EQ(d.distances, (std::vector<uint32_t>{0u, 65536u, 131072u, 65536u}));
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
        {"not-a-number row", -1000.0f, 10.0f, nan, 12},
        {"infinite row", -1000.0f, 10.0f, inf, 12},
        {"not-a-number offsets", nan, 1.0f, 0.0f, 12},
        {"infinite step", -1.0e5f, inf, 0.0f, 12},
    };
    for (const Case& c : cases)
        for (int32_t length : {0, 1, 2, 3, 4, 5, 7, 8, 9, 63, 255, 256})
            ExpectSame(Steps(c.first, c.step, length), RingRowTerms{c.dySquared, c.colors}, c.what);
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
        ExpectSame(Steps(-radius * 1.1f * unit(random), step, length), RingRowTerms{dy * dy, colors}, "random ring");
    }
}

}  // namespace
