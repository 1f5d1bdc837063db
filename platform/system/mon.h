#pragma once

#include <atomic>
#include <thread>

#include "platform/system/counter.h"
#include "platform/system/object.h"

namespace Platform {

/// A re-entrant monitor: the thread that holds it may enter it again, at hardly any cost.
class PLATFORM_API Mon final : public Object {
 public:
    static Ref<Mon> create();
    void enter() {
        const auto self = std::this_thread::get_id();
        // Nobody but this thread itself puts its id there or takes it away.
        if (_owner.load(std::memory_order_relaxed) == self) {
            ++_again;
            return;
        }
        lock();
        _owner.store(self, std::memory_order_relaxed);
    }
    void leave() {
        if (_again) {
            --_again;
            return;
        }
        _owner.store({}, std::memory_order_relaxed);
        unlock();
    }

 private:
    // Whether it is held, and whether others wait for it.
    enum State : u32 { isFree, isHeld, isAwaited };

    // A thread that is alone needs no atomic steps.
    // Others that start while it holds the monitor find it held.
    void lock() {
        u32 expected = isFree;
        if (onlyThread() && _state.load(std::memory_order_relaxed) == isFree)
            _state.store(isHeld, std::memory_order_relaxed);
        else if (!_state.compare_exchange_strong(expected, isHeld, std::memory_order_acquire))
            await();
    }
    void await();
    void unlock() {
        if (onlyThread())
            _state.store(isFree, std::memory_order_relaxed);
        else if (_state.exchange(isFree, std::memory_order_release) == isAwaited)
            _state.notify_one();
    }

    std::atomic<u32> _state{isFree};
    std::atomic<std::thread::id> _owner{};
    u32 _again = 0;  // how many times the owner has entered besides the first; the owner's alone
};

/// Holds a monitor for the length of a scope.
class MonGuard {
 public:
    /// Holds the monitor's object too.
    explicit MonGuard(Ref<Mon> mon) : _kept(std::move(mon)), _mon(*_kept) { _mon.enter(); }
    /// REQUIRES: the monitor outlives the guard.
    explicit MonGuard(Mon& mon) : _mon(mon) { _mon.enter(); }
    ~MonGuard() { _mon.leave(); }
    MonGuard(const MonGuard&) = delete;
    MonGuard& operator=(const MonGuard&) = delete;

 private:
    const Ref<Mon> _kept;
    Mon& _mon;
};

}  // namespace Platform
