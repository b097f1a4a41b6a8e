#include "pixels.h"

namespace {
int32_t Held(double value, int32_t top) {
    if (!(value > 0.0)) return 0;
    return value >= double(top) ? top : int32_t(value);
}
}  // namespace

int32_t RingCeiling48(double dissolve) { return Held(16320.0 * (1.0 - dissolve), 65535); }
int32_t StreakCeiling48(float intensity) { return Held(double(intensity), 65535); }
int32_t Ceiling32(double dissolve) { return Held(255.0 * (1.0 - dissolve), 255); }
