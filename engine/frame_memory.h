// Memory for whole frames. A frame's buffer is tens of megabytes, touched once per frame; where
// the kernel grants huge pages only on request (transparent huge pages in "madvise" mode), asking
// for them turns a 1080p frame's thousands of page faults into a few dozen. The advice changes
// how memory is mapped, never what it holds.
#ifndef VELLUX_ENGINE_FRAME_MEMORY_H
#define VELLUX_ENGINE_FRAME_MEMORY_H

#include <cstddef>
#include <memory>

namespace vellux::engine {

// Asks for huge pages for the whole 2 MiB pages inside [data, data + bytes); best effort, before
// the memory is first touched. Smaller blocks are left alone.
void AdviseFrameMemory(void* data, size_t bytes);

// Asks the C library to keep freed blocks up to a 1080p float RGBA frame's size in its heap for
// the next frame, instead of handing each back to the system and faulting fresh pages in for the
// next (that costs more than the plug-in's painting of a 1080p frame). It is process-wide: a front
// end that owns its process (the tool) or renders frame after frame in it (the Python module)
// calls it once.
void KeepFrameMemory();

// An allocator for frame-sized vectors: std::allocator's memory, advised as above.
template <typename T>
struct FrameAllocator {
    using value_type = T;
    FrameAllocator() = default;
    template <typename U>
    FrameAllocator(const FrameAllocator<U>&) {}
    T* allocate(size_t count) {
        T* data = std::allocator<T>().allocate(count);
        AdviseFrameMemory(data, count * sizeof(T));
        return data;
    }
    void deallocate(T* data, size_t count) { std::allocator<T>().deallocate(data, count); }
    template <typename U>
    bool operator==(const FrameAllocator<U>&) const { return true; }
    template <typename U>
    bool operator!=(const FrameAllocator<U>&) const { return false; }
};

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_FRAME_MEMORY_H
