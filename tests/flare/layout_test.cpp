// The per-frame layout: elements placed, sized, culled and given colour tables.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <tuple>
#include <vector>

#include "fake_services/fake_dialog_host.h"
#include "kit/rect.h"
#include "plugin/control_data.h"
#include "plugin/flare_layout.h"
#include "plugin/flare_table.h"
#include "plugin/globals.h"
#include "support/table_bytes.h"

namespace {

constexpr int32_t F = kPluginDataFixedSize;

RingBytes Element(int32_t type, int32_t offset, int32_t outside) {
    RingBytes ring;
    ring.type = type;
    ring.units = 1000;
    ring.offset = offset;
    ring.outside = outside;
    ring.stops = {{0, 0xFFFF, 65535, 65535, 65535}, {outside, 0, 0, 0, 0}};
    return ring;
}

// A 1920x1080 frame (scale 100 pixels per flare unit unless changed) with the light at
// (1160, 640), the given elements loaded from a table, and `tail` bytes of room.
class LayoutTest : public ::testing::Test {
protected:
    void Load(const std::vector<RingBytes>& elements, int32_t tail = 1 << 20) {
        fake_host::Reset();
        fake_host::AddResource(MakeIFF("FLAR"), 1001, FlareBytes({{"RING", 1, int16_t(elements.size())}}));
        for (size_t i = 0; i < elements.size(); ++i)
            fake_host::AddResource(MakeIFF("RING"), int(i + 1), RingResourceBytes(elements[i]));
        block.assign(size_t(F + tail), 0);
        data = reinterpret_cast<PluginDataRec*>(block.data());
        data->flareElementSize = F;
        data->flareDataSize = F + tail;
        ASSERT_EQ(ReadFlareElements(data, fake_host::TheResourceFile()), kNoError);
        DefaultControl(&control);
        SetLRect(&data->flareRect, 0, 0, 1920, 1080);
        data->flareXScale = data->flareYScale = 100.0f;
        data->flareXCenter = 960.0f;
        data->flareYCenter = 540.0f;
        data->flareXPosition = 1160.0f;
        data->flareYPosition = 640.0f;
        data->flareLightIntensity = 1.0f;
        data->flareLightColor = ARGB{255, 255, 255, 255};
        control.flareIntensity = 1.0;
        control.flareFlags &= ~(kFlagRandomStreaks | kFlagAnamorphicStreak);   // elements only
    }
    int32_t Layout() {
        data->flareDataSize = int32_t(block.size());
        return CalcFlareInfo(&control, data);
    }
    RingElement& Ring(int index) {
        int32_t offset = data->flareRingFirst;
        for (int i = 0; i < index; ++i) offset = RingAt(data, offset)->ringNext;
        return *RingAt(data, offset);
    }
    const FlareColor* Table(const RingElement& ring) { return TailRecord<FlareColor>(data, ring.ringFlareColorBase); }
    bool Drawn(const RingElement& ring) { return ring.ringFlareColors > 0; }

    std::vector<uint8_t> block;
    PluginDataRec* data = nullptr;
    ControlDataRec control{};
};

}  // namespace

TEST_F(LayoutTest, ElementsSitOnTheLineThroughTheCentre) {
    Load({Element(4, 0, 50), Element(4, 1000, 50), Element(4, -1000, 50)});
    ASSERT_EQ(Layout(), kNoError);
    const float centres[3][2] = {{960.0f, 540.0f}, {1160.0f, 640.0f}, {760.0f, 440.0f}};
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(std::pair(Ring(i).ringXPos, Ring(i).ringYPos), std::pair(centres[i][0], centres[i][1])) << i;
    // floor(1160 - 5) .. ceil(1160 + 5), floor(640 - 5) .. ceil(640 + 5)
    const L_Rect& r = Ring(1).ringRect;
    EXPECT_EQ(std::tie(r.left, r.top, r.right, r.bottom), std::make_tuple(1155, 635, 1165, 645));
    data->flareXPosition = 960.0f;
    data->flareYPosition = 540.0f;
    ASSERT_EQ(Layout(), kNoError);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Ring(i).ringXPos, 960.0f);
}

TEST_F(LayoutTest, AnamorphicStretchWidensOnlyWhenSwitchedOn) {
    Load({Element(4, 500, 200)});
    control.flareAnamorphicFactor = 1.77;
    ASSERT_EQ(Layout(), kNoError);
    EXPECT_EQ(Ring(0).ringXRadius, Ring(0).ringYRadius);
    EXPECT_EQ(Ring(0).ringXFactor, 65536.0f);
    control.flareFlags |= kFlagAnamorphic;
    ASSERT_EQ(Layout(), kNoError);
    const RingElement& ring = Ring(0);
    EXPECT_FLOAT_EQ(ring.ringXRadius, 1.77f * ring.ringYRadius);
    EXPECT_EQ(ring.ringYFactor, 65536.0f);
    EXPECT_FLOAT_EQ(ring.ringXFactor, float(65536.0 / 1.77));
    EXPECT_EQ(ring.ringFlareColors, int32_t(std::ceil(ring.ringYRadius)));   // L is the smaller radius
}

TEST_F(LayoutTest, GlowSwitchesPickTheWhiteOrTheColouredGlow) {
    Load({Element(1, 1000, 100), Element(2, 1000, 100)});
    struct Case { uint32_t flags; bool white, colored; } cases[] = {
        {kFlagGlow, true, false}, {kFlagGlow | kFlagGlowInLightColor, false, true}, {kFlagGlowInLightColor, false, false}};
    for (const Case& c : cases) {
        control.flareFlags = c.flags;
        ASSERT_EQ(Layout(), kNoError);
        EXPECT_EQ(Drawn(Ring(0)), c.white) << c.flags;
        EXPECT_EQ(Drawn(Ring(1)), c.colored) << c.flags;
    }
    control.flareFlags = kFlagGlow;
    control.flareIntensity = 0.5;                    // glows grow with the intensity
    ASSERT_EQ(Layout(), kNoError);
    EXPECT_EQ(Ring(0).ringXRadius, 5.0f);
}

TEST_F(LayoutTest, TablesTakeOneEntryPerPixelOfRadiusRoundedToEightBytes) {
    Load({Element(4, 500, 32), Element(4, 500, 70)});    // radii 3.2 and 7.0 pixels
    ASSERT_EQ(Layout(), kNoError);
    EXPECT_EQ(Ring(0).ringFlareColors, 4);
    EXPECT_EQ(Ring(1).ringFlareColors, 7);
    EXPECT_EQ(Ring(0).ringFlareColorBase, data->flareElementSize);
    EXPECT_EQ(Ring(1).ringFlareColorBase, data->flareElementSize + 32);
    EXPECT_EQ(data->flareDataSize, data->flareElementSize + 32 + 48);
    const FlareColor* table = Table(Ring(1));
    EXPECT_GT(table[0].red, table[6].red);
    EXPECT_EQ(table[7].red | table[7].green | table[7].blue, 0);
}

TEST_F(LayoutTest, WhatIsNotDrawnTakesNoSpace) {
    Load({Element(4, 500, 50), Element(4, 30000, 50), Element(5, 500, 50)});   // the second far off the frame
    ASSERT_EQ(Layout(), kNoError);
    EXPECT_FALSE(Drawn(Ring(1)));
    EXPECT_EQ(Ring(1).ringRect.right | Ring(1).ringRect.bottom | Ring(1).ringRect.left | Ring(1).ringRect.top, 0);
    EXPECT_EQ(Ring(2).ringFlareColorBase, Ring(0).ringFlareColorBase + 40);   // 6 entries of 6 bytes, made 40

    control.flareFlags &= ~kFlagReflections;           // reflections switched off
    ASSERT_EQ(Layout(), kNoError);
    EXPECT_FALSE(Drawn(Ring(0)));
    EXPECT_FALSE(Drawn(Ring(2)));
    EXPECT_EQ(data->flareDataSize, data->flareElementSize);

    control.flareFlags |= kFlagReflections;
    control.flareDissolve = 1.0;                       // every intensity 0: all tables black
    ASSERT_EQ(Layout(), kNoError);
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(Drawn(Ring(i)));
}

TEST_F(LayoutTest, ReflectionsOtherThanType4AreDimmer) {
    Load({Element(4, 500, 100), Element(7, 500, 100)});
    ASSERT_EQ(Layout(), kNoError);
    const FlareColor full = Table(Ring(0))[0];
    const FlareColor dim = Table(Ring(1))[0];
    EXPECT_NEAR(double(dim.red) / full.red, 0.29, 0.002);
}

TEST_F(LayoutTest, HaloIsRebuiltFromTheRingSize) {
    Load({Element(3, -3000, 500)});
    data->flareXScale = data->flareYScale = 1000.0f;   // a large halo shows its band in detail
    ASSERT_EQ(Layout(), kNoError);
    const RingElement& halo = Ring(0);
    EXPECT_EQ(halo.ringPosition, 1.0f);                // centred on the light, whatever the table says
    EXPECT_EQ(halo.ringOuter, 0.1175f);
    EXPECT_EQ(halo.ringIntensity, 0.55f);
    EXPECT_EQ(halo.ringElementColors, 5);
    ASSERT_TRUE(Drawn(halo));
    // The band lies between 0.8636 and 1 of the radius: black inside, bright near 0.93.
    const FlareColor* table = Table(halo);
    const double L = halo.ringYRadius;
    for (int32_t i = 0; i + 1 < int32_t(0.8636 * L); ++i) EXPECT_EQ(table[i].red, 0) << i;
    int32_t brightest = 0;
    for (int32_t i = 0; i < halo.ringFlareColors; ++i) brightest = table[i].red > table[brightest].red ? i : brightest;
    EXPECT_NEAR((brightest + 0.5) / L, 0.93, 0.01);
    // Tinted by the ring colour: red 0x5050 over green 0x1414.
    EXPECT_GT(table[brightest].red, 3 * table[brightest].green);

    control.flareRingSize = 0.0;                       // no band: not drawn, nothing infinite
    ASSERT_EQ(Layout(), kNoError);
    EXPECT_FALSE(Drawn(Ring(0)));
}

TEST_F(LayoutTest, GlowsFollowTheLightSize) {
    Load({Element(1, 1000, 400), Element(2, 1000, 400), Element(4, 500, 400)});
    control.flareFlags |= kFlagGlow;
    control.flareFlags &= ~kFlagGlowInLightColor;
    ASSERT_EQ(Layout(), kNoError);
    const float glow = Ring(0).ringXRadius, reflection = Ring(2).ringXRadius;
    data->flareLightSize = 0.5f;
    ASSERT_EQ(Layout(), kNoError);
    EXPECT_EQ(Ring(0).ringXRadius, glow * 0.5f);
    EXPECT_EQ(Ring(2).ringXRadius, reflection);
}

TEST_F(LayoutTest, NoRoomForATableIsAMemoryError) {
    Load({Element(4, 500, 50), Element(4, 500, 50), Element(4, 500, 50)}, 4000);
    const int32_t elements = data->flareElementSize - F;
    block.resize(size_t(data->flareElementSize + 40 + 20));   // one table and a bit
    data = reinterpret_cast<PluginDataRec*>(block.data());
    EXPECT_EQ(Layout(), kMemoryError);
    EXPECT_TRUE(Drawn(Ring(0)));
    EXPECT_FALSE(Drawn(Ring(1)));
    EXPECT_FALSE(Drawn(Ring(2)));
    EXPECT_EQ(data->flareDataSize, F + elements + 40);
}

// Whatever the host sends, the layout neither converts an out-of-range float to an integer nor
// leaves a table behind for an element it could not place.
TEST_F(LayoutTest, AbsurdHostNumbersDrawNothing) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    Load({Element(2, 1000, 100), Element(3, 0, 100), Element(4, -500, 100), Element(5, 2000, 100)});
    const struct { float* field; float value; } cases[] = {
        {&data->flareXPosition, nan},    {&data->flareYPosition, inf},  {&data->flareXScale, -inf},
        {&data->flareYScale, nan},       {&data->flareXScale, 0.0f},    {&data->flareYScale, -100.0f},
        {&data->flareLightIntensity, nan}, {&data->flareLightIntensity, -2.0f}, {&data->flareXCenter, inf},
        {&data->flareLightSize, nan}};
    for (const auto& c : cases) {
        const float saved = *c.field;
        *c.field = c.value;
        EXPECT_EQ(Layout(), kNoError);
        for (int i = 0; i < 4; ++i) {
            if (c.field == &data->flareLightSize && i > 0) continue;   // only the glow is sized by it
            EXPECT_FALSE(Drawn(Ring(i))) << "element " << i << " value " << c.value;
        }
        *c.field = saved;
    }
    data->flareLightIntensity = 1e30f;                 // a table of more entries than 32 bits count
    EXPECT_EQ(Layout(), kNoError);
    EXPECT_FALSE(Drawn(Ring(0)));
    data->flareLightIntensity = 1.0f;
    data->flareXPosition = 3e9f;                       // far away but finite: placed, culled
    EXPECT_EQ(Layout(), kNoError);
    EXPECT_FALSE(Drawn(Ring(0)));
}
