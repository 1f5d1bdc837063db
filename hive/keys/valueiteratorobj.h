#pragma once

#include "hive/keys/listposition.h"

namespace Libraries::Files::Hive {

class KeyObj;

/// A position in a key's list of values. Keeps the key.
class ValueIteratorObj final : public ValueIterator, public Object {
 public:
    explicit ValueIteratorObj(Ref<KeyObj> key);

    u32 seek(u32 position) override;
    u32 count() override;
    Ref<Value> next() override;

    void insertedAt(u32 index) { _position.insertedAt(index); }
    void removedAt(u32 index) { _position.removedAt(index); }

 private:
    const Ref<KeyObj> _key;
    ListPosition _position;
};

}  // namespace Libraries::Files::Hive
