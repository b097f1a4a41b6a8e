// Rounding to pixel positions and the row-by-row stepping of quadrilateral edges.
#include <gtest/gtest.h>

#include <limits>
#include <tuple>

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

TEST(ScanSpans, EdgesStepAcrossGapsAndEndOnTheirLastRow) {
    Quad rows(0, kSlanted), late(0, kSlanted), gap(0, kSlanted);
    for (int32_t y = 11; y < 14; ++y) ASSERT_TRUE(std::get<0>(rows.Slice(y)));
    EXPECT_EQ(rows.Slice(14), Span(true, 13, 22));   // crossings 12.0 and 22.0
    // First sliced three rows below its first row: where the row-by-row edge is, not a step behind.
    EXPECT_EQ(late.Slice(14), Span(true, 13, 22));
    for (const Quad* q : {&rows, &late})
        EXPECT_EQ(std::tie(q->e[0].y1, q->e[0].curXPos, q->e[0].xPos), std::make_tuple(14, 12, 12.5f));
    // Running, last used on row 11, next on row 15: three steps before use, one after.
    EXPECT_EQ(gap.Slice(11), Span(true, 11, 20));
    EXPECT_EQ(gap.Slice(15), Span(true, 13, 22));   // crossings 12.5 and 22.5
    EXPECT_EQ(std::tie(gap.e[0].y1, gap.e[0].xPos), std::make_tuple(15, 13.0f));
    // Used on its last row, then inactive and skipped.
    EXPECT_EQ(gap.Slice(30), Span(true, 21, 30));
    EXPECT_EQ(std::tie(gap.e[0].y1, gap.e[2].y1), std::make_tuple(32767, 32767));
    EXPECT_EQ(gap.Slice(31), kNoSpan);
    // A running edge skipped past its last row drops out without taking part.
    EXPECT_EQ(rows.Slice(40), kNoSpan);
    EXPECT_EQ(rows.e[0].y1, 32767);
}
