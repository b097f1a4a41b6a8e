// The flare tables that ship in tables/: they compile without a word, survive the way back to
// source unchanged, and have the make-up of a lens flare that the plug-in draws sensibly.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <variant>

#include "host/flare_records.h"
#include "host/table_export.h"
#include "host/table_source.h"

namespace vellux::rsc {
namespace {

std::string ReadTable(const std::string& name) {
    std::ifstream in(std::string(VELLUX_TABLES_DIR) + "/" + name + ".json", std::ios::binary);
    EXPECT_TRUE(in) << name;
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

rsc::ResourceFile CompileClean(const std::string& name) {
    CompiledTable table = CompileTableSource(ReadTable(name));
    for (const Diagnostic& d : table.diagnostics.All()) ADD_FAILURE() << name << ": " << d.Text();
    return std::move(table.file);
}

// The elements in the order the plug-in loads them: FLAR 1001's runs, ascending IDs.
std::vector<RingRecord> LoadedElements(const rsc::ResourceFile& file) {
    std::vector<RingRecord> elements;
    const rsc::Resource* flare = file.Find(kFlareType, kFlareID);
    if (!flare) return elements;
    const FlareRecord runs = std::get<FlareRecord>(DecodeFlare(flare->data));
    for (const FlareRun& run : runs.elements)
        for (int id = run.first; run.type == kRingType && id <= run.last; ++id)
            elements.push_back(std::get<RingRecord>(DecodeRing(file.Find(kRingType, int16_t(id))->data)));
    return elements;
}

std::vector<RingRecord> OfType(const std::vector<RingRecord>& elements, bool (*pick)(int32_t)) {
    std::vector<RingRecord> picked;
    std::copy_if(elements.begin(), elements.end(), std::back_inserter(picked),
                 [&](const RingRecord& ring) { return pick(ring.type); });
    return picked;
}

bool IsReflection(int32_t type) { return type < 1 || type > 3; }
double Position(const RingRecord& ring) { return double(ring.offset) / ring.units; }
uint16_t Peak(const ColorStop& s) { return std::max({s.red, s.green, s.blue}); }

// A ring whose three channels peak at different radii: the colour fringing of a real lens.
bool IsFringed(const RingRecord& ring) {
    auto peakAt = [&](uint16_t ColorStop::*channel) {
        return std::max_element(ring.stops.begin(), ring.stops.end(),
                                [&](const ColorStop& a, const ColorStop& b) { return a.*channel < b.*channel; })->position;
    };
    const int32_t red = peakAt(&ColorStop::red);
    return red != peakAt(&ColorStop::green) || red != peakAt(&ColorStop::blue);
}

// A thin ring: the centre far darker than the brightest part of the ramp.
bool HasDarkCentre(const RingRecord& ring) {
    uint16_t peak = 0, centre = 0;
    for (const ColorStop& stop : ring.stops) {
        peak = std::max(peak, Peak(stop));
        if (stop.position == 0) centre = Peak(stop);
    }
    return centre * 4 < peak;
}

size_t FringedCount(const std::vector<RingRecord>& reflections) {
    return size_t(std::count_if(reflections.begin(), reflections.end(), IsFringed));
}

class ShippedTable : public testing::TestWithParam<const char*> {};

TEST_P(ShippedTable, CompilesWithoutWarningsAndComesBackByteIdentical) {
    const rsc::ResourceFile file = CompileClean(GetParam());
    ASSERT_FALSE(file.resources.empty());
    const std::string exported = FormatTableSource(TableSourceFromFile(file));
    const CompiledTable again = CompileTableSource(exported);
    ASSERT_EQ(again.diagnostics.ErrorCount(), 0u);
    EXPECT_EQ(rsc::SerializeResourceFile(again.file), rsc::SerializeResourceFile(file));
    // Every element is stored field by field, so the export stays readable.
    EXPECT_EQ(exported.find("\"hex\""), std::string::npos);
}

TEST_P(ShippedTable, HasTwoMatchingGlowsOneHaloAndReflections) {
    const std::vector<RingRecord> elements = LoadedElements(CompileClean(GetParam()));
    const auto white = OfType(elements, [](int32_t t) { return t == 1; });
    const auto coloured = OfType(elements, [](int32_t t) { return t == 2; });
    const auto halo = OfType(elements, [](int32_t t) { return t == 3; });
    ASSERT_EQ(white.size(), 1u);
    ASSERT_EQ(coloured.size(), 1u);
    ASSERT_EQ(halo.size(), 1u);
    // The switch between the two glows must not change the flare's size or shape.
    EXPECT_EQ(EncodeRing({"", 0, 0, white[0].units, white[0].offset, white[0].inside, white[0].outside, white[0].stops}),
              EncodeRing({"", 0, 0, coloured[0].units, coloured[0].offset, coloured[0].inside, coloured[0].outside, coloured[0].stops}));
    EXPECT_EQ(white[0].offset, white[0].units);   // centred on the light
    EXPECT_EQ(Peak(white[0].stops.front()), 0xFFFF);
    EXPECT_FALSE(OfType(elements, IsReflection).empty());
}

// Ramps begin at the centre and fade to black at the edge: otherwise the plug-in fills the
// inside with an untinted colour, or the element ends in a hard step.
TEST_P(ShippedTable, RampsRunFromTheCentreToABlackEdge) {
    for (const RingRecord& ring : LoadedElements(CompileClean(GetParam()))) {
        SCOPED_TRACE(ring.name);
        ASSERT_GE(ring.stops.size(), 2u);
        const auto [first, last] = std::minmax_element(ring.stops.begin(), ring.stops.end(),
            [](const ColorStop& a, const ColorStop& b) { return a.position < b.position; });
        EXPECT_EQ(first->position, 0);
        EXPECT_EQ(last->position, ring.outside);
        EXPECT_EQ(Peak(*last), 0);
        EXPECT_EQ(ring.mode, 0u);
    }
}

// Reflections are multiplied by the light and the overall intensity; they stay subtle.
TEST_P(ShippedTable, ReflectionsAreSubtle) {
    for (const RingRecord& ring : OfType(LoadedElements(CompileClean(GetParam())), IsReflection)) {
        SCOPED_TRACE(ring.name);
        uint16_t peak = 0;
        for (const ColorStop& stop : ring.stops) peak = std::max(peak, Peak(stop));
        EXPECT_GE(peak, 3000);
        EXPECT_LE(peak, 20000);
    }
}

INSTANTIATE_TEST_SUITE_P(Tables, ShippedTable, testing::Values("Vellux", "LongZoom", "CleanPrime"));

TEST(ShippedTables, DefaultSpreadsTwelveToTwentyReflectionsAlongTheAxis) {
    const auto reflections = OfType(LoadedElements(CompileClean("Vellux")), IsReflection);
    EXPECT_GE(reflections.size(), 12u);
    EXPECT_LE(reflections.size(), 20u);
    double nearest = 0, farthest = 0;
    for (const RingRecord& ring : reflections) {
        nearest = std::max(nearest, Position(ring));
        farthest = std::min(farthest, Position(ring));
        EXPECT_GE(Position(ring), -1.5);
        EXPECT_LE(Position(ring), 1.2);
    }
    EXPECT_GE(nearest, 1.0);
    EXPECT_LE(farthest, -1.3);
    // Both strengths, thin rings and large ghosts.
    EXPECT_GT(std::count_if(reflections.begin(), reflections.end(), [](const RingRecord& r) { return r.type == 4; }), 0);
    EXPECT_GT(std::count_if(reflections.begin(), reflections.end(), [](const RingRecord& r) { return r.type != 4; }), 0);
    EXPECT_GT(std::count_if(reflections.begin(), reflections.end(), HasDarkCentre), 0);
    EXPECT_GT(std::count_if(reflections.begin(), reflections.end(), [](const RingRecord& r) { return double(r.outside) / r.units >= 0.2; }), 0);
    EXPECT_GT(FringedCount(reflections), 0u);
}

TEST(ShippedTables, LongZoomHasMoreGhostsAndFringingCleanPrimeFewerAndNone) {
    const auto standard = OfType(LoadedElements(CompileClean("Vellux")), IsReflection);
    const auto zoom = OfType(LoadedElements(CompileClean("LongZoom")), IsReflection);
    const auto prime = OfType(LoadedElements(CompileClean("CleanPrime")), IsReflection);
    EXPECT_GT(zoom.size(), standard.size());
    EXPECT_GT(FringedCount(zoom), FringedCount(standard));
    EXPECT_LT(prime.size(), standard.size() / 2);
    EXPECT_EQ(FringedCount(prime), 0u);
}

}  // namespace
}  // namespace vellux::rsc
