#include "hive/keys/keyiteratorobj.h"

#include <algorithm>

#include "hive/keys/keyobj.h"

namespace Libraries::Files::Hive {

KeyIteratorObj::KeyIteratorObj(Ref<KeyObj> key) : _key(std::move(key)) {}

u32 KeyIteratorObj::seek(u32 position) {
    return _position = std::min(position, _key->keys());
}

u32 KeyIteratorObj::count() {
    return _key->keys();
}

Ref<Key> KeyIteratorObj::next() {
    if (_position >= count()) return nullptr;
    return _key->key(_position++);
}

}  // namespace Libraries::Files::Hive
