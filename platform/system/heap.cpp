#include "platform/system/heap.h"

#include <cstdlib>
#include <exception>

#include "platform/iochar/stdio.h"
#include "platform/system/proc.h"

namespace Platform {

void* Heap::alloc(u64 bytes) {
    if (bytes > PTRDIFF_MAX) return nullptr;
    return std::malloc(bytes ? static_cast<std::size_t>(bytes) : 1);
}

void Heap::free(void* buffer) {
    std::free(buffer);
}

void outOfMemory() {
    try {
        const Ref<CharWriter> writer = StdIO::stdOutWriter();
        writer->write(u"out of memory");
        writer->flush();
    } catch (const std::exception&) {
        // Not even the few bytes for the message are left: the exit code has to do.
    }
    Proc::exit(1);
}

}  // namespace Platform
