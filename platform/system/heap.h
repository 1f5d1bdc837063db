#pragma once

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "platform/system/export.h"
#include "platform/system/types.h"

namespace Platform {

/// The platform heap. Where there is no memory, one of two things happens, and never an exception:
/// - what is asked for by `alloc` or `ShMem::create` (caches, record bodies, stored names) makes the
/// operation
///   fail as it documents;
/// - objects, strings and growable arrays, which come from `mustAlloc`, end the process by `outOfMemory`:
///   without them there is no consistent state to go on from.
class PLATFORM_API Heap {
 public:
    /// A plain byte buffer, which its owner releases with `free`; null when there is no memory.
    static void* alloc(u64 bytes);
    /// The same, but ends the process when there is no memory.
    static void* mustAlloc(u64 bytes);
    static void free(void* buffer) { std::free(buffer); }

    /// For tests: of the allocations from now on, shared memory included, the `call`-th fails (from 1; 0:
    /// none), and those behind it too when `lasting`. Thread-safe.
    static void failAt(u64 call, bool lasting = false);
    /// For tests: how many allocations are left up to the one that fails; 0 when none will.
    static u64 callsToFailure() { return _failAt.load(std::memory_order_relaxed); }
    /// Whether the allocation at hand is to fail. Costs one relaxed load when nothing was asked to.
    static bool refuses() { return _failAt.load(std::memory_order_relaxed) != 0 && countDown(); }

 private:
    static bool countDown();

    static std::atomic<u64> _failAt;
    static std::atomic<bool> _lasting;
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

/// Allocator of the growable internal arrays.
template <typename T>
struct ArrayAllocator {
    using value_type = T;
    ArrayAllocator() = default;
    template <typename U>
    explicit ArrayAllocator(const ArrayAllocator<U>&) {}

    T* allocate(std::size_t count) {
        if (count > SIZE_MAX / sizeof(T)) outOfMemory();
        return static_cast<T*>(Heap::mustAlloc(count * sizeof(T)));
    }
    void deallocate(T* memory, std::size_t) { Heap::free(memory); }
    bool operator==(const ArrayAllocator&) const = default;
};

/// A growable internal array.
template <typename T>
using Array = std::vector<T, ArrayAllocator<T>>;

/// Text in the making: UTF-16 units, or bytes.
using Utf16Buffer = std::basic_string<char16_t, std::char_traits<char16_t>, ArrayAllocator<char16_t>>;
using CharBuffer = std::basic_string<char, std::char_traits<char>, ArrayAllocator<char>>;

/// Holds something that is never destroyed: what other objects may use to the very end of the process.
template <typename T>
union Immortal {
    template <typename... Args>
    explicit Immortal(Args&&... args) : object(std::forward<Args>(args)...) {}
    ~Immortal() {}
    T object;
};

}  // namespace Platform
