#pragma once

#include <atomic>

#include "hive/base.h"

namespace Libraries::Files::Hive {

class KeyObj;

/// A position in a key's list of values. The key that made it moves it along when its list changes.
class ValueIteratorObj final : public ValueIterator, public Object {
 public:
    explicit ValueIteratorObj(Ref<KeyObj> key);

    u32 seek(u32 position) override;
    u32 count() override;
    Ref<Value> next() override;

    /// An entry was inserted at, or removed from, this index of the key's list.
    void insertedAt(u32 index) {
        if (index <= _position) ++_position;
    }
    void removedAt(u32 index) {
        if (index < _position) --_position;
    }

 private:
    const Ref<KeyObj> _key;
    std::atomic<u32> _position{0};  // moved along by other threads too
};

}  // namespace Libraries::Files::Hive
