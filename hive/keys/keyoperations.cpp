#include "hive/hivelog.h"
#include "hive/keys/keyiteratorobj.h"
#include "hive/keys/keyobj.h"
#include "hive/nameencoding.h"
#include "hive/recordbuilder.h"

namespace Libraries::Files::Hive {

namespace {

Ref<Key> refused(u32 errorCode) {
    Error::set(errorCode);
    return nullptr;
}

}  // namespace

Ref<Key> KeyObj::createKey(Ref<String> name) {
    const MonGuard guard(_hive->monitor());
    _missedAt = NO_INDEX;
    return createMissingKey(name);
}

Ref<Key> KeyObj::createMissingKey(const Ref<String>& name) {
    u32 position = std::exchange(_missedAt, NO_INDEX);
    if (!canChange()) return nullptr;
    if (!name) return refused(ErrorCode::nullArgument);
    if (!initSubkeys()) return nullptr;
    if (name->length() > MAX_KEY_NAME_LENGTH) return refused(ErrorCode::badKeyName);
    if (_depth >= MAX_KEY_DEPTH) return refused(ErrorCode::treeTooDeep);  // it could never be read back
    if (position != NO_INDEX) {
        Error::set(ErrorCode::noSuchKey);  // as the search would
    } else {
        if (binaryFindKey(name->view(), &position)) return refused(ErrorCode::keyExists);
        if (position == NO_INDEX) return refused(ErrorCode::searchFailed);
    }
    return createKeyAt(position, name);
}

/// Makes the subkey and its entry in the list.
Ref<Key> KeyObj::createKeyAt(u32 position, const Ref<String>& name) {
    if (!ensureFreeListPlace(position)) return refused(ErrorCode::noListRoom);
    SubkeyHash hash{};
    const u32 cell = writeNewKey(name, hash);
    if (cell == INVALID_RECORD) return nullptr;
    if (!insertKey(position, cell, hash, nullptr)) {
        log(3, Channel::hive, "insertKey failed, newKey=", cell, " current=", _recordOfs, " pos=", position);
        return nullptr;
    }
    if (!adjustSecurityCellRefCount(sdOffset(), true)) {
        log(3, Channel::hive, "Could not update security cell ref count after creating new key");
        return nullptr;
    }
    for (const auto& weak : _keyIterators)
        if (const Ref<KeyIteratorObj> iterator = weak.lock()) iterator->insertedAt(position);
    return hasSubkey(position) ? openSubkey(position, name) : nullptr;
}

/// Writes the nk record of a new subkey and computes its hint or hash. Returns its offset, INVALID_RECORD on
/// failure.
u32 KeyObj::writeNewKey(const Ref<String>& name, SubkeyHash& hash) {
    u64 nameLength = MAX_STORED_NAME;
    bool compressed = false;
    const HeapBuffer storedName = _hive->stringToRegName(name, nameLength, compressed);
    if (!storedName) {
        Error::set(ErrorCode::badKeyName);
        return INVALID_RECORD;
    }
    assertCondition(nameLength <= MAX_STORED_NAME, "nameLength <= ((u16)0xffffU)",
                    "Libraries::Files::Hive::KeyObj::createKey");
    if (_listType != keyListLI && !makeHash(_listType, name, hash, compressed, false)) {
        Error::set(ErrorCode::hashFailed);
        return INVALID_RECORD;
    }
    hive_record_nk nk{};
    Mem::copy(nk.signature, hive_record_nk::SIGNATURE, sizeof(nk.signature));
    nk.flags = HostToL16(compressed ? hive_record_nk::FLAG_COMPRESSED_NAME : 0);
    nk.parent = HostToL32(_recordOfs);
    nk.keyList = nk.volatileKeyList = nk.valueList = nk.className = HostToL32(INVALID_RECORD);
    nk.security = _record.security;
    nk.nameLength = HostToL16(static_cast<u16>(nameLength));
    RecordBuilder record;
    record.putLayout(nk);
    record.put(storedName.get(), nameLength);
    const u32 cell = _hive->allocateRecord(record.recordSize(), nullptr);
    if (cell == INVALID_RECORD || !_hive->writeRecord(cell, record.data(), RECORD_HEAD_SIZE, record.size()))
        return INVALID_RECORD;
    return cell;
}

bool KeyObj::deleteKey(Ref<Key> key) {
    const MonGuard guard(_hive->monitor());
    if (!canChange()) return false;
    const Ref<KeyObj> own = refCast<KeyObj>(key);
    if (!own) return ErrorCode::fail(ErrorCode::wrongArgument);
    if (!own->canBeDeleted()) return ErrorCode::fail(ErrorCode::keyNotEmpty);
    return unlinkKey(own, NO_INDEX) && own->selfDelete();
}

bool KeyObj::canBeDeleted() const {
    return _valid && _numOfKeys == 0 && _numOfValues == 0 && !_readOnly;
}

bool KeyObj::selfDelete() {
    if (!canChange() || !canBeDeleted() || !initSubkeys()) return false;
    _valid = false;
    return freeLists() && _hive->releaseRecord(_recordOfs) && adjustSecurityCellRefCount(sdOffset(), false);
}

/// Frees the list records of a key without entries.
bool KeyObj::freeLists() {
    for (u32 j = 0; j < _keyList.sublists(); ++j)
        if (!_hive->releaseRecord(_keyList.sublist(j).record)) return false;
    _keyList.clear();
    _subkeysLoaded = false;
    if (_twoLevelList) {
        if (!_hive->releaseRecord(_keyListCell)) return false;
        _keyListCell = 0;
        _twoLevelList = false;
    }
    if (_valueListCell == 0) return true;
    if (!_hive->releaseRecord(_valueListCell)) return false;
    _valueListCell = 0;
    return true;
}

bool KeyObj::adjustSecurityCellRefCount(u32 securityCell, bool increment) {
    if (securityCell == 0 || securityCell == INVALID_RECORD) return true;
    const RecordView record = _hive->cacheLoadRecord(securityCell);
    if (!record) {
        log(3, Channel::hive, "security record not found: ", securityCell);
        return true;
    }
    const auto sk = record.as<hive_record_sk>();
    if (B16ToHost(sk.type) != hive_record_sk::SIGNATURE) {
        log(3, Channel::hive, "invalid type for security record: ", record.signature());
        return true;
    }
    assertCondition(record.size() <= 0, "-static_cast<s32>(L32ToHost(securityRecord->size)) >= 0",
                    "Libraries::Files::Hive::KeyObj::adjustSecurityCellRefCount");
    if (record.absoluteSize() < sizeof(hive_record_sk)) {
        log(3, Channel::hive, "too small security record with size: ", record.absoluteSize());
        return true;
    }
    const u32 count = L32ToHost(sk.refCount);
    if (!increment && count == 0) {
        log(3, Channel::hive, "security record ref counter is already zero, record: ", securityCell);
        return true;
    }
    // A record that nobody uses any more stays: it is a link of the ring.
    const u32 changed = HostToL32(increment ? count + 1 : count - 1);
    if (!_hive->writeRecord(securityCell, &changed, offsetof(hive_record_sk, refCount), sizeof(changed)))
        log(3, Channel::hive, "failed to update the security record, error=", Error::get());
    return true;
}

}  // namespace Libraries::Files::Hive
