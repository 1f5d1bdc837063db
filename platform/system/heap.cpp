#include "platform/system/heap.h"

#include <unistd.h>

#include <cstdlib>

#include "platform/iochar/stdio.h"
#include "platform/system/proc.h"

namespace Platform {

constinit std::atomic<u64> Heap::_failAt{0};
constinit std::atomic<bool> Heap::_lasting{false};

void* Heap::alloc(u64 bytes) {
    if (bytes > PTRDIFF_MAX || refuses()) return nullptr;
    return std::malloc(bytes ? static_cast<std::size_t>(bytes) : 1);
}

void* Heap::mustAlloc(u64 bytes) {
    void* const memory = alloc(bytes);
    if (!memory) [[unlikely]]
        outOfMemory();
    return memory;
}

void Heap::failAt(u64 call, bool lasting) {
    _lasting.store(lasting, std::memory_order_relaxed);
    _failAt.store(call, std::memory_order_relaxed);
}

bool Heap::countDown() {
    u64 left = _failAt.load(std::memory_order_relaxed);
    do {
        if (left == 0 || (left == 1 && _lasting.load(std::memory_order_relaxed))) return left != 0;
    } while (!_failAt.compare_exchange_weak(left, left - 1, std::memory_order_relaxed));
    return left == 1;
}

void outOfMemory() {
    static constexpr std::string_view message = "out of memory";
    // Printing takes memory itself. When that fails too, and no writer can be had, the bare descriptor
    // serves.
    static thread_local bool again = false;
    if (!std::exchange(again, true)) {
        const Ref<CharWriter> writer = StdIO::stdOutWriter();
        writer->write(u"out of memory");
        writer->flush();
    } else {
        static_cast<void>(!::write(STDOUT_FILENO, message.data(), message.size()));
    }
    Proc::exit(1);
}

}  // namespace Platform
