// The pixel sums, the ring and streak painters on hand-built working records, and the outline sketch.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <random>
#include <vector>

#include "kit/rect.h"
#include "plugin/painters.h"
#include "plugin/pixels.h"
#include "plugin/scan_conversion.h"
#include "plugin/sketch.h"

namespace {

constexpr int32_t F = kPluginDataFixedSize;
constexpr int32_t kTail = 131072;   // room for 700 streaks and their scratch
constexpr int32_t kStreakBase = F + 8192;   // rings and colour tables below, streaks and scratch above
constexpr int32_t kStreakSize = int32_t(sizeof(StreakElement));
using Rgb = std::array<uint16_t, 3>;
using Argb = std::array<uint8_t, 4>;

// A working record built by hand (fixed part defaulted, which fills the falloff table) with a pixel
// buffer of its own covering columns 0..width-1 and rows 0..height-1.
struct Flare {
    std::vector<uint8_t> bytes = std::vector<uint8_t>(size_t(F + kTail));
    std::vector<uint8_t> pixels;
    ControlDataRec control{};
    int32_t width, bpp, ringEnd = F;
    RingElement* lastRing = nullptr;

    Flare(int32_t depth, int32_t w, int32_t h, uint8_t fill = 0) : width(w), bpp(depth / 8) {
        DefaultData(data());
        data()->flareElementSize = data()->flareDataSize = F + kTail;
        pixels.assign(size_t(w * h * bpp), fill);
        VelluxBuffer& b = data()->flarePixelBuffer;
        b.bufferBase = pixels.data();
        b.bufferRowBytes = w * bpp;
        SetLRect(&b.bufferRect, 0, 0, w, h);
        b.bufferDepth = depth;
    }
    PluginDataRec* data() { return reinterpret_cast<PluginDataRec*>(bytes.data()); }
    uint8_t* Pixel(int32_t x, int32_t y) { return pixels.data() + (y * width + x) * bpp; }
    Rgb At48(int32_t x, int32_t y) {
        Rgb v;
        std::memcpy(v.data(), Pixel(x, y), 6);
        return v;
    }
    Argb At32(int32_t x, int32_t y) { return {Pixel(x, y)[0], Pixel(x, y)[1], Pixel(x, y)[2], Pixel(x, y)[3]}; }

    // A ring centred at (x, y) over the whole buffer; `table` gets its zero terminator here.
    RingElement& AddRing(float x, float y, float xFactor, float yFactor, std::vector<FlareColor> table) {
        auto* ring = TailRecord<RingElement>(data(), ringEnd);
        ring->ringXPos = x, ring->ringYPos = y;
        ring->ringXFactor = xFactor, ring->ringYFactor = yFactor;
        ring->ringXRadius = ring->ringYRadius = 0.5f;
        ring->ringRect = data()->flarePixelBuffer.bufferRect;
        ring->ringFlareColors = int32_t(table.size());
        ring->ringFlareColorBase = ringEnd + int32_t(sizeof(RingElement));
        table.push_back({0, 0, 0});
        std::memcpy(TailRecord<uint8_t>(data(), ring->ringFlareColorBase), table.data(), table.size() * sizeof(FlareColor));
        if (lastRing != nullptr) lastRing->ringNext = ringEnd;
        else data()->flareRingFirst = ringEnd;
        ++data()->flareRingCount;
        lastRing = ring;
        ringEnd = (ring->ringFlareColorBase + int32_t(table.size() * sizeof(FlareColor)) + 7) & ~7;
        return *ring;
    }

    // A streak covering columns a..b of rows top..bottom; along = xLength * xp, across = xWidth * xp.
    StreakElement& AddStreak(int32_t a, int32_t b, int32_t top, int32_t bottom, uint32_t mode, RGB_Real colour,
                             float xLength, float xWidth = 0.0f) {
        const int32_t n = data()->flareStreakCount++;
        const int32_t offset = kStreakBase + n * kStreakSize;
        if (n > 0) TailRecord<StreakElement>(data(), offset - kStreakSize)->streakNext = offset;
        else data()->flareStreakFirst = offset;
        auto* s = TailRecord<StreakElement>(data(), offset);
        s->streakColor = colour, s->streakMode = mode;
        s->streakXLength = xLength, s->streakXWidth = xWidth;
        const float l = float(a) - 0.5f, r = float(b) + 0.5f, t = float(top) - 0.5f, u = float(bottom) + 0.5f;
        const float p[4][2] = {{l, t}, {r, t}, {r, u}, {l, u}};
        int32_t xMin = 32767, yMin = 32767, xMax = -32767, yMax = -32767;
        for (int i = 0; i < 4; ++i)
            SetEdge(&s->streakEdges[i], 0, p[i][0], p[i][1], p[(i + 1) % 4][0], p[(i + 1) % 4][1], &xMin, &yMin,
                    &xMax, &yMax);
        SetLRect(&s->streakRect, xMin, yMin, xMax + 1, yMax + 1);
        return *s;
    }

    void Paint(void (*p48)(const ControlDataRec*, PluginDataRec*, const L_Rect*, int32_t),
               void (*p32)(const ControlDataRec*, PluginDataRec*, const L_Rect*, int32_t), int32_t y) {
        L_Rect row;
        SetLRect(&row, 0, y, width, y + 1);
        (bpp == 6 ? p48 : p32)(&control, data(), &row, y);
    }
    void Rings(int32_t y) { Paint(PaintRings48, PaintRings32, y); }
    void Streaks(int32_t y) { Paint(PaintStreaks48, PaintStreaks32, y); }
};

}  // namespace

TEST(SumPixel, FortyEightBitHoldsEveryChannelUnderTheCeiling) {
    uint16_t px[3] = {16000, 100, 16320};
    SumPixel48(reinterpret_cast<uint8_t*>(px), 500, -500, 0, RingCeiling48(0.0));
    EXPECT_TRUE(px[0] == 16320 && px[1] == 0 && px[2] == 16320);
    SumPixel48(reinterpret_cast<uint8_t*>(px), 0, 0, 0, RingCeiling48(0.5));   // lowered although nothing is added
    EXPECT_TRUE(px[0] == 8160 && px[1] == 0 && px[2] == 8160);
    // A dissolve outside 0..1 keeps the ceilings inside the channels' range.
    EXPECT_EQ(RingCeiling48(-1.0), 32640);
    EXPECT_EQ(RingCeiling48(-10.0), 65535);
    EXPECT_EQ(Ceiling32(-1.0), 255);
    EXPECT_EQ(Ceiling32(1.5), 0);
}

TEST(SumPixel, ThirtyTwoBitDithersWithOneNoisePerPixel) {
    const uint32_t noises[2][4] = {{16, 37, 9, 49}, {0, 52, 41, 53}};   // from seeds 1 and 0
    for (uint32_t start : {1u, 0u}) {
        uint32_t seed = start;
        for (uint32_t expected : noises[1 - start]) {
            uint8_t px[4] = {};
            SumPixel32(px, &seed, 0, 0, 0, 255);
            EXPECT_EQ(seed >> 26, expected) << "from seed " << start;
        }
    }
    for (uint32_t start = 0; start < 300; ++start) {
        uint32_t seed = start;
        uint8_t px[4] = {77, 200, 200, 200};
        SumPixel32(px, &seed, 640, 672, 672, 255);
        const uint8_t half = (seed >> 26) >= 32 ? 211 : 210;   // one noise for all three channels
        EXPECT_EQ((Argb{px[0], px[1], px[2], px[3]}), (Argb{77, 210, half, half}));
        uint8_t held[4] = {5, 200, 200, 3};
        SumPixel32(held, &seed, 640, 16320, -640, 205);
        EXPECT_EQ((Argb{held[0], held[1], held[2], held[3]}), (Argb{5, 205, 205, 0}));
    }
}

TEST(RingPainter, ReadsTheTableAtTheEllipticalDistance) {
    // Half a table step per column: column 2 + k lies k / 2 steps from the centre.
    Flare f(48, 20, 1);
    f.AddRing(2.0f, 0.0f, 32768.0f, 32768.0f,
              {{16000, 8000, 4000}, {12000, 6000, 3000}, {4000, 2000, 1000}, {2000, 1000, 500}});
    f.Rings(0);
    const std::pair<int32_t, Rgb> expected[] = {
        {2, {16000, 8000, 4000}}, {3, {14000, 7000, 3500}}, {0, {12000, 6000, 3000}}, {4, {12000, 6000, 3000}},
        {7, {3000, 1500, 750}},   // 2.5 steps: the mean of entries 2 and 3
        {9, {1000, 500, 250}},    // 3.5 steps: half way from the last entry to nothing
        {10, {0, 0, 0}},          {19, {0, 0, 0}}};
    for (const auto& [x, colour] : expected) EXPECT_EQ(f.At48(x, 0), colour) << "column " << x;
}

TEST(RingPainter, XFactorTwiceYFactorGivesAnEllipseHalfAsWideAsTall) {
    Flare f(48, 21, 21);
    f.AddRing(10.0f, 10.0f, 65536.0f, 32768.0f, std::vector<FlareColor>(4, FlareColor{1000, 1000, 1000}));
    for (int32_t y = 0; y < 21; ++y) f.Rings(y);
    int across = 0, down = 0;
    for (int32_t i = 0; i < 21; ++i) {
        across += f.At48(i, 10)[0] != 0;
        down += f.At48(10, i)[0] != 0;
    }
    EXPECT_EQ(across, 7);   // columns 7..13
    EXPECT_EQ(down, 15);    // rows 3..17
    EXPECT_NE(f.At48(12, 14)[0], 0);   // 2.83 steps out: inside
    EXPECT_EQ(f.At48(13, 16)[0], 0);   // 4.24 steps out: beyond the curve
}

TEST(RingPainter, SkippedRingsAndRowsLeaveThePixelsAlone) {
    Flare f(48, 10, 10, 0x11);
    f.AddRing(5.0f, 2.0f, 65536.0f, 65536.0f, {{5000, 5000, 5000}}).ringFlareColors = 0;
    SetLRect(&f.AddRing(5.0f, 2.0f, 65536.0f, 65536.0f, {{100, 200, 300}}).ringRect, 0, 0, 10, 4);
    const std::vector<uint8_t> before = f.pixels;
    f.Rings(6);
    EXPECT_EQ(f.pixels, before);
    f.Rings(2);
    EXPECT_EQ(f.At48(5, 2), (Rgb{0x1111 + 100, 0x1111 + 200, 0x1111 + 300}));
    EXPECT_EQ(f.At48(4, 2), (Rgb{0x1111, 0x1111, 0x1111}));
}

TEST(RingPainter, ThirtyTwoBitNoiseRestartsOnEveryRow) {
    // One painted pixel on row 1: the seed runs 1 -> noise 16 -> noise 37, and 37 is summed.
    Flare f(32, 5, 3);
    f.AddRing(2.0f, 1.0f, 65536.0f, 65536.0f, {{4080, 8160, 2040}});
    f.Rings(1);
    EXPECT_EQ(f.At32(2, 1), (Argb{0, 64, 128, 32}));   // green 127 with noise 16
    EXPECT_EQ(f.At32(1, 1), (Argb{0, 0, 0, 0}));

    // The same frame painted twice, or one row painted after another than its predecessor, comes
    // out the same.
    Flare g(32, 16, 16, 0x40);
    g.AddRing(7.3f, 8.1f, 9000.0f, 7000.0f, {{9000, 3000, 700}, {5000, 2500, 655}, {3333, 1111, 99}});
    auto paint = [&g](std::initializer_list<int32_t> rows) {
        std::fill(g.pixels.begin(), g.pixels.end(), 0x40);
        for (int32_t y : rows) g.Rings(y);
        return g.pixels;
    };
    const std::vector<uint8_t> once = paint({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
    EXPECT_EQ(paint({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}), once);
    const std::vector<uint8_t> alone = paint({3, 9});
    EXPECT_TRUE(std::equal(once.begin() + 9 * 64, once.begin() + 10 * 64, alone.begin() + 9 * 64));
    EXPECT_NE(once[9 * 64 + 29], 0x40);
}

TEST(StreakPainter, FortyEightBitFalloffAlongTheStreak) {
    Flare f(48, 12, 1);
    f.data()->flareXPosition = 5.0f;
    f.AddStreak(0, 11, 0, 0, 0, {1.0f, 0.5f, 0.25f}, 1.0f);
    f.Streaks(0);
    EXPECT_EQ(f.At48(5, 0), (Rgb{16320, 8160, 4080}));   // on the light
    EXPECT_NEAR(f.At48(6, 0)[0], 16320.0 * std::exp(-1.0), 1.0);
    EXPECT_NEAR(f.At48(11, 0)[0], 16320.0 * std::exp(-std::pow(6.0, 1.5)), 1.0);   // no cut-off at 48 bits
}

TEST(StreakPainter, BrightestOfEachRunOfOneModeIsAdded) {
    struct Shape {
        uint32_t mode;
        float colour, xLength;
    };
    // Streaks over the pixel one column right of the light; its red channel afterwards.
    auto red = [](std::initializer_list<Shape> shapes) {
        Flare f(48, 3, 1);
        for (const Shape& s : shapes) f.AddStreak(1, 1, 0, 0, s.mode, {s.colour, s.colour, s.colour}, s.xLength);
        f.Streaks(0);
        return int(f.At48(1, 0)[0]);
    };
    const double dim = 16320.0 * std::exp(-1.0);   // falloff e^-1 at full colour; the other is 0.25 at full falloff
    EXPECT_EQ(red({{0, 1.0f, 1.0f}, {0, 0.25f, 0.0f}}), 4080);   // the brighter falloff wins, not the larger colour
    EXPECT_EQ(red({{0, 0.25f, 0.0f}, {0, 1.0f, 1.0f}}), 4080);
    EXPECT_EQ(red({{2, 0.25f, 0.0f}, {0x80000002u, 1.0f, 1.0f}}), 4080);   // only the two low bits are the mode
    EXPECT_NEAR(red({{0, 1.0f, 1.0f}, {1, 0.25f, 0.0f}}), dim + 4080, 1.0);
    EXPECT_EQ(red({{0, 0.1f, 0.0f}, {1, 0.2f, 0.0f}, {0, 0.3f, 0.0f}}), 1632 + 3264 + 4896);
}

TEST(StreakPainter, SpansAndRowsWithoutStreaks) {
    Flare f(48, 12, 4, 0x01);
    StreakElement& a = f.AddStreak(1, 2, 2, 3, 0, {0.25f, 0.25f, 0.25f}, 0.0f);
    StreakElement& b = f.AddStreak(8, 9, 2, 3, 0, {0.25f, 0.25f, 0.25f}, 0.0f);
    a.streakXMin = b.streakXMin = a.streakXMax = b.streakXMax = 5;
    EdgeList edges;
    std::memcpy(edges, a.streakEdges, sizeof(edges));
    const std::vector<uint8_t> before = f.pixels;
    f.Streaks(0);   // no streak's rectangle meets row 0
    EXPECT_EQ(f.pixels, before);
    EXPECT_EQ(std::memcmp(edges, a.streakEdges, sizeof(edges)), 0);
    EXPECT_TRUE(a.streakXMin == INT32_MAX && a.streakXMax == INT32_MIN);
    EXPECT_TRUE(b.streakXMin == INT32_MAX && b.streakXMax == INT32_MIN);

    f.Streaks(2);
    EXPECT_TRUE(a.streakXMin == 1 && a.streakXMax == 2 && b.streakXMin == 8 && b.streakXMax == 9);
    for (int32_t x = 0; x < 12; ++x)
        EXPECT_EQ(f.At48(x, 2)[1], (x == 1 || x == 2 || x == 8 || x == 9) ? 0x0101 + 4080 : 0x0101) << x;
}

TEST(StreakPainter, ThirtyTwoBitLookupAndCutOff) {
    // One streak over column xp (the light at column 0) on row y; the pixel afterwards. Entries 512,
    // 513 and 1023 of the falloff table are replaced by values that make each lookup visible.
    auto paint = [](float xLength, float xWidth, int32_t xp, int32_t y, RGB_Real colour) {
        Flare f(32, 8, 2);
        f.data()->flareLookup[512].value = 0.5f;
        f.data()->flareLookup[513].value = 0.25f;
        f.data()->flareLookup[1023].value = 0.5f;
        f.AddStreak(xp, xp, 0, 1, 0, colour, xLength, xWidth);
        f.Streaks(y);
        return f.At32(xp, y);
    };
    const RGB_Real white{1.0f, 1.0f, 1.0f};
    EXPECT_EQ(paint(1.5f, 0.0f, 1, 0, white)[1], 127);                // entry 512: 0.5 of 16320, noise 0
    EXPECT_EQ(paint(0.750732421875f, 0.0f, 2, 0, white)[1], 95);      // 1.5 + 1.5/1024: 0.375
    EXPECT_EQ(paint(0.99951171875f, 0.0f, 3, 0, white)[1], 64);       // past entry 1023: toward e^-(3^1.5)
    EXPECT_EQ(paint(1.0f, 0.0f, 3, 0, white), Argb{});   // 3 lengths: passed over
    EXPECT_EQ(paint(0.0f, 1.0f, 3, 0, white), Argb{});   // 3 widths likewise
    // The first sum on row 1 takes noise 16, on row 0 noise 0.
    const RGB_Real quarter{0.25f, 0.5f, 0.125f};   // 4080, 8160 and 2040 in 1/64 units
    EXPECT_EQ(paint(0.0f, 0.0f, 1, 1, quarter), (Argb{0, 64, 127, 32}));
    EXPECT_EQ(paint(0.0f, 0.0f, 1, 0, quarter), (Argb{0, 63, 127, 31}));
}

// Random streaks over one row of 64 columns, painted by the painter and by its rule written plainly:
// at every pixel the streaks covering it in list order, a run of one kind adding its brightest
// (the first of equals), each new kind starting a run; at 32 bits a streak 3 lengths or widths
// away is passed over. Falloffs from about 1 to 0, some distances infinite or not numbers; with
// 600 streaks the row has more than the painter copies to the stack.
TEST(StreakPainter, PaintsEveryPixelAsItsRuleSays) {
    constexpr int32_t kWidth = 64, kRow = 3;
    constexpr float kLightX = 40.25f, kLightY = 0.5f;   // every xp and yp exact
    struct Case {
        int32_t depth, count;
        double dissolve;
    };
    const Case cases[] = {{48, 40, 0.0}, {48, 600, 0.25}, {32, 40, 0.0}, {32, 600, 0.25}};
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.depth << " bits, " << c.count << " streaks, dissolve " << c.dissolve);
        std::mt19937 generator{uint32_t(c.count)};
        auto uniform = [&generator](float lo, float hi) { return std::uniform_real_distribution<float>(lo, hi)(generator); };
        Flare f(c.depth, kWidth, kRow + 2);
        f.control.flareDissolve = c.dissolve;
        f.data()->flareXPosition = kLightX;
        f.data()->flareYPosition = kLightY;
        std::vector<StreakElement*> streaks;
        uint32_t mode = 0;
        for (int32_t i = 0; i < c.count; ++i) {
            if (uniform(0.0f, 1.0f) < 0.3f) mode = uint32_t(uniform(0.0f, 4.0f));   // mostly runs of one kind
            const int32_t a = int32_t(uniform(0.0f, kWidth)), b = std::min(kWidth - 1, a + int32_t(uniform(0.0f, 40.0f)));
            const float reach = c.depth == 32 ? 0.08f : uniform(0.0f, 1.0f) < 0.2f ? 1.5f : 0.15f;   // some d beyond 22
            const float dim = 40.0f / float(c.count);   // as bright with many streaks as with few
            StreakElement& s = f.AddStreak(a, b, 0, kRow + 1, mode, {uniform(0.0f, dim), uniform(0.0f, dim), 0.5f * dim},
                                           uniform(-reach, reach), uniform(-reach, reach));
            s.streakYLength = uniform(-0.5f, 0.5f);
            s.streakYWidth = uniform(-0.5f, 0.5f);
            if (i % 50 == 7) s.streakXLength = 3e38f, s.streakYLength = -3e38f;   // infinite, or inf - inf
            streaks.push_back(&s);
        }
        f.Streaks(kRow);

        const float intensity = float(16320.0 * (1.0 - c.dissolve));
        const LookupElement* table = f.data()->flareLookup;
        const float tableEnd = float(std::exp(-std::exp(1.5 * std::log(3.0))));
        // The falloff at distance d; false where a 32-bit streak is passed over.
        auto falloff = [&](float d, float* value) {
            if (c.depth == 48) {
                *value = float(std::exp(-std::exp(1.5 * std::log(double(d)))));
                return true;
            }
            if (!(d < 3.0f)) return false;
            const float steps = float(double(d) * 341.3333333333333);
            const int32_t t = int32_t(steps);
            const float next = t + 1 < kLookupEntries ? table[t + 1].value : tableEnd;
            *value = (steps - table[t].index) * (next - table[t].value) + table[t].value;
            return true;
        };
        std::vector<uint8_t> expected(size_t(kWidth * f.bpp), 0);
        uint32_t seed = uint32_t(kRow);
        auto add = [&](int32_t x, const int32_t* rgb) {
            uint8_t* pixel = expected.data() + x * f.bpp;
            if (c.depth == 48) SumPixel48(pixel, rgb[0], rgb[1], rgb[2], StreakCeiling48(intensity));
            else SumPixel32(pixel, &seed, rgb[0], rgb[1], rgb[2], Ceiling32(c.dissolve));
        };
        const float yp = float(kRow) - kLightY;
        for (int32_t x = 0; x < kWidth; ++x) {
            const float xp = float(x) - kLightX;
            int32_t lastMode = -1;
            float brightest = 0.0f;
            int32_t rgb[3] = {0, 0, 0};
            for (const StreakElement* s : streaks) {
                if (x < s->streakXMin || x > s->streakXMax) continue;
                float along, across;
                if (!falloff(std::fabs(s->streakXLength * xp + s->streakYLength * yp), &along) ||
                    !falloff(std::fabs(s->streakXWidth * xp + s->streakYWidth * yp), &across))
                    continue;
                const float v = along * (across * intensity);
                const int32_t kind = int32_t(s->streakMode & 3u);
                if (kind != lastMode && lastMode >= 0) add(x, rgb);
                if (kind != lastMode || v > brightest) {
                    const float colour[3] = {s->streakColor.r * v, s->streakColor.g * v, s->streakColor.b * v};
                    for (int ch = 0; ch < 3; ++ch)   // truncated, held within +-2^30, 0 for not a number
                        rgb[ch] = colour[ch] != colour[ch] ? 0 : int32_t(std::max(-1073741824.0f, std::min(colour[ch], 1073741824.0f)));
                    brightest = v;
                    lastMode = kind;
                }
            }
            if (lastMode >= 0) add(x, rgb);
        }
        const std::vector<uint8_t> painted(f.pixels.begin() + kRow * kWidth * f.bpp,
                                           f.pixels.begin() + (kRow + 1) * kWidth * f.bpp);
        EXPECT_EQ(painted, expected);
        std::sort(expected.begin(), expected.end());   // the row is anything but flat
        EXPECT_GT(std::unique(expected.begin(), expected.end()) - expected.begin(), 16);
    }
}

// Under a dissolve of 0.5 a ring or streak pixel ends at half a full channel (16320 / 2 in 48
// bits, 255 / 2 truncated in 32), however bright the element or the pixel was; the pixels beside
// it keep their value.
TEST(Painters, DissolveHoldsPaintedPixelsUnderItsCeiling) {
    for (bool ring : {true, false}) {
        for (int32_t depth : {48, 32}) {
            SCOPED_TRACE(::testing::Message() << (ring ? "ring, " : "streak, ") << depth << " bits");
            Flare f(depth, 3, 1, 0x3F);   // 0x3F3F in a 48-bit channel, 0x3F in a 32-bit one
            f.control.flareDissolve = 0.5;
            if (ring) {
                f.AddRing(1.0f, 0.0f, 65536.0f, 65536.0f, {{16320, 16320, 16320}});   // column 1 only
                f.Rings(0);
            } else {
                f.AddStreak(1, 1, 0, 0, 0, {2.0f, 2.0f, 2.0f}, 0.0f);
                f.Streaks(0);
            }
            const Rgb held48{8160, 8160, 8160}, kept48{0x3F3F, 0x3F3F, 0x3F3F};
            const Argb held32{0x3F, 127, 127, 127}, kept32{0x3F, 0x3F, 0x3F, 0x3F};   // alpha untouched
            for (int32_t x : {0, 1, 2}) {
                if (depth == 48) EXPECT_EQ(f.At48(x, 0), x == 1 ? held48 : kept48) << x;
                else EXPECT_EQ(f.At32(x, 0), x == 1 ? held32 : kept32) << x;
            }
        }
    }
}

TEST(Sketch, PlotsOutlinePointsInsideTheBufferOnly) {
    // A ring of radius 0.5 takes 4 segments: the points straight below, right of, above and left
    // of the centre, the fifth on the first.
    Flare f(8, 20, 20);
    VelluxBuffer& buffer = f.data()->flarePixelBuffer;
    SetLRect(&buffer.bufferRect, 100, 200, 120, 220);
    buffer.bufferIndex = 7;
    SetLRect(&f.AddRing(110.0f, 210.0f, 1.0f, 1.0f, {{1, 1, 1}}).ringRect, 109, 209, 112, 212);
    SetLRect(&f.AddRing(115.0f, 205.0f, 1.0f, 1.0f, {{1, 1, 1}}).ringRect, 0, 0, 10, 10);   // off the buffer
    int32_t result = 0;
    SketchFlare(f.data(), false, &result);
    EXPECT_EQ(result, 0);
    std::vector<uint8_t> expected(400, 0);
    expected[10 * 20 + 10] = expected[9 * 20 + 10] = expected[10 * 20 + 9] = 7;
    EXPECT_EQ(f.pixels, expected);

    // A ring of radius 100 crossing the edges of a 200 x 150 buffer (rows 203 bytes apart): its 629
    // segments, plotted where they fall inside.
    auto outline = [](int32_t segments) {
        std::vector<uint8_t> out(size_t(203 * 150), 0);
        const float step = 6.2831853f / float(segments);
        float angle = 0.0f;
        for (int32_t i = 0; i <= segments; ++i, angle = angle + step) {
            const float x = std::sin(angle) * 100.0f + 120.5f, y = std::cos(angle) * 100.0f + 60.25f;
            if (x >= 0.0f && y >= 0.0f && x < 200.0f && y < 150.0f) out[size_t(int32_t(y) * 203 + int32_t(x))] = 9;
        }
        return out;
    };
    std::vector<uint8_t> pixels(size_t(203 * 150), 0);
    VelluxBuffer big{pixels.data(), 203, {}, 8, 9};
    SetLRect(&big.bufferRect, -10, 5, 190, 155);
    RingElement ring{};
    ring.ringXPos = 110.5f, ring.ringYPos = 65.25f;
    ring.ringXRadius = -100.0f, ring.ringYRadius = 100.0f;
    SketchRing(&big, &ring);
    EXPECT_EQ(pixels, outline(629));
}
