// Integer scan conversion: rounding from float to pixel positions with a fixed clamp, and the
// edges of a quadrilateral stepped row by row into one pixel span per row.
//
// Sampling rule: an interval from a to b (a < b) covers the integers n with a < n <= b. A row n
// belongs to an edge from ya to yb when ya < n <= yb; a column to a span from xl to xr when
// xl < n <= xr. Every integer produced lies in -32767..32767; 32767 in y1 marks an inactive edge
// and an empty span is left 32767, right -32767.
#ifndef VELLUX_PLUGIN_SCAN_CONVERSION_H
#define VELLUX_PLUGIN_SCAN_CONVERSION_H

#include <cstdint>

#include "plugin_data.h"

constexpr int32_t kScanLimit = 32767;           // also the inactive marker of y1
constexpr int32_t kEdgeSetUp = INT32_MIN;       // curXPos of an edge never sliced yet

int32_t ITrunc(float n);    // floor(n), clamped
int32_t TruncHi(float n);   // the last integer an interval ending at n covers: floor(n), clamped
int32_t TruncLo(float n);   // the first integer an interval starting at n covers: floor(n) + 1, clamped

// Prepares the edge from (xp1, yp1) to (xp2, yp2) for stepping from row theTop on, and widens the
// caller's box (start it at 32767, 32767, -32767, -32767). Horizontal edges, edges covering no row
// and edges wholly above theTop become inactive, but still widen the box.
void SetEdge(EdgePtr theEdge, int32_t theTop, float xp1, float yp1, float xp2, float yp2, int32_t* xMin,
             int32_t* yMin, int32_t* xMax, int32_t* yMax);

// The span of row y of the quadrilateral `edges` (four records), clipped to theRect, as the
// inclusive columns *edgeLeft..*edgeRight; false when empty. Advances the edges in place: each row
// is sliced once, rows in increasing order (rows may be skipped).
bool SliceEdges(const L_Rect* theRect, int32_t y, EdgePtr edges, int32_t* edgeLeft, int32_t* edgeRight);

#endif  // VELLUX_PLUGIN_SCAN_CONVERSION_H
