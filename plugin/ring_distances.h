// The distances of a run of ring pixels, the first half of the ring painter's work on a row.
//
// The pixels' horizontal offsets, already scaled by the ring's x factor, step along the run one
// float sum at a time: *dx is the first pixel's, *dx + xStep the next one's, and so on; *dx is
// left at the offset of the pixel after the run. For each pixel k the painter's 16.16 distance is
// sqrt(double(dx * dx + dySquared)) + 0.5, truncated; a pixel is reached when its squared
// distance lies below the table's end squared and its rounded root below the table's end.
// reached[k] is 1 for a reached pixel and 0 otherwise, and distances[k] holds a reached pixel's
// distance (what it holds for the others is not to be read). The answer counts the reached
// pixels and gives the first and the last of them: where the offsets step one way the squared
// distance falls and rises once along the run, so the reached pixels form one stretch.
//
// The arithmetic is the painter's own, operation for operation: float products and sums, then
// the correctly rounded square root in double. Where SSE2 is at hand pairs of pixels are worked
// at once (the packed square root rounds as the single one does); the scalar form is the
// reference the tests hold the packed one to, and the one used where SSE2 is not.
#ifndef VELLUX_PLUGIN_RING_DISTANCES_H
#define VELLUX_PLUGIN_RING_DISTANCES_H

#include <cstdint>

struct RingRowTerms {
    float xStep;        // the ring's x factor: the step of the offset from one pixel to the next
    float dySquared;    // (dy y factor)(y factor dy) of the row
    int32_t colors;     // entries in the ring's table, at least 1
};

struct RingReach {
    int32_t count;   // pixels reached
    int32_t first;   // the first and the last reached pixel's place in the run, when count > 0
    int32_t last;
};

// Distances through the packed path where it applies (SSE2, and a table whose end lies below
// 2^31 in 16.16), else through the scalar one.
RingReach RingDistances(float* dx, int32_t length, RingRowTerms terms, uint32_t* distances, uint8_t* reached);
RingReach RingDistancesScalar(float* dx, int32_t length, RingRowTerms terms, uint32_t* distances, uint8_t* reached);

#endif  // VELLUX_PLUGIN_RING_DISTANCES_H
