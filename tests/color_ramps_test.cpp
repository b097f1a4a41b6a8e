// Element colour ramps: sorting the stops and sampling them into colour tables.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "plugin/color_ramps.h"

namespace {

ElementColor Stop(float radius, uint16_t r, uint16_t g, uint16_t b) {
    ElementColor stop{};
    stop.rgb.radius = radius;
    stop.rgb.alpha = 0xFFFF;
    stop.rgb.red = r;
    stop.rgb.green = g;
    stop.rgb.blue = b;
    return stop;
}
ElementColor Grey(float radius, uint16_t v) { return Stop(radius, v, v, v); }

struct Entry {
    uint16_t r, g, b;
    bool operator==(const Entry&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Entry& e) { return out << "(" << e.r << "," << e.g << "," << e.b << ")"; }

struct Sampled {
    bool result;
    std::vector<Entry> entries;   // m entries and the terminator
};

// Samples a ramp into a table of ceil(L) entries; stops and table live in exact-size heap
// blocks so that the sanitizer build catches any read or write past them.
Sampled Sample(const std::vector<ElementColor>& stops, float L, float intensity, FlareColor tint) {
    const int32_t m = int32_t(std::ceil(L));
    auto ramp = std::make_unique<ElementColor[]>(stops.size() + 1);
    std::copy(stops.begin(), stops.end(), ramp.get());
    auto table = std::make_unique<FlareColor[]>(size_t(m) + 1);
    for (int32_t i = 0; i <= m; ++i) table[i] = FlareColor{1, 1, 1};   // "untouched" marker
    Sampled out;
    out.result = CalcRGBColors(L, intensity, &tint, int32_t(stops.size()), m, ramp.get(), table.get());
    for (int32_t i = 0; i <= m; ++i) out.entries.push_back({table[i].red, table[i].green, table[i].blue});
    return out;
}

constexpr FlareColor kWhite{65535, 65535, 65535};
Entry E(uint16_t v) { return {v, v, v}; }

}  // namespace

TEST(ColorRamps, LinearFadeAveragesEachPixelRing) {
    const std::vector<ElementColor> fade = {Grey(0.0f, 16320), Grey(1.0f, 0)};
    Sampled s = Sample(fade, 4.0f, 1.0f, kWhite);
    EXPECT_TRUE(s.result);
    EXPECT_EQ(s.entries, (std::vector<Entry>{E(14280), E(10200), E(6120), E(2040), E(0)}));

    s = Sample(fade, 4.0f, 0.5f, FlareColor{65535, 32768, 0});
    EXPECT_TRUE(s.result);
    EXPECT_EQ(s.entries, (std::vector<Entry>{{7140, 3570, 0}, {5100, 2550, 0}, {3060, 1530, 0}, {1020, 510, 0}, {0, 0, 0}}));
}

TEST(ColorRamps, StopsInsideAnEntryAddTheirColourOnce) {
    // Entry 0 lies wholly inside the first stop: its own colour, unscaled. Entry 1 ends exactly
    // at the stop, takes its colour with weight 1 and saturates.
    Sampled s = Sample({Grey(0.5f, 16320), Grey(1.0f, 0)}, 4.0f, 1.0f, kWhite);
    EXPECT_EQ(s.entries, (std::vector<Entry>{E(16320), E(16320), E(12240), E(4080), E(0)}));

    s = Sample({Grey(0.6f, 0), Grey(0.8f, 16320), Grey(1.0f, 0)}, 4.0f, 1.0f, kWhite);
    EXPECT_EQ(s.entries, (std::vector<Entry>{E(0), E(0), E(3672), E(9384), E(0)}));
}

TEST(ColorRamps, NothingToDrawLeavesTheTableUntouched) {
    const std::vector<ElementColor> fade = {Grey(0.0f, 16320), Grey(1.0f, 0)};
    const std::vector<Entry> untouched(5, Entry{1, 1, 1});
    // A black tint, no intensity, no stops at all.
    for (const Sampled& s : {Sample(fade, 4.0f, 1.0f, FlareColor{0, 0, 0}), Sample(fade, 4.0f, 0.0f, kWhite),
                             Sample({}, 4.0f, 1.0f, kWhite)}) {
        EXPECT_FALSE(s.result);
        EXPECT_EQ(s.entries, untouched);
    }
    Sampled s = Sample({Grey(0.0f, 0), Grey(1.0f, 0)}, 4.0f, 1.0f, kWhite);   // all black: written, but false
    EXPECT_FALSE(s.result);
    EXPECT_EQ(s.entries, std::vector<Entry>(5, E(0)));
}

TEST(ColorRamps, DegenerateRampsStayFinite) {
    // A hard edge: two stops at one radius. The zero-width interval adds nothing.
    Sampled s = Sample({Grey(0.0f, 0), Grey(0.5f, 0), Grey(0.5f, 16320), Grey(1.0f, 16320)}, 8.0f, 1.0f, kWhite);
    EXPECT_TRUE(s.result);
    EXPECT_EQ(s.entries[0], E(0));
    EXPECT_EQ(s.entries[7], E(16320));
    for (const Entry& e : s.entries) EXPECT_LE(e.r, 16320);

    // A single stop reads nothing past itself (the ramp lives in an exact-size block).
    s = Sample({Grey(0.25f, 8000)}, 6.0f, 1.0f, kWhite);
    EXPECT_TRUE(s.result);
    EXPECT_EQ(s.entries[0], E(8000));                  // inside the stop: its own colour
    EXPECT_EQ(s.entries.back(), E(0));
}

TEST(ColorRamps, HugeRadiiClampInsteadOfOverflowing) {
    Sampled s = Sample({Grey(0.0f, 16320), Grey(1.0f, 16320)}, 3.0f, 1e9f, kWhite);
    EXPECT_TRUE(s.result);
    EXPECT_EQ(s.entries, (std::vector<Entry>{E(16320), E(16320), E(16320), E(0)}));
}

TEST(ColorRamps, SortIsStableSelectionByRadius) {
    std::vector<ElementColor> stops = {Grey(0.0f, 1), Grey(0.5f, 2), Grey(0.5f, 3), Grey(1.0f, 4)};
    SortColors(4, stops.data());
    EXPECT_EQ(stops[1].rgb.red, 2);                    // already sorted: unchanged
    EXPECT_EQ(stops[2].rgb.red, 3);

    stops = {Grey(1.0f, 1), Grey(0.0f, 2), Grey(0.5f, 3)};
    SortColors(3, stops.data());
    EXPECT_EQ(stops[0].rgb.radius, 0.0f);
    EXPECT_EQ(stops[1].rgb.radius, 0.5f);
    EXPECT_EQ(stops[2].rgb.radius, 1.0f);
    EXPECT_EQ(stops[2].rgb.red, 1);
}
