#include "hive/hivelog.h"
#include "hive/keys/keyiteratorobj.h"
#include "hive/keys/keyobj.h"
#include "hive/plainpath.h"

namespace Libraries::Files::Hive {

namespace {

/// The entries a list record of a type takes; 0 for a type there is none of.
u32 capacityOf(KeyListType type) {
    switch (type) {
        case keyListLF:
            return KeyObj::MAX_KEYS_LF_LIST;
        case keyListLH:
            return KeyObj::MAX_KEYS_LH_LIST;
        case keyListLI:
            return KeyObj::MAX_KEYS_LI_LIST;
        default:
            return 0;
    }
}

}  // namespace

bool KeyObj::ensureFreeListPlace(u32 position) {
    if (!initSubkeys()) return false;
    if (_keyList.sublists() == 0) {
        assertCondition(_numOfKeys == 0, "_numOfKeys == 0",
                        "Libraries::Files::Hive::KeyObj::ensureFreeListPlace");
        if (!createEmptyKeyList()) return false;
    }
    for (u64 cycle = 0; cycle <= MAX_FREE_FIND_LOOP_CYCLES; ++cycle) {
        const u32 j = _keyList.sublistForInsert(position);
        const u32 capacity = capacityOf(_listType);
        if (capacity == 0) {
            log(3, Channel::hive, "Invalid list type: ", static_cast<u32>(_listType));
            return false;
        }
        if (_keyList.sublist(j).entries.size() + 1 <= capacity) return true;
        // The misspelling is what log filters look for.
        if (cycle != 0)
            log(4, Channel::hive,
                "failed to pruduce a free entry in the first cycle, current cycle: ", cycle);
        if (!makeListPlace(j)) return false;
    }
    log(3, Channel::hive, "Failed to find produce a free entry, max cycles reached");
    return false;
}

/// One remedy for a full list record: conversion, a second level, a split.
bool KeyObj::makeListPlace(u32 j) {
    const char* failure = nullptr;
    if (_listType == keyListLF) {
        if (!convertLfToLiList()) failure = "Convert to LI list failed, key = ";
    } else if (!_twoLevelList && !addSecTreeLevel()) {
        failure = "Add second level failed, key = ";
    } else if (!splitRISublist(j)) {
        failure = "Split RI sublist failed, key = ";
    }
    if (failure) log(3, Channel::hive, failure, _recordOfs);
    return !failure;
}

bool KeyObj::insertKey(u32 position, u32 nkOffset, SubkeyHash hash, const Ref<KeyObj>& key) {
    if (!assertCondition(_keyList.sublists() > 0, "_tree.size() > 0",
                         "Libraries::Files::Hive::KeyObj::insertKey"))
        return false;
    const u32 j = _keyList.sublistForInsert(position);
    const Sublist& list = _keyList.sublist(j);
    if (position - list.start > list.entries.size()) {
        log(3, Channel::hive, "Invalid position for key, exceeds ond of list", "list=", j,
            "list size=", list.entries.size(), "pos=", position, "cur=", list.start,
            "_numOfKeys=", _numOfKeys.load());
        return false;
    }
    _keyList.insert(j, position, SubkeyEntry{nkOffset, hash, key ? WeakRef<KeyObj>(key) : WeakRef<KeyObj>()});
    _numOfKeys += 1;
    if (!rewriteSublist(j, "Libraries::Files::Hive::KeyObj::insertKey")) return false;
    _record.numOfKeys = HostToL32(_numOfKeys);
    setTopList(_keyListCell);
    return syncKeyRecord();
}

/// The index of the entry of this very object. It mostly is where it was when the object was built, or one
/// further after a move within the list; else its name leads to it, and only an entry out of its place is
/// searched for.
u32 KeyObj::indexOfKey(const Ref<KeyObj>& key, u32 skipIndex) {
    const auto isAt = [&](u32 index) {
        return index != skipIndex && index < _keyList.size() && _keyList.at(index).key.refersTo(key.get());
    };
    if (const u32 place = key->_place; !PLAIN_PATH && place != NO_INDEX) {
        if (isAt(place)) return place;
        if (isAt(place + 1)) return place + 1;
        const u32 error = Error::get();  // that of the search is nobody's
        const Ref<String> name = key->name();
        u32 index = NO_INDEX;
        const bool named = name && binaryFindKey(name->view(), &index);
        Error::set(error);
        if (named && isAt(index)) return index;
    }
    for (u32 j = 0; j < _keyList.sublists(); ++j) {
        const Sublist& list = _keyList.sublist(j);
        for (u32 i = list.start; i < list.end(); ++i)
            if (i != skipIndex && list.entries[i - list.start].key.refersTo(key.get())) return i;
    }
    return NO_INDEX;
}

bool KeyObj::unlinkKey(const Ref<KeyObj>& key, u32 skipIndex) {
    if (!canChange() || !initSubkeys()) return false;
    const u32 index = indexOfKey(key, skipIndex);
    if (index == NO_INDEX) return ErrorCode::fail(ErrorCode::wrongArgument);
    const u32 j = _keyList.sublistOf(index);
    _keyList.remove(j, index);
    if (_keyList.sublist(j).entries.empty()) {
        if (!removeEmptySublist(j)) return false;
    } else if (!rewriteSublist(j, "Libraries::Files::Hive::KeyObj::unlinkKey")) {
        return false;
    }
    _numOfKeys -= 1;
    _record.numOfKeys = HostToL32(_numOfKeys);
    setTopList(_keyListCell);
    for (const auto& weak : _keyIterators)
        if (const Ref<KeyIteratorObj> iterator = weak.lock()) iterator->removedAt(index);
    return syncKeyRecord();
}

/// Frees the record of a sublist that has become empty, and the ri record when at most one sublist is left
/// under it. With the last subkey the list field becomes 0, not 0xFFFFFFFF as that of a value list does:
/// readers of existing hives know both.
bool KeyObj::removeEmptySublist(u32 j) {
    constexpr auto function = "Libraries::Files::Hive::KeyObj::unlinkKey";
    if (!_hive->releaseRecord(_keyList.sublist(j).record)) return false;
    _keyList.removeSublist(j);
    if (_keyList.sublists() > 1) return syncRIList();
    const u32 left = _keyList.sublists() == 1 ? _keyList.sublist(0).record : 0;
    if (left == 0)
        assertCondition(_keyList.size() == 0, "_keyList.size() == 0", function);
    else if (!assertCondition(_keyList.size() == _keyList.sublist(0).entries.size(),
                              "_keyList.size() == _tree[0].numOfkeys", function))
        return false;
    if (_twoLevelList && !_hive->releaseRecord(_keyListCell)) return false;
    _twoLevelList = false;
    setTopList(left);
    return true;
}

}  // namespace Libraries::Files::Hive
