// Rounding to pixel positions and the row-by-row stepping of quadrilateral edges.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>
#include <vector>

#include "kit/rect.h"
#include "plugin/scan_conversion.h"

namespace {

using Span = std::tuple<bool, int32_t, int32_t>;   // (not empty, left, right)
const Span kNoSpan{false, 32767, -32767};

struct Box {
    int32_t xMin = 32767, yMin = 32767, xMax = -32767, yMax = -32767;
};

// A quadrilateral from its corners, each side running to the next corner.
struct Quad {
    EdgeList e{};
    Box box;
    Quad(int32_t top, const float (&p)[4][2]) {
        for (int i = 0; i < 4; ++i)
            SetEdge(&e[i], top, p[i][0], p[i][1], p[(i + 1) % 4][0], p[(i + 1) % 4][1], &box.xMin, &box.yMin,
                    &box.xMax, &box.yMax);
    }
    Span Slice(int32_t y, int32_t l = -100, int32_t r = 100) {
        L_Rect rect;
        SetLRect(&rect, l, -100, r, 100);
        int32_t left, right;
        const bool ok = SliceEdges(&rect, y, e, &left, &right);
        return {ok, left, right};
    }
};

// Left side from (10, 10) to (20, 30), right side ten columns further: both 0.5 column per row.
const float kSlanted[4][2] = {{10, 10}, {20, 30}, {30, 30}, {20, 10}};

}  // namespace

TEST(ScanRounding, FloorAndFirstCoveredIntegerWithClamps) {
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    const std::tuple<float, int32_t, int32_t> cases[] = {   // n, ITrunc, TruncLo
        {2.5f, 2, 3},        {-2.5f, -3, -2},      {2.0f, 2, 3},          {-2.0f, -2, -1},
        {32765.0f, 32765, 32766}, {32766.0f, 32766, 32767}, {32767.0f, 32767, 32767}, {-32766.5f, -32767, -32766},
        {-32768.5f, -32767, -32767}, {1e30f, 32767, 32767}, {-1e30f, -32767, -32767}, {inf, 32767, 32767},
        {-inf, -32767, -32767}};
    for (auto [n, floor, first] : cases) {
        EXPECT_EQ(ITrunc(n), floor) << n;
        EXPECT_EQ(TruncHi(n), floor) << n;
        EXPECT_EQ(TruncLo(n), first) << n;
    }
    for (int32_t v : {ITrunc(nan), TruncLo(nan)}) EXPECT_TRUE(v >= -32767 && v <= 32767);
}

TEST(ScanEdges, SetEdgeTakesTheCoveredRowsAndWidensTheBox) {
    VXEdgeRecord e;
    Box b;
    SetEdge(&e, 0, 2.0f, 10.0f, 8.5f, 10.0f, &b.xMin, &b.yMin, &b.xMax, &b.yMax);   // horizontal: inactive
    EXPECT_EQ(e.y1, 32767);
    EXPECT_EQ(std::tie(b.xMin, b.yMin, b.xMax, b.yMax), std::make_tuple(3, 11, 8, 10));
    auto rows = [&](int32_t top, float ya, float yb) {
        SetEdge(&e, top, 0, ya, 0, yb, &b.xMin, &b.yMin, &b.xMax, &b.yMax);
        return std::pair{e.y1, e.y2};
    };
    EXPECT_EQ(rows(0, 10.0f, 20.0f), std::pair(11, 20));
    EXPECT_EQ(rows(0, 20.0f, 10.0f), std::pair(11, 20));   // given bottom to top
    EXPECT_EQ(rows(0, 10.5f, 20.5f), std::pair(11, 20));
    EXPECT_EQ(rows(0, 10.0f, 10.9f).first, 32767);        // no row
    EXPECT_EQ(rows(40, 10.0f, 20.0f).first, 32767);       // wholly above the top
    EXPECT_EQ(rows(12, 10.0f, 20.0f), std::pair(12, 20));  // first row just above the top: held at it
    Box fresh;
    SetEdge(&e, 15, 10, 10, 20, 30, &fresh.xMin, &fresh.yMin, &fresh.xMax, &fresh.yMax);   // begins above the top
    EXPECT_EQ(std::tie(e.y1, e.y2, e.step, e.xPos), std::make_tuple(15, 30, 0.5f, 12.5f));
    EXPECT_EQ(std::tie(fresh.xMin, fresh.yMin), std::make_tuple(11, 11));
}

TEST(ScanSpans, ColumnsBetweenCrossingsClippedToTheRectangle) {
    EXPECT_EQ(Quad(0, {{3, 0}, {3, 10}, {7, 10}, {7, 0}}).Slice(5), Span(true, 4, 7));
    Quad inner(0, {{3.2f, 0}, {3.2f, 10}, {6.8f, 10}, {6.8f, 0}});
    EXPECT_EQ(inner.Slice(5), Span(true, 4, 6));
    EXPECT_EQ(inner.Slice(6, 5, 6), Span(true, 5, 5));
    EXPECT_EQ(inner.Slice(7, 10, 20), kNoSpan);   // wholly right of the span
    EXPECT_EQ(inner.Slice(8, -20, 4), kNoSpan);   // wholly left
    EXPECT_EQ(Quad(0, {{3.2f, 0}, {3.2f, 10}, {3.8f, 10}, {3.8f, 0}}).Slice(5), kNoSpan);   // sliver
}

// However the rows are sliced (every row, single rows left out, a first slice below the edges'
// first row, a jump past their last), each sliced row gets the span the edges cross on it:
// left x = 10 + (y - 10) / 2, right ten columns further, on rows 11 to 30.
TEST(ScanSpans, EdgesStepOverLeftOutRowsAndEndOnTheirLastRow) {
    auto expected = [](int32_t y) {
        if (y < 11 || y > 30) return kNoSpan;
        const int32_t left = int32_t(std::floor(10.0 + (y - 10) / 2.0)) + 1;
        return Span(true, left, int32_t(std::floor(20.0 + (y - 10) / 2.0)));
    };
    const std::vector<std::vector<int32_t>> orders = {
        {5, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31},
        {11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31},   // one row left out each time
        {12, 14, 16, 18, 20, 22, 24, 26, 28, 30},       // first sliced one row below the first row
        {14, 15, 19, 30, 31},                           // three rows below, then gaps of three and ten
        {11, 40},                                       // past the last row: drops out unused
        {29, 31, 32}};                                  // over the last row
    for (const std::vector<int32_t>& rows : orders) {
        Quad q(0, kSlanted);
        for (int32_t y : rows) {
            SCOPED_TRACE(::testing::Message() << "row " << y << " of order starting " << rows.front());
            EXPECT_EQ(q.Slice(y), expected(y));
        }
    }
}
