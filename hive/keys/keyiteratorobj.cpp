#include "hive/keys/keyiteratorobj.h"

#include "hive/keys/keyobj.h"

namespace Libraries::Files::Hive {

KeyIteratorObj::KeyIteratorObj(Ref<KeyObj> key) : _key(std::move(key)) {}

u32 KeyIteratorObj::seek(u32 position) {
    return _position.seek(position, count());
}

u32 KeyIteratorObj::count() {
    return _key->keys();
}

Ref<Key> KeyIteratorObj::next() {
    const MonGuard guard(_key->hive()->monitor());
    u32 index = 0;
    return _position.take(count(), index) ? Ref<Key>(_key->key(index)) : nullptr;
}

}  // namespace Libraries::Files::Hive
