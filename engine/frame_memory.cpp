#include "engine/frame_memory.h"

#include <malloc.h>
#include <sys/mman.h>

#include <cstdint>

namespace vellux::engine {

namespace {

constexpr uintptr_t kHugePage = uintptr_t(2) << 20;

}  // namespace

void AdviseFrameMemory(void* data, size_t bytes) {
    const uintptr_t begin = (reinterpret_cast<uintptr_t>(data) + kHugePage - 1) & ~(kHugePage - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(data) + bytes) & ~(kHugePage - 1);
    if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);   // a refusal changes nothing
}

void KeepFrameMemory() {
    constexpr int kFrameBlock = 64 << 20;
    mallopt(M_MMAP_THRESHOLD, kFrameBlock);
    mallopt(M_TRIM_THRESHOLD, 2 * kFrameBlock);
}

}  // namespace vellux::engine
