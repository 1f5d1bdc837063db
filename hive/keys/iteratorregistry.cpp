#include "hive/keys/keyiteratorobj.h"
#include "hive/keys/keyobj.h"
#include "hive/keys/valueiteratorobj.h"

namespace Libraries::Files::Hive {

namespace {

/// Registers an iterator, to be moved along when entries come or go, in the first entry whose iterator is
/// gone, so that a key that is enumerated again and again does not grow.
template <typename Iterator>
void registerIterator(Array<WeakRef<Iterator>>& registry, const Ref<Iterator>& iterator) {
    for (WeakRef<Iterator>& entry : registry) {
        if (entry.lock()) continue;
        entry = WeakRef<Iterator>(iterator);
        return;
    }
    registry.push_back(WeakRef<Iterator>(iterator));
}

}  // namespace

Ref<KeyIterator> KeyObj::keyIterator() {
    if (!_valid) return nullptr;
    const MonGuard guard(_hive->monitor());
    auto iterator = makeRef<KeyIteratorObj>(Ref<KeyObj>(this));
    if (!_readOnly) registerIterator(_keyIterators, iterator);
    return iterator;
}

Ref<ValueIterator> KeyObj::valueIterator() {
    if (!_valid) return nullptr;
    const MonGuard guard(_hive->monitor());
    auto iterator = makeRef<ValueIteratorObj>(Ref<KeyObj>(this));
    if (!_readOnly) registerIterator(_valueIterators, iterator);
    return iterator;
}

}  // namespace Libraries::Files::Hive
