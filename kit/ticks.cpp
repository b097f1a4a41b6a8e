#include "ticks.h"

#include <time.h>

uint32_t TickCount() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    // Wraps after about two years of uptime; the pacing compares ticks a few seconds apart.
    return uint32_t(uint64_t(now.tv_sec) * 60u + uint64_t(now.tv_nsec) * 60u / 1000000000u);
}
