#include "sketch.h"

#include <cmath>

#include "generate.h"
#include "kit/rect.h"

namespace {
constexpr float kTwoPi = 6.2831853f;
// Outlines are plotted point by point; a ring larger than any buffer gets no more points than a
// buffer could show.
constexpr float kMostSegments = 1048576.0f;
}  // namespace

void SketchRing(const VelluxBuffer* theBuffer, const RingElement* theRing) {
    const L_Rect& rect = theBuffer->bufferRect;
    const float xc = theRing->ringXPos - float(rect.left);
    const float yc = theRing->ringYPos - float(rect.top);
    const float xr = std::fabs(theRing->ringXRadius);
    const float yr = std::fabs(theRing->ringYRadius);
    const float around = (xr > yr ? xr : yr) * kTwoPi;
    if (!(around < kMostSegments)) return;
    int32_t n = int32_t(around) + 1;
    if (n < 4) n = 4;
    const float step = kTwoPi / float(n);
    const float width = float(rect.width), height = float(rect.height);
    float angle = 0.0f;
    for (int32_t i = 0; i <= n; ++i, angle = angle + step) {
        const float x = std::sin(angle) * xr + xc;
        const float y = std::cos(angle) * yr + yc;
        if (x >= 0.0f && y >= 0.0f && x < width && y < height)
            theBuffer->bufferBase[int64_t(theBuffer->bufferRowBytes) * int32_t(y) + int32_t(x)] =
                uint8_t(theBuffer->bufferIndex);
    }
}

void SketchFlare(PluginDataRec* theData, bool statusFlag, int32_t* result) {
    const VelluxBuffer& buffer = theData->flarePixelBuffer;
    const int32_t count = theData->flareRingCount;
    if (statusFlag) {
        PrepareSketchStatus(theData);
        CheckStatus(theData, result);
    }
    const RingElement* ring = RingAt(theData, theData->flareRingFirst);
    for (int32_t i = 0; i < count && ring != nullptr && *result == kNoError; ring = RingAt(theData, ring->ringNext)) {
        L_Rect overlap;
        if (SectLRect(&buffer.bufferRect, &ring->ringRect, &overlap) != 0) SketchRing(&buffer, ring);
        ++i;
        if (statusFlag && StatusTime(theData)) UpdateStatus(theData, float(i) / float(count), i, result);
    }
    if (statusFlag) UpdateStatus(theData, 1.0f, count, result);
}
