#include "platform/system/proc.h"

#include <unistd.h>

#include <mutex>

#include "platform/system/heap.h"

namespace Platform {

namespace {

// Re-entrant, since initialisation code may need what other initialisation code makes; never destroyed, since
// other threads may still run while the process ends.
std::recursive_mutex& initMutex() {
    static Immortal<std::recursive_mutex> mutex;
    return mutex.object;
}

}  // namespace

void Proc::exit(int code) {
    ::_exit(code);
}

void InitCode::lock() {
    initMutex().lock();
}

void InitCode::unlock() {
    initMutex().unlock();
}

}  // namespace Platform
