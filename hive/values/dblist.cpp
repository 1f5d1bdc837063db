#include "hive/hivelog.h"
#include "hive/recordbuilder.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

namespace {

constexpr auto function = "Libraries::Files::Hive::ValueObj::resizeDbList";
constexpr u32 FRAGMENT_DATA = hive_record_vk::V1_5_MAX_DATA_WITHOUT_DB;
/// What is asked of the allocator for a fragment, whatever it will hold.
constexpr u32 FRAGMENT_REQUEST = FRAGMENT_DATA + RECORD_HEAD_SIZE;

u32 fragmentListSize(u64 fragments) {
    return static_cast<u32>(fragments * OFFSET_ENTRY_SIZE) + RECORD_HEAD_SIZE;
}

}  // namespace

/// Grows or shrinks into, or within, the db list form. Cells allocated before a failure are not freed.
u32 ValueObj::resizeDbList(u32 newSize) {
    assertCondition(!_isV13, "!_isV13", function);
    assertCondition(newSize > FRAGMENT_DATA, "newsize > hive_record_vk::V1_5_MAX_DATA_WITHOUT_DB", function);
    const auto fragments = static_cast<u16>((newSize - 1) / FRAGMENT_DATA + 1);
    const u32 oldSize = _dataSize;
    const bool existing = !_dataResident && usesDbList();
    if (existing && !initExtents()) {
        log(3, Channel::hive, "Failed to initExtents() during resize of db list");
        return _dataSize;
    }
    const bool listChanged = !existing || _dbListStale || _extents.size() != fragments;
    if (listChanged) _dbListStale = true;
    if (const char* failure = existing ? resizeFragments(fragments) : makeDbList(fragments)) {
        log(3, Channel::hive, failure);
        return _dataSize;
    }
    _dataSize = newSize;
    _recordData.dataSize = HostToL32(newSize);
    _dataResident = false;
    if (listChanged) {
        if (const char* failure = writeDbList()) {
            log(3, Channel::hive, failure);
            return oldSize;  // the caller's only sign that the list on disk is not the one in memory
        }
        _dbListStale = false;
    }
    if (!updateVkRecord()) return resizeFailed("Failed to update vk record for resize to db list. record: ");
    return _dataSize;
}

/// Frees or appends fragments at the end of the list; the others stay as they are, a short last one included.
/// Returns the message of a failure, or null.
const char* ValueObj::resizeFragments(u16 fragments) {
    for (std::size_t i = fragments; i < _extents.size(); ++i) _hive->releaseRecord(_extents[i]);
    if (_extents.size() > fragments) _extents.resize(fragments);
    while (_extents.size() < fragments) {
        const u32 fragment = _hive->allocateRecord(FRAGMENT_REQUEST, nullptr);
        if (fragment == INVALID_RECORD)
            return "Failed to allocate new fragment data record for existing db list.";
        _extents.push_back(fragment);
    }
    return nullptr;
}

/// Moves resident data, or that of a single cell, into the first fragment of a new list.
const char* ValueObj::makeDbList(u16 fragments) {
    assertCondition(fragments > 1, "num_of_fragments > 1", function);
    assertCondition(_dataSize <= FRAGMENT_DATA, "_dataSize <= hive_record_vk::V1_5_MAX_DATA_WITHOUT_DB",
                    function);
    const u32 dbCell = _hive->allocateRecord(sizeof(hive_record_db), nullptr);
    if (dbCell == INVALID_RECORD) return "Failed to allocate record for new db list.";
    _dbListDataRecord = _hive->allocateRecord(fragmentListSize(fragments), nullptr);
    if (_dbListDataRecord == INVALID_RECORD)
        return "Failed to allocate fragment list record for new db list.";
    Array<u32> extents;
    for (u32 i = 0; i < fragments; ++i) {
        extents.push_back(_hive->allocateRecord(FRAGMENT_REQUEST, nullptr));
        if (extents.back() == INVALID_RECORD)
            return "Failed to allocate fragment data record for new db list.";
    }
    Array<u8> data(_dataSize);
    if (!readAll(data.data(), _dataSize))
        return "Failed to read old data during resize to db list (from single or resident)";
    if (!_hive->writeRecord(extents[0], data.data(), RECORD_HEAD_SIZE, _dataSize))
        return "Failed to restore old data during resize to db list (from single or resident)";
    freeAllExtents();
    _extents = std::move(extents);
    _recordData.data_or_offset = HostToL32(dbCell);
    return nullptr;
}

/// Writes the fragment list and the db record that names it.
const char* ValueObj::writeDbList() {
    const u32 list =
        _hive->resizeRecord(_dbListDataRecord, fragmentListSize(_extents.size()), false, nullptr, false);
    if (list == INVALID_RECORD) return "Failed to resize fragment list during resize of db list";
    _dbListDataRecord = list;
    RecordBuilder offsets;
    for (const u32 extent : _extents) offsets.put32(extent);
    if (!_hive->writeRecord(list, offsets.data(), RECORD_HEAD_SIZE, offsets.size()))
        return "Failed to write fragment list during resize of db list";
    RecordBuilder db;
    db.putSignature(hive_record_db::SIGNATURE);
    db.put16(static_cast<u16>(_extents.size()));
    db.put32(list);
    if (!_hive->writeRecord(L32ToHost(_recordData.data_or_offset), db.data(), RECORD_HEAD_SIZE, db.size()))
        return "Failed to write db record during resize of db list";
    return nullptr;
}

}  // namespace Libraries::Files::Hive
