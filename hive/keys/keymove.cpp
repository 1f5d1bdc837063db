#include "hive/hivelog.h"
#include "hive/keys/keyiteratorobj.h"
#include "hive/keys/keyobj.h"
#include "hive/recordbuilder.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

bool KeyObj::move(Ref<Key> key, Ref<String> newName) {
    const MonGuard guard(_hive->monitor());
    if (!canChange()) return false;
    if (!newName) return ErrorCode::fail(ErrorCode::nullArgument);
    const Ref<KeyObj> moved = refCast<KeyObj>(key);
    if (!moved) return ErrorCode::fail(ErrorCode::wrongArgument);
    if (!canReceive(moved)) return false;
    if (!initSubkeys()) return ErrorCode::fail(ErrorCode::moveTargetUnreadable);
    u32 position = NO_INDEX;
    if (binaryFindKey(newName->view(), &position)) return ErrorCode::fail(ErrorCode::moveKeyExists);
    if (position == NO_INDEX) return ErrorCode::fail(ErrorCode::moveSearchFailed);
    if (!ensureFreeListPlace(position)) return false;
    SubkeyHash hash{};
    const u32 record = moved->setName(newName, _listType, hash, _recordOfs);
    if (record == INVALID_RECORD) {
        log(3, Channel::hive, "Failed to rename record");
        return false;
    }
    if (!insertKey(position, record, hash, moved)) {
        log(3, Channel::hive, "insertKey failed for move, newKey=", record, " current=", _recordOfs,
            " pos=", position);
        return false;
    }
    // Before the removal, in the order the list changes: within one parent a later index would be off by one.
    for (const auto& weak : _keyIterators)
        if (const Ref<KeyIteratorObj> iterator = weak.lock()) iterator->insertedAt(position);
    const Ref<KeyObj> oldParent = moved->parent();
    if (!oldParent->unlinkKey(moved, oldParent.get() == this ? position : NO_INDEX)) {
        log(3, Channel::hive, "unlinkKey failed for move, movedRec=", record);
        return false;
    }
    moved->setParent(Ref<KeyObj>(this));
    moved->_place = position;
    return true;
}

/// Whether a key may be moved under this one; false with the error code set.
bool KeyObj::canReceive(const Ref<KeyObj>& moved) const {
    if (moved->hive() != _hive) {
        log(3, Channel::hive, "Attempt to move a key form a different hive");
        return ErrorCode::fail(ErrorCode::wrongArgument);
    }
    if (!moved->parent()) {
        log(3, Channel::hive, "Attempt to move root key");
        return ErrorCode::fail(ErrorCode::moveRoot);
    }
    for (const KeyObj* ancestor = this; ancestor; ancestor = ancestor->_parent.get()) {
        // By record, since one key may have two objects.
        if (ancestor->_recordOfs != moved->_recordOfs) continue;
        log(3, Channel::hive, "Nested move");
        return ErrorCode::fail(ErrorCode::moveNested);
    }
    // A branch that does not go deeper needs no look: it was read where it is.
    u64 budget = _hive->hbinsSize() / sizeof(hive_record_nk);
    return _depth < moved->_depth || moved->fitsInto(MAX_KEY_DEPTH - _depth, budget) ||
           ErrorCode::fail(ErrorCode::treeTooDeep);
}

/// Whether the key and all below it take at most `levels` levels. `budget` ends the walk where a damaged file
/// names the same keys again and again.
bool KeyObj::fitsInto(u32 levels, u64& budget) {
    if (levels == 0 || budget-- == 0) return false;
    for (u32 i = 0; hasSubkey(i); ++i)  // not as many as the record claims: the list may be unreadable
        if (const Ref<KeyObj> child = key(i); child && child->valid() && !child->fitsInto(levels - 1, budget))
            return false;
    return true;
}

u32 KeyObj::setName(const Ref<String>& name, KeyListType listType, SubkeyHash& hash, u32 parentCell) {
    if (!canChange() || !initSubkeys()) return INVALID_RECORD;
    u64 nameLength = MAX_STORED_NAME;
    bool compressed = false;
    HeapBuffer storedName;
    if (name->length() <= MAX_KEY_NAME_LENGTH)
        storedName = _hive->stringToRegName(name, nameLength, compressed);
    if (!storedName) {
        Error::set(ErrorCode::badKeyName);
        return INVALID_RECORD;
    }
    if (listType != keyListLI && !makeHash(listType, name, hash, compressed, false)) {
        Error::set(ErrorCode::hashFailed);
        return INVALID_RECORD;
    }
    hive_record_nk nk = _record;
    const u32 otherFlags = L16ToHost(nk.flags) & ~u32{hive_record_nk::FLAG_COMPRESSED_NAME};
    nk.flags =
        HostToL16(static_cast<u16>(otherFlags | (compressed ? hive_record_nk::FLAG_COMPRESSED_NAME : 0)));
    nk.nameLength = HostToL16(static_cast<u16>(nameLength));
    nk.parent = HostToL32(parentCell);
    RecordBuilder record;
    record.putLayout(nk);
    record.put(storedName.get(), nameLength);
    const u32 oldCell = _recordOfs;
    const u32 cell = _hive->resizeRecord(oldCell, record.recordSize(), false, nullptr, false);
    if (cell == INVALID_RECORD || !_hive->writeRecord(cell, record.data(), RECORD_HEAD_SIZE, record.size()))
        return INVALID_RECORD;
    _record = nk;
    // Never the very string it had: whoever still gets that one knows that the key is where it was.
    _name.set(String::create(name->view()));
    _recordOfs = cell;
    if (cell != oldCell) updateParentOfSubkeys(oldCell);
    return cell;
}

/// The record has moved: makes every subkey, on disk and alive, name it as its parent.
void KeyObj::updateParentOfSubkeys(u32 oldCell) {
    const u32 parent = HostToL32(_recordOfs);
    for (u32 i = 0; i < _keyList.size(); ++i) {
        const SubkeyEntry& entry = _keyList.at(i);
        if (const Ref<KeyObj> live = entry.key.lock()) live->_record.parent = parent;
        if (!_hive->writeRecord(entry.record, &parent, offsetof(hive_record_nk, parent), sizeof(parent)))
            log(3, Channel::hive, "Failed to update parent of subkey: ", entry.record,
                "Old parent: ", oldCell, "New parent: ", _recordOfs);
    }
}

bool KeyObj::move(Ref<Value> value, Ref<String> newName) {
    const MonGuard guard(_hive->monitor());
    if (!canChange()) return false;
    if (!newName) return ErrorCode::fail(ErrorCode::nullArgument);
    if (this->value(newName)) return ErrorCode::fail(ErrorCode::moveValueExists);
    const Ref<ValueObj> moved = refCast<ValueObj>(value);
    if (!moved) return ErrorCode::fail(ErrorCode::wrongArgument);
    if (moved->hive() != _hive) {  // before its key is looked at, which that hive's monitor guards
        log(3, Channel::hive, "Attempt to move a value form a different hive");
        return ErrorCode::fail(ErrorCode::wrongArgument);
    }
    const Ref<KeyObj> oldKey = moved->parent();
    const u32 record = moved->setName(newName);
    if (record == 0 || record == INVALID_RECORD) return false;
    // Linked first: within one key the value's first entry is then the old one, so that it ends up last.
    if (!linkValue(moved) || !oldKey->unlinkValue(moved)) return false;
    moved->setParent(Ref<KeyObj>(this));
    return true;
}

}  // namespace Libraries::Files::Hive
