#pragma once

#include <mutex>

#include "platform/system/object.h"

namespace Platform {

/// A re-entrant monitor: the thread that holds it may enter it again.
class PLATFORM_API Mon final : public Object {
 public:
    static Ref<Mon> create();
    void enter() { _mutex.lock(); }
    void leave() { _mutex.unlock(); }

 private:
    std::recursive_mutex _mutex;
};

/// Holds a monitor, and the monitor's object, for the length of a scope.
class MonGuard {
 public:
    explicit MonGuard(Ref<Mon> mon) : _mon(std::move(mon)) { _mon->enter(); }
    ~MonGuard() { _mon->leave(); }
    MonGuard(const MonGuard&) = delete;
    MonGuard& operator=(const MonGuard&) = delete;

 private:
    Ref<Mon> _mon;
};

}  // namespace Platform
