// Byte reversal for records stored in the other byte order.
#ifndef VELLUX_KIT_BYTE_ORDER_H
#define VELLUX_KIT_BYTE_ORDER_H

#include <cstdint>

// Reverses the `size` bytes at `field` in place (a 2-, 4- or 8-byte number, or any run of bytes).
void ReverseField(void* field, int32_t size);

#endif  // VELLUX_KIT_BYTE_ORDER_H
