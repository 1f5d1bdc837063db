#include "hive/hivelog.h"
#include "hive/keys/keyobj.h"
#include "hive/recordbuilder.h"

namespace Libraries::Files::Hive {

namespace {

const char* signatureOf(KeyListType type) {
    switch (type) {
        case keyListLF:
            return hive_record_list::LF;
        case keyListLH:
            return hive_record_list::LH;
        default:
            return hive_record_list::LI;
    }
}

void putEntries(RecordBuilder& record, KeyListType type, const SubkeyEntry* entries, u32 count) {
    if (type != keyListLH && type != keyListLF) {
        for (u32 i = 0; i < count; ++i) record.put32(entries[i].record);
        return;
    }
    u8* place = record.extend(u64{count} * sizeof(hive_list_entry));
    for (u32 i = 0; i < count; ++i, place += sizeof(hive_list_entry)) {
        hive_list_entry stored;
        stored.record = HostToL32(entries[i].record);
        const u32 hash = HostToL32(entries[i].hash.hash);
        Mem::copy(stored.hint, type == keyListLH ? static_cast<const void*>(&hash) : entries[i].hash.hint,
                  sizeof(stored.hint));
        std::memcpy(place, &stored, sizeof(stored));
    }
}

}  // namespace

/// Writes `count` entries of one sublist from index `first` on as one record of the key's list type, at least
/// `minSize` bytes long: into `cell`, which may move, or into a new record when that is none. Returns the
/// record's offset, or INVALID_RECORD.
u32 KeyObj::writeKeyListRecord(u32 cell, u32 first, u16 count, u32 minSize) {
    RecordBuilder record;
    record.putSignature(signatureOf(_listType));
    record.put16(count);
    if (count > 0) {
        const Sublist& list = _keyList.sublist(_keyList.sublistOf(first));
        putEntries(record, _listType, &list.entries[first - list.start], count);
    }
    const u32 size = std::max(record.recordSize(), minSize);
    const bool fresh = cell == INVALID_RECORD;
    const u32 place =
        fresh ? _hive->allocateRecord(size, nullptr) : _hive->resizeRecord(cell, size, false, nullptr, true);
    if (place == INVALID_RECORD) {
        log(3, Channel::hive,
            fresh ? "Failed to allocate record to write key list. key record = "
                  : "Failed to resize record to write key list. key record = ",
            _recordOfs);
        return INVALID_RECORD;
    }
    if (!_hive->writeRecord(place, record.data(), RECORD_HEAD_SIZE, record.size())) {
        log(3, Channel::hive, "Failed to write record to write key list. key record = ", _recordOfs);
        return INVALID_RECORD;
    }
    return place;
}

/// Writes a sublist's entries anew; when its record moves, what names it is brought in step.
bool KeyObj::rewriteSublist(u32 j, const char* function) {
    Sublist& list = _keyList.sublist(j);
    const u32 oldCell = list.record;
    const u32 cell = writeKeyListRecord(oldCell, list.start, static_cast<u16>(list.entries.size()), 0);
    if (cell == INVALID_RECORD) return false;
    if (cell != oldCell && !_twoLevelList) {
        assertCondition(_keyListCell == oldCell, "_keyListCell == oldRec", function);
        _keyListCell = cell;
    } else if (cell != oldCell) {
        const u32 entry = HostToL32(cell);
        if (!_hive->writeRecord(_keyListCell, &entry,
                                static_cast<u32>(sizeof(hive_record_list)) + OFFSET_ENTRY_SIZE * j,
                                sizeof(entry))) {
            log(3, Channel::hive, "Failed to update ri pointer for list: ", j, "Key: ", _recordOfs);
            return false;
        }
    }
    list.record = cell;
    return true;
}

/// Makes `cell` (0: none) the key's top list record, in memory only.
void KeyObj::setTopList(u32 cell) {
    _keyListCell = cell;
    _record.keyList = HostToL32(cell);
}

bool KeyObj::createEmptyKeyList() {
    if (_keyList.sublists() != 0 || _numOfKeys != 0) return false;
    const u32 cell = _hive->allocateRecord(NEW_LH_LF_ALLOCATE_SIZE, nullptr);
    if (cell == INVALID_RECORD) {
        _keyListCell = 0;
        log(3, Channel::hive, "Failed to allocate new, empty subkey list record for key: ", _recordOfs);
        return false;
    }
    _keyListCell = cell;
    RecordBuilder head;
    head.putSignature(signatureOf(_hive->versionMinor() == 3 ? keyListLF : keyListLH));
    head.put16(0);
    if (!_hive->writeRecord(cell, head.data(), RECORD_HEAD_SIZE, head.size())) {
        log(3, Channel::hive, "Failed to write new, empty subkey list record for key: ", _recordOfs,
            "list record: ", cell);
        return false;
    }
    _subkeysLoaded = false;
    if (!initSubkeys()) {
        log(3, Channel::hive,
            "Failed to reload subkey list after creating new list record, key: ", _recordOfs);
        return false;
    }
    setTopList(cell);
    return syncKeyRecord();
}

/// Turns a full lf record into an li record, in place: it shrinks by its hints.
bool KeyObj::convertLfToLiList() {
    constexpr auto function = "Libraries::Files::Hive::KeyObj::convertLfToLiList";
    if (!initSubkeys()) return false;
    assertCondition(!_twoLevelList, "_twoLevelList == false", function);
    assertCondition(_listType == keyListLF, "_listType == keyListLF", function);
    assertCondition(_keyList.sublists() == 1, "_tree.size() == 1", function);
    const auto count = static_cast<u16>(_keyList.sublist(0).entries.size());
    assertCondition(count == _numOfKeys, "_tree[0].numOfkeys == _numOfKeys", function);
    _listType = keyListLI;
    const u32 newKeyCell = writeKeyListRecord(_keyListCell, 0, count, 0);
    if (newKeyCell == INVALID_RECORD) {
        log(3, Channel::hive, "Failed to convert LF list to LI list, key = ", _recordOfs);
        _listType = keyListLF;
        return false;
    }
    return assertCondition(newKeyCell == _keyListCell, "newKeyCell == _keyListCell", function);
}

/// Puts an ri record above the one list record there is.
bool KeyObj::addSecTreeLevel() {
    if (!initSubkeys()) return false;
    assertCondition(!_twoLevelList, "_twoLevelList == false",
                    "Libraries::Files::Hive::KeyObj::addSecTreeLevel");
    RecordBuilder head;
    head.putSignature(hive_record_list::RI);
    head.put16(1);
    head.put32(_keyListCell);
    const u32 cell = _hive->allocateRecord(NEW_RI_ALLOCATE_SIZE, nullptr);
    if (cell == INVALID_RECORD || !_hive->writeRecord(cell, head.data(), RECORD_HEAD_SIZE, head.size()))
        return false;
    _twoLevelList = true;
    setTopList(cell);
    return syncKeyRecord();
}

/// Moves the second half of a sublist into a record of its own. The first half's record keeps its length.
bool KeyObj::splitRISublist(u32 j) {
    constexpr auto function = "Libraries::Files::Hive::KeyObj::splitRISublist";
    if (!initSubkeys()) return false;
    assertCondition(_twoLevelList, "_twoLevelList", function);
    if (_keyList.sublists() >= UINT16_MAX) {
        log(3, Channel::hive, "Too many records to split, key: ", _recordOfs, "list: ", j);
        return false;
    }
    const Sublist& list = _keyList.sublist(j);
    const auto count = static_cast<u16>(list.entries.size());
    const RecordView record = _hive->cacheLoadRecord(list.record);
    if (!record) return false;
    assertCondition(record.size() < 0, "-static_cast<s32>(hr->size) > 0", function);
    if (record.absoluteSize() < sizeof(hive_record_list) || !record.isOf(signatureOf(_listType)) ||
        L16ToHost(record.as<hive_record_list>().count) != count) {
        log(3, Channel::hive, "Unexpected data found on disk (ri sublist), record=", list.record,
            "List type: ", static_cast<u32>(_listType));
        return false;
    }
    const u32 oldSize = record.absoluteSize();
    const u16 half = count / 2;
    const u32 second =
        writeKeyListRecord(INVALID_RECORD, list.start + half, static_cast<u16>(count - half), oldSize);
    if (second == INVALID_RECORD) {
        log(3, Channel::hive, "Failed to create new record to split RI sublist, size=", oldSize);
        return false;
    }
    const u16 stored = HostToL16(half);
    if (!_hive->writeRecord(list.record, &stored, offsetof(hive_record_list, count), sizeof(stored))) {
        log(3, Channel::hive,
            "Failed to set new used counter for first part after split. key record = ", _recordOfs);
        return false;
    }
    _keyList.split(j, half, second);
    return syncRIList();
}

/// Writes the ri record anew from the sublists in memory.
bool KeyObj::syncRIList() {
    constexpr auto function = "Libraries::Files::Hive::KeyObj::syncRIList";
    assertCondition(_keyList.sublists() <= UINT16_MAX, "_tree.size() <= ((u16)0xffffU)", function);
    assertCondition(_twoLevelList, "_twoLevelList", function);
    RecordBuilder record;
    record.putSignature(hive_record_list::RI);
    record.put16(static_cast<u16>(_keyList.sublists()));
    for (u32 j = 0; j < _keyList.sublists(); ++j) record.put32(_keyList.sublist(j).record);
    const u32 cell = _hive->resizeRecord(_keyListCell, record.recordSize(), false, nullptr, true);
    if (cell == INVALID_RECORD) {
        log(3, Channel::hive, "Failed resize ri list, key =", _recordOfs);
        return false;
    }
    if (!_hive->writeRecord(cell, record.data(), RECORD_HEAD_SIZE, record.size())) {
        log(3, Channel::hive, "Failed update ri list, key =", _recordOfs);
        return false;
    }
    if (cell == _keyListCell) return true;
    setTopList(cell);
    return syncKeyRecord();
}

}  // namespace Libraries::Files::Hive
