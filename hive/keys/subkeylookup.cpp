#include "hive/hivelog.h"
#include "hive/keys/keyobj.h"

namespace Libraries::Files::Hive {

Ref<KeyObj> KeyObj::key(u32 index) {
    const MonGuard guard(_hive->mon());
    if (!_valid || index >= _numOfKeys || !initSubkeys()) return nullptr;
    assertCondition(_keyList.size() == _numOfKeys, "_keyList.size() == _numOfKeys",
                    "Libraries::Files::Hive::KeyObj::key");
    if (index >= _keyList.size()) return nullptr;
    SubkeyEntry& entry = _keyList.at(index);
    if (Ref<KeyObj> live = entry.key.lock()) return live;
    auto built = makeRef<KeyObj>(_hive, entry.record, Ref<KeyObj>(this));
    if (built->valid())
        entry.key = WeakRef<KeyObj>(built);
    else
        log(3, Channel::hive, "New created KeyObj not valid");
    return built;
}

Ref<Key> KeyObj::key(Ref<String> name) {
    const MonGuard guard(_hive->mon());
    if (!_valid) return nullptr;
    if (!name) {
        Error::set(ErrorCode::nullArgument);
        return nullptr;
    }
    return binaryFindKey(name, nullptr);
}

Ref<Key> KeyObj::binaryFindKey(const Ref<String>& name, u32* position) {
    constexpr auto function = "Libraries::Files::Hive::KeyObj::binaryFindKey";
    u32 unwanted = 0;
    u32& place = position ? *position : unwanted;
    const auto missing = [&place](u32 insertAt) {
        place = insertAt;
        Error::set(ErrorCode::noSuchKey);
        return Ref<Key>();
    };
    if (_numOfKeys == 0) return missing(0);
    place = NO_INDEX;
    u32 min = 0;
    u32 max = _numOfKeys - 1;
    u32 mid = max / 2;
    for (;;) {
        const Ref<KeyObj> other = key(mid);
        if (!other || !other->valid()) {
            log(3, Channel::hive, "Failed to open sub key for binary search. key: ", mid);
            return nullptr;
        }
        Ref<String> otherName = other->name();
        if (!otherName) otherName = String::create();
        if (otherName->isEmpty() && (_hive->mode() & HiveFile::modeLinearFallback)) {
            log(3, Channel::hive, "Can't get name of other key for binary search, using linear fallback");
            return linearFindKey(name, position);
        }
        const int order = otherName->compareUpper(name);
        if (order == 0) {
            place = mid;
            return other;
        }
        assertCondition(mid >= min && mid <= max, "mid >= min && mid <= max", function);
        if (order < 0) {
            if (mid == max) return missing(max + 1);
            assertCondition(min != max, "min != max", function);
            min = mid + 1;
        } else {
            if (mid == min) return missing(min);
            assertCondition(min != max, "min != max", function);
            max = mid - 1;
        }
        assertCondition(min <= max, "min <= max", function);
        mid = min + (max - min) / 2;
    }
}

Ref<Key> KeyObj::linearFindKey(const Ref<String>& name, u32* position) {
    if (!_valid) return nullptr;
    for (u32 i = 0; i < _numOfKeys; ++i) {
        const Ref<KeyObj> other = key(i);
        if (!other || !other->valid()) {
            log(3, Channel::hive, "Failed to get key with index: ", i);
            if (!_subkeysLoaded) break;  // no list, whatever number of subkeys the record claims
            continue;
        }
        const Ref<String> otherName = other->name();
        if (!otherName || !otherName->equalUpper(name)) continue;
        if (position) *position = i;
        return other;
    }
    if (position) *position = NO_INDEX;
    Error::set(ErrorCode::noSuchKey);
    return nullptr;
}

}  // namespace Libraries::Files::Hive
