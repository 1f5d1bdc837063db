#pragma once

#include <atomic>

#include "platform/system/heap.h"
#include "platform/system/string.h"

namespace Libraries::Files::Hive {

/// The name of a key or value: read without a lock by any thread, replaced under the hive's monitor. A name
/// that was replaced is kept as long as the slot, so that a reader that has just picked it up still finds it
/// there.
class NameSlot {
 public:
    /// The name; null when there is none.
    Platform::Ref<Platform::String> get() const {
        return Platform::Ref<Platform::String>(_current.load(std::memory_order_acquire));
    }
    void set(Platform::Ref<Platform::String> name) {
        if (_name) _replaced.push_back(_name);
        _name = name;
        _current.store(name.get(), std::memory_order_release);
    }

 private:
    std::atomic<Platform::String*> _current{nullptr};
    Platform::Ref<Platform::String> _name;
    Platform::Array<Platform::Ref<Platform::String>> _replaced;
};

}  // namespace Libraries::Files::Hive
