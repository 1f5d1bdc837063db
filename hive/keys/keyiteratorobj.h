#pragma once

#include "hive/keys/listposition.h"

namespace Libraries::Files::Hive {

class KeyObj;

/// A position in a key's list of subkeys. Keeps the key.
class KeyIteratorObj final : public KeyIterator, public Object {
 public:
    explicit KeyIteratorObj(Ref<KeyObj> key);

    u32 seek(u32 position) override;
    u32 count() override;
    Ref<Key> next() override;

    void insertedAt(u32 index) { _position.insertedAt(index); }
    void removedAt(u32 index) { _position.removedAt(index); }

 private:
    const Ref<KeyObj> _key;
    ListPosition _position;
};

}  // namespace Libraries::Files::Hive
