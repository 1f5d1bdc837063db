#pragma once

#include <atomic>

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#define PLATFORM_SINGLE_THREADED (__libc_single_threaded != 0)
#else
#define PLATFORM_SINGLE_THREADED false
#endif

#include "platform/system/types.h"

namespace Platform {

/// Whether this is the process's only thread: then nothing has to be done in one step for others to see. Once
/// false it may become true again only after all other threads have ended.
inline bool onlyThread() {
    return PLATFORM_SINGLE_THREADED;
}

/// A count of references. Objects are counted so often that a thread which is alone goes without the cost of
/// atomic changes, several times that of plain ones.
class RefCounter {
 public:
    explicit RefCounter(u32 count) : _count(count) {}

    void increment() {
        if (onlyThread())
            _count.store(_count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        else
            _count.fetch_add(1, std::memory_order_relaxed);
    }
    /// Whether that was the last one.
    bool decrement() {
        if (!onlyThread()) return _count.fetch_sub(1, std::memory_order_acq_rel) == 1;
        const u32 left = _count.load(std::memory_order_relaxed) - 1;
        _count.store(left, std::memory_order_relaxed);
        return left == 0;
    }
    /// The count; others may be changing it.
    u32 value() const { return _count.load(std::memory_order_relaxed); }
    /// Counts one more unless there are none; whether it did.
    bool incrementIfAny() {
        u32 count = _count.load(std::memory_order_relaxed);
        while (count != 0)
            if (_count.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) return true;
        return false;
    }

 private:
    std::atomic<u32> _count;
};

}  // namespace Platform
