// GENF through Main: the block and buffer checks, clipping the buffer to the frame, and the
// progress reports through which the host paces and cancels a render.
#include <algorithm>
#include <cstring>
#include <vector>

#include "kit/rect.h"
#include "kit/ticks.h"
#include "support/plugin_fixture.h"

namespace {

class GenerateTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        Fake().ringCount = 1;      // one element, which the stand-in leaves undrawn
        Fake().layoutBytes = 64;   // a settled record: GENF asks for no memory
        ASSERT_EQ(Init(), kNoError);
        SetFrame(0, 0, 4, 400);
    }
    void SetFrame(int32_t left, int32_t top, int32_t right, int32_t bottom) {
        PluginFlareSetupRec setup{};
        SetLRect(&setup.theFrameRect, left, top, right, bottom);
        setup.theFrameXScale = setup.theFrameYScale = 100.0;
        ASSERT_EQ(host.Send(kCmdSetup, setup), kNoError);
        host.ClearLog();
    }
    // Makes the element paint `level` into every pixel of `rect`, with the colour table in the
    // layout's bytes after the elements.
    void PaintEverywhere(uint16_t level, const L_Rect& rect) {
        PluginDataRec& d = data();
        auto* ring = TailRecord<RingElement>(&d, d.flareRingFirst);
        const FlareColor table[2] = {{level, level, level}, {0, 0, 0}};
        std::memcpy(TailRecord<uint8_t>(&d, d.flareElementSize), table, sizeof(table));
        ring->ringFlareColors = 1;
        ring->ringFlareColorBase = d.flareElementSize;
        ring->ringRect = rect;
        ring->ringXFactor = ring->ringYFactor = 0.0f;
    }
    int32_t Generate(uint8_t* base, int32_t rowBytes, int32_t left, int32_t top, int32_t right, int32_t bottom,
                     int16_t depth, int32_t size = int32_t(sizeof(PluginFlareGenerateRec))) {
        PluginFlareGenerateRec block{};
        block.theFlareBuffer.bufferBase = base;
        block.theFlareBuffer.bufferRowBytes = rowBytes;
        SetLRect(&block.theFlareBuffer.bufferRect, left, top, right, bottom);
        block.theFlareBuffer.bufferDepth = depth;
        return host.Send(kCmdGenerate, block, size);
    }
    std::vector<TestHost::Call> Reports() const {
        std::vector<TestHost::Call> out;
        for (const TestHost::Call& call : host.calls)
            if (call.selector == kHostStatus) out.push_back(call);
        return out;
    }
};

}  // namespace

TEST_F(GenerateTest, ChecksTheBlockAndTheBufferFirst) {
    // Rows may run upward in memory: row 0 is the buffer's last row of bytes here.
    PaintEverywhere(1000, L_Rect{0, 0, 1, 4, 4, 1});
    std::vector<uint8_t> pixels(24 * 10, 0);
    EXPECT_EQ(Generate(pixels.data() + 9 * 24, -24, 0, 0, 4, 10, 48), kNoError);
    uint16_t top, bottom;
    std::memcpy(&top, pixels.data(), 2);
    std::memcpy(&bottom, pixels.data() + 9 * 24, 2);
    EXPECT_TRUE(top == 0 && bottom == 1000);

    host.ClearLog();
    const std::vector<uint8_t> before = pixels;
    data().flareReset = 1;   // a pending re-layout: only a validated command would run it
    const std::vector<uint8_t> record(host.plugin(), host.plugin() + host.pluginSize());
    const int layouts = Fake().layouts;
    const int32_t full = int32_t(sizeof(PluginFlareGenerateRec));
    const struct {
        uint8_t* base;
        int32_t rowBytes;
        int16_t depth;
        int32_t size, result;
    } refused[] = {{pixels.data(), 24, 48, 61, kIncompatibleRecord},
                   {pixels.data(), 24, 48, full - 1, kIncompatibleRecord},
                   {pixels.data(), 24, 16, full, kUnsupportedFeature},
                   {nullptr, 24, 48, full, kIncompatibleRecord},
                   {pixels.data(), 23, 48, full, kIncompatibleRecord},    // a row is 24 bytes
                   {pixels.data(), -15, 32, full, kIncompatibleRecord}};  // a row is 16 bytes
    for (const auto& r : refused)
        EXPECT_EQ(Generate(r.base, r.rowBytes, 0, 0, 4, 10, r.depth, r.size), r.result) << r.rowBytes << " " << r.size;
    EXPECT_TRUE(host.calls.empty());
    EXPECT_EQ(std::vector<uint8_t>(host.plugin(), host.plugin() + host.pluginSize()), record);
    EXPECT_EQ(Fake().layouts, layouts);
    EXPECT_EQ(pixels, before);
}

TEST_F(GenerateTest, BufferOutsideTheFrameIsLeftAlone) {
    PaintEverywhere(1000, data().flareRect);
    std::vector<uint8_t> pixels(24 * 10, 0xEE);
    EXPECT_EQ(Generate(pixels.data(), 24, 0, 500, 4, 510, 48), kNoError);
    const L_Rect& r = data().flarePixelBuffer.bufferRect;
    EXPECT_TRUE(r.top == 0 && r.left == 0 && r.bottom == 0 && r.right == 0 && r.width == 0u && r.height == 0u);
    EXPECT_EQ(Generate(pixels.data(), 24, 4, 0, 8, 10, 48), kNoError);   // touching the frame's right side
    EXPECT_EQ(data().flarePixelBuffer.bufferRect.right, 0);
    EXPECT_TRUE(host.calls.empty());
    EXPECT_EQ(pixels, std::vector<uint8_t>(24 * 10, 0xEE));
}

TEST_F(GenerateTest, BufferIsClippedToTheFrame) {
    SetFrame(50, 0, 150, 400);
    PaintEverywhere(1000, data().flareRect);
    // A buffer over columns 0..149 and rows -2..9: frame pixel (50, 0) lies 50 pixels into the
    // buffer's third row, the frame's last pixel is the buffer's last.
    for (int16_t depth : {int16_t(32), int16_t(48)}) {
        SCOPED_TRACE(depth);
        const int32_t bpp = depth / 8, rowBytes = 150 * bpp;
        const size_t first = size_t(2 * rowBytes + 50 * bpp);
        std::vector<uint8_t> pixels(size_t(rowBytes) * 12, 0);
        ASSERT_EQ(Generate(pixels.data(), rowBytes, 0, -2, 150, 10, depth), kNoError);
        const VelluxBuffer& b = data().flarePixelBuffer;
        EXPECT_EQ(b.bufferBase, pixels.data() + first);
        EXPECT_TRUE(b.bufferRect.top == 0 && b.bufferRect.left == 50 && b.bufferRect.bottom == 10 &&
                    b.bufferRect.right == 150 && b.bufferRect.width == 100u && b.bufferRect.height == 10u);
        EXPECT_TRUE(std::all_of(pixels.begin(), pixels.begin() + ptrdiff_t(first), [](uint8_t v) { return v == 0; }));
        for (size_t at : {first, pixels.size() - size_t(bpp)}) {
            if (depth == 48) {
                uint16_t red;
                std::memcpy(&red, &pixels[at], 2);
                EXPECT_EQ(red, 1000);
            } else {
                EXPECT_EQ(pixels[at], 0);       // alpha
                EXPECT_GE(pixels[at + 1], 15);  // 1000 / 64, dithered
            }
        }
    }
}

// Reports count rows from the frame's top, wherever the band and the frame lie; the position is
// the fraction of the frame's 400 rows done.
TEST_F(GenerateTest, ProgressCountsRowsOfTheWholeFrame) {
    struct Case {
        int32_t frameTop, top, bottom;
    };
    for (const Case& c : {Case{0, 0, 400}, Case{0, 100, 200}, Case{100, 200, 300}}) {
        SCOPED_TRACE(::testing::Message() << "frame from " << c.frameTop << ", band " << c.top << " to " << c.bottom);
        SetFrame(0, c.frameTop, 4, c.frameTop + 400);
        std::vector<uint8_t> band(24 * size_t(c.bottom - c.top), 0);
        ASSERT_EQ(Generate(band.data(), 24, 0, c.top, 4, c.bottom, 48), kNoError);
        const std::vector<TestHost::Call> reports = Reports();
        const int32_t rows = c.bottom - c.top, done = c.top - c.frameTop;
        ASSERT_EQ(reports.size(), size_t(rows + 2));   // the first, one after every row, the final
        for (int32_t i = 0; i <= rows; ++i) EXPECT_EQ(reports[size_t(i)].statusValue, done + i);
        EXPECT_EQ(reports.front().statusPos, float(done) / 400.0f);
        EXPECT_EQ(reports.back().statusValue, done + rows);
        EXPECT_EQ(reports.back().statusPos, float(done + rows) / 400.0f);
    }
    const HostStatusRec& status = data().theStatusRec;
    EXPECT_EQ(PStrText(status.theStatusUnit), "Scanline");
    EXPECT_EQ(PStrText(status.theStatusInfo), "Drawing Flare");
    EXPECT_TRUE(status.theStatusMin == 0 && status.theStatusMax == 400);
}

TEST_F(GenerateTest, HostPacesAndCancelsTheReports) {
    std::vector<uint8_t> frame(24 * 400, 0);
    host.statTick = int32_t(TickCount() + 60 * 600);   // ten minutes ahead
    ASSERT_EQ(Generate(frame.data(), 24, 0, 0, 4, 400, 48), kNoError);
    std::vector<TestHost::Call> reports = Reports();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0].statusValue, 0);
    EXPECT_EQ(reports[1].statusValue, 400);
    EXPECT_EQ(reports[1].statusPos, 1.0f);

    // The twelfth report, sent after row 10, is answered 4: rows 0 to 10 stay painted, no more follow.
    host.statTick = 0;
    host.ClearLog();
    PaintEverywhere(1000, data().flareRect);
    host.FailCall(kHostStatus, 12, kUserCanceled);
    EXPECT_EQ(Generate(frame.data(), 24, 0, 0, 4, 400, 48), kUserCanceled);
    reports = Reports();
    ASSERT_EQ(reports.size(), 12u);
    EXPECT_EQ(reports[10].statusValue, 10);   // the refused report itself is logged without its values
    uint16_t row10, row11;
    std::memcpy(&row10, frame.data() + 10 * 24 + 18, 2);
    std::memcpy(&row11, frame.data() + 11 * 24, 2);
    EXPECT_EQ(row10, 1000);
    EXPECT_EQ(row11, 0);
}
