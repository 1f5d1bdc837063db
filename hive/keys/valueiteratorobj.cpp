#include "hive/keys/valueiteratorobj.h"

#include "hive/keys/keyobj.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

ValueIteratorObj::ValueIteratorObj(Ref<KeyObj> key) : _key(std::move(key)) {}

u32 ValueIteratorObj::seek(u32 position) {
    return _position.seek(position, count());
}

u32 ValueIteratorObj::count() {
    return _key->values();
}

Ref<Value> ValueIteratorObj::next() {
    const MonGuard guard(_key->hive()->monitor());
    u32 index = 0;
    return _position.take(count(), index) ? Ref<Value>(_key->value(index)) : nullptr;
}

}  // namespace Libraries::Files::Hive
