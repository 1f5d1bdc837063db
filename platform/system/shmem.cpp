#include "platform/system/shmem.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

#include "platform/system/error.h"

namespace Platform {

SharedMemory::~SharedMemory() {
    ::munmap(_address, static_cast<std::size_t>(_reserved));
}

Ref<SharedMemory> ShMem::map(u64 size, int flags) {
    if (size == 0) {
        Error::set(Error::wrongArgument);
        return {};
    }
    const u64 page = static_cast<u64>(::sysconf(_SC_PAGESIZE));
    if (size > PTRDIFF_MAX - 2 * page || Heap::refuses()) {
        Error::setSystem(ENOMEM);
        return {};
    }
    const u64 usable = (size + page - 1) / page * page;
    const u64 reserved = usable + page;
    // Without a reservation, pages that are never touched cost nothing, so that caches may be made
    // generously.
    void* address = ::mmap(nullptr, static_cast<std::size_t>(reserved), PROT_READ | PROT_WRITE,
                           flags | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (address == MAP_FAILED) {
        Error::setSystem(errno);
        return {};
    }
    auto* const bytes = static_cast<u8*>(address);
    if (::mprotect(bytes + usable, static_cast<std::size_t>(page), PROT_NONE) != 0) {
        Error::setSystem(errno);
        ::munmap(address, static_cast<std::size_t>(reserved));
        return {};
    }
    return Ref<SharedMemory>(new SharedMemory(bytes, size, reserved));
}

Ref<SharedMemory> ShMem::create(u64 size) {
    return map(size, MAP_SHARED);
}

Ref<SharedMemory> ShMem::createPrivate(u64 size) {
    Ref<SharedMemory> memory = map(size, MAP_PRIVATE);
#ifdef MADV_HUGEPAGE
    if (memory) ::madvise(memory->address(), static_cast<std::size_t>(size), MADV_HUGEPAGE);
#endif
    return memory;
}

}  // namespace Platform
