#include "scan_conversion.h"

#include <cmath>

namespace {

// Truncation toward zero of any float, NaN and infinities included, held where the clamps below
// put it anyway: a plain conversion of a float beyond the 32-bit range would be undefined.
int32_t TruncateClamped(float n) {
    if (!(n > -65536.0f)) return -65536;    // also NaN
    if (n > 65536.0f) return 65536;
    return int32_t(n);
}

void Deactivate(VXEdgeRecord* edge) { edge->y1 = kScanLimit; }

// Steps an edge to row y, where it takes part, and widens the span by its column.
void UseEdge(VXEdgeRecord* edge, int32_t y, int32_t* left, int32_t* right) {
    if (edge->curXPos < *left) *left = edge->curXPos + 1;
    if (edge->curXPos > *right) *right = edge->curXPos;
    if (edge->y2 == y) {
        Deactivate(edge);
        return;
    }
    edge->xPos = edge->step + edge->xPos;
    edge->curXPos = ITrunc(edge->xPos);
    edge->y1 = y;
}

}  // namespace

int32_t ITrunc(float n) {
    const int32_t t = TruncateClamped(n);
    if (t <= -kScanLimit) return -kScanLimit;
    if (t >= kScanLimit) return kScanLimit;
    return float(t) > n ? t - 1 : t;
}

int32_t TruncHi(float n) { return ITrunc(n); }

int32_t TruncLo(float n) {
    const int32_t t = TruncateClamped(n);
    if (t <= -32768) return -kScanLimit;
    if (t >= 32766) return kScanLimit;
    return float(t) > n ? t : t + 1;
}

void SetEdge(EdgePtr theEdge, int32_t theTop, float xp1, float yp1, float xp2, float yp2, int32_t* xMin,
             int32_t* yMin, int32_t* xMax, int32_t* yMax) {
    const int32_t x1 = xp2 > xp1 ? TruncLo(xp1) : TruncLo(xp2);
    const int32_t x2 = xp2 > xp1 ? TruncHi(xp2) : TruncHi(xp1);
    if (x1 < *xMin) *xMin = x1;
    if (x2 > *xMax) *xMax = x2;
    const bool forward = yp2 >= yp1;
    const float startX = forward ? xp1 : xp2, startY = forward ? yp1 : yp2;
    const float endX = forward ? xp2 : xp1, endY = forward ? yp2 : yp1;
    theEdge->y1 = TruncLo(startY);
    theEdge->y2 = TruncHi(endY);
    if (theEdge->y1 < *yMin) *yMin = theEdge->y1;
    if (theEdge->y2 > *yMax) *yMax = theEdge->y2;
    if (theEdge->y2 < theTop || theEdge->y2 < theEdge->y1) {
        Deactivate(theEdge);
        return;
    }
    if (theEdge->y1 < theTop) theEdge->y1 = theTop;
    theEdge->step = (endX - startX) / (endY - startY);
    theEdge->xPos = (float(theEdge->y1) - startY) * theEdge->step + startX;
    // The edge is set up, not yet running: its first slice places it exactly, on whichever row
    // that slice comes (a band may start below the edge's first row). Sliced on its first row, it
    // takes the column of xPos there, as a running edge would.
    theEdge->curXPos = kEdgeSetUp;
}

bool SliceEdges(const L_Rect* theRect, int32_t y, EdgePtr edges, int32_t* edgeLeft, int32_t* edgeRight) {
    *edgeLeft = theRect->right;
    *edgeRight = theRect->left - 1;
    for (int i = 0; i < 4; ++i) {
        VXEdgeRecord* edge = &edges[i];
        // The inactive marker is also a row number: on rows from 32767 on it must still read inactive.
        if (edge->y1 == kScanLimit) continue;
        const int64_t delta = int64_t(y) - edge->y1;
        if (delta < 0) continue;
        if (edge->curXPos == kEdgeSetUp) {
            if (edge->y2 < y) {
                Deactivate(edge);
                continue;
            }
            if (delta > 0) edge->xPos = float(delta) * edge->step + edge->xPos;
            edge->curXPos = ITrunc(edge->xPos);
        } else if (delta > 1) {
            if (edge->y2 < y) {
                Deactivate(edge);
                continue;
            }
            edge->xPos = float(delta - 1) * edge->step + edge->xPos;
            edge->curXPos = ITrunc(edge->xPos);
        }
        UseEdge(edge, y, edgeLeft, edgeRight);
    }
    if (*edgeLeft < theRect->right && *edgeRight >= theRect->left && *edgeLeft <= *edgeRight) {
        if (*edgeLeft < theRect->left) *edgeLeft = theRect->left;
        if (*edgeRight >= theRect->right) *edgeRight = theRect->right - 1;
        return true;
    }
    *edgeLeft = kScanLimit;
    *edgeRight = -kScanLimit;
    return false;
}
