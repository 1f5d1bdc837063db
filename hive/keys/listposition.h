#pragma once

#include <algorithm>
#include <atomic>

#include "hive/base.h"

namespace Libraries::Files::Hive {

/// Where an iterator stands in a key's list: the index of the entry to return next. The key moves it along
/// when entries before it come or go, also from another thread. That happens under the hive's monitor, which
/// `take` and the reading of the entry REQUIRE as well, so that no entry is passed over or returned twice;
/// `seek` needs none.
class ListPosition {
 public:
    /// Moves to `position`, at most to `count`; returns where it stands then.
    u32 seek(u32 position, u32 count) { return _position = std::min(position, count); }
    /// Gives the index to return and moves on; false at the end.
    bool take(u32 count, u32& index) {
        index = _position;
        if (index >= count) return false;
        ++_position;
        return true;
    }
    /// An entry was inserted at, or removed from, this index of the list.
    void insertedAt(u32 index) {
        for (u32 at = _position; index <= at && !_position.compare_exchange_weak(at, at + 1);) {
        }
    }
    void removedAt(u32 index) {
        for (u32 at = _position; index < at && !_position.compare_exchange_weak(at, at - 1);) {
        }
    }

 private:
    std::atomic<u32> _position{0};
};

}  // namespace Libraries::Files::Hive
