#pragma once

#include <memory>
#include <vector>

#include "platform/system/export.h"
#include "platform/system/types.h"

namespace Platform {

/// The platform heap for plain byte buffers. `alloc` gives null when there is no memory; whoever owns a
/// buffer releases it with `free`.
class PLATFORM_API Heap {
 public:
    static void* alloc(u64 bytes);
    static void free(void* buffer);
};

struct HeapFree {
    void operator()(u8* buffer) const { Heap::free(buffer); }
};
/// A heap buffer with its owner.
using HeapBuffer = std::unique_ptr<u8[], HeapFree>;

inline HeapBuffer heapBuffer(u64 bytes) {
    return HeapBuffer(static_cast<u8*>(Heap::alloc(bytes)));
}

/// Writes "out of memory" to the standard output and ends the process with exit code 1.
[[noreturn]] PLATFORM_API void outOfMemory();

/// Allocator of the growable internal arrays: running out of memory ends the process instead of throwing,
/// since an array that could not grow leaves no consistent state to go on from.
template <typename T>
struct ArrayAllocator {
    using value_type = T;
    ArrayAllocator() = default;
    template <typename U>
    explicit ArrayAllocator(const ArrayAllocator<U>&) {}

    T* allocate(std::size_t count) {
        if (count > SIZE_MAX / sizeof(T)) outOfMemory();
        void* memory = Heap::alloc(count * sizeof(T));
        if (!memory) outOfMemory();
        return static_cast<T*>(memory);
    }
    void deallocate(T* memory, std::size_t) { Heap::free(memory); }
    bool operator==(const ArrayAllocator&) const = default;
};

/// A growable internal array.
template <typename T>
using Array = std::vector<T, ArrayAllocator<T>>;

}  // namespace Platform
