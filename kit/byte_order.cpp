#include "byte_order.h"

void ReverseField(void* field, int32_t size) {
    auto* bytes = static_cast<unsigned char*>(field);
    for (int32_t low = 0, high = size - 1; low < high; ++low, --high) {
        unsigned char swap = bytes[low];
        bytes[low] = bytes[high];
        bytes[high] = swap;
    }
}
