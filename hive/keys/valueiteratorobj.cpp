#include "hive/keys/valueiteratorobj.h"

#include <algorithm>

#include "hive/keys/keyobj.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

ValueIteratorObj::ValueIteratorObj(Ref<KeyObj> key) : _key(std::move(key)) {}

u32 ValueIteratorObj::seek(u32 position) {
    return _position = std::min(position, _key->values());
}

u32 ValueIteratorObj::count() {
    return _key->values();
}

Ref<Value> ValueIteratorObj::next() {
    if (_position >= count()) return nullptr;
    return _key->value(_position++);
}

}  // namespace Libraries::Files::Hive
