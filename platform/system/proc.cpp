#include "platform/system/proc.h"

#include <unistd.h>

#include <mutex>

namespace Platform {

namespace {

// Re-entrant, since initialisation code may need what other initialisation code makes; never destroyed, since
// other threads may still run while the process ends.
std::recursive_mutex& initMutex() {
    static auto& mutex = *new std::recursive_mutex;
    return mutex;
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
