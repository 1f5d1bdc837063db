#include <algorithm>

#include "hive/hivelog.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

namespace {

constexpr u32 MAX_RESIDENT = 4;
constexpr u32 MAX_FRAGMENTS = 65535;  // the db record counts them in 16 bits

/// The longest data a form can describe: bit 31 of the size field is a flag, and a db list has 65535
/// fragments.
bool canBeStored(u32 size, bool isV13) {
    const u32 limit = isV13 ? hive_record_vk::FLAG_RESIDENT - 1 - RECORD_HEAD_SIZE
                            : MAX_FRAGMENTS * hive_record_vk::V1_5_MAX_DATA_WITHOUT_DB;
    return size <= limit;
}

}  // namespace

u32 ValueObj::size(u32 newSize) {
    const MonGuard guard(_hive->monitor());
    if (!_valid || _readOnly) {
        Error::set(_valid ? ErrorCode::readOnly : ErrorCode::invalidObject);
        return 0;
    }
    if (newSize == _dataSize && !_dbListStale) return _dataSize;
    if (!canBeStored(newSize, _isV13)) {
        Error::set(ErrorCode::allocationFailed);
        return _dataSize;
    }
    if (newSize <= MAX_RESIDENT) return resizeToResident(newSize);
    if (!_isV13 && newSize > hive_record_vk::V1_5_MAX_DATA_WITHOUT_DB) return resizeDbList(newSize);
    return _dataResident || usesDbList() ? resizeToSingle(newSize) : resizeSingle(newSize);
}

u32 ValueObj::resizeFailed(const char* message) const {
    log(3, Channel::hive, message, _recordOfs);
    return _dataSize;
}

u32 ValueObj::resizeToResident(u32 newSize) {
    u32 kept = 0;
    if (!readAll(&kept, std::min(newSize, _dataSize.load())))
        return resizeFailed("Read data for resize to resident failed. record: ");
    if (!freeAllExtents())
        return resizeFailed("Failed to free some data reords for resize to resident. record: ");
    _dataResident = true;
    _extents.clear();
    _recordData.data_or_offset = kept;  // bytes in data order, as the file has them
    return finishResize(newSize);
}

/// From resident data or a db list. The new cell stays allocated on a failure.
u32 ValueObj::resizeToSingle(u32 newSize) {
    const u32 cell = _hive->allocateRecord(newSize + RECORD_HEAD_SIZE, nullptr);
    if (cell == INVALID_RECORD)
        return resizeFailed("Failed to allocate new record for resize to single extent. record: ");
    const u32 kept = std::min(newSize, _dataSize.load());
    Array<u8> data(dataIsThere() ? kept : 0);
    if (data.size() != kept || !readAll(data.data(), kept))
        return resizeFailed("Read data for resize to single extent failed. record: ");
    if (!_hive->writeRecord(cell, data.data(), RECORD_HEAD_SIZE, kept))
        return resizeFailed("Restore data for resize to single extent failed. record: ");
    if (!freeAllExtents())
        return resizeFailed("Failed to free some data records for resize to single extent. record: ");
    _recordData.data_or_offset = HostToL32(cell);
    _extents.assign(1, cell);
    _dataResident = false;
    return finishResize(newSize);
}

u32 ValueObj::resizeSingle(u32 newSize) {
    if (!initExtents()) return resizeFailed("Failed to initExtents() for resize to single extent. record: ");
    assertCondition(_extents.size() == 1, "_extents.size() == 1", "Libraries::Files::Hive::ValueObj::size");
    const u32 cell = _hive->resizeRecord(L32ToHost(_recordData.data_or_offset), newSize + RECORD_HEAD_SIZE,
                                         true, nullptr, false);
    if (cell == INVALID_RECORD)
        return resizeFailed("Failed to resizeRecord for resize to single extent. record: ");
    _recordData.data_or_offset = HostToL32(cell);
    _extents[0] = cell;
    _dataResident = false;
    return finishResize(newSize);
}

u32 ValueObj::finishResize(u32 newSize) {
    _dataSize = newSize;
    _recordData.dataSize = HostToL32(newSize | (_dataResident ? hive_record_vk::FLAG_RESIDENT : 0));
    if (!updateVkRecord())
        log(3, Channel::hive, "Failed to update vk record for resize. record: ", _recordOfs);
    return _dataSize;
}

/// Frees every cell that holds the data, db record and fragment list included. The fields that name the cells
/// are the caller's to replace.
bool ValueObj::freeAllExtents() {
    if (_dataResident) return true;
    if (!initExtents()) return false;
    bool freed = true;
    for (const u32 extent : _extents) freed = _hive->releaseRecord(extent) && freed;
    if (usesDbList()) {
        assertCondition(_dbListDataRecord != INVALID_RECORD, "_dbListDataRecord != INVALID_RECORD",
                        "Libraries::Files::Hive::ValueObj::freeAllExtents");
        freed = _hive->releaseRecord(L32ToHost(_recordData.data_or_offset)) && freed;
        freed = _hive->releaseRecord(_dbListDataRecord) && freed;
    }
    return freed;
}

}  // namespace Libraries::Files::Hive
