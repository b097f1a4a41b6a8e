// The system tick counter: sixtieths of a second from an arbitrary start, from a monotonic clock.
#ifndef VELLUX_KIT_TICKS_H
#define VELLUX_KIT_TICKS_H

#include <cstdint>

uint32_t TickCount();

#endif  // VELLUX_KIT_TICKS_H
