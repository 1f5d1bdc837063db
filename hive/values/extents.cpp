#include <algorithm>

#include "hive/hivelog.h"
#include "hive/plainpath.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

namespace {

constexpr auto function = "Libraries::Files::Hive::ValueObj::initExtents";

void assertUsed(const RecordView& cell) {
    assertCondition(cell.size() <= 0, "-static_cast<s32>(L32ToHost(hr->data.size)) >= 0", function);
}

}  // namespace

bool ValueObj::initExtents() {
    if (!_valid) return false;
    if (!_extents.empty()) return true;
    assertCondition(!_dataResident, "!_dataResident", function);
    const u32 dataCell = L32ToHost(_recordData.data_or_offset);
    const RecordView cell = _hive->cacheLoadRecord(dataCell);
    if (!cell) return false;
    assertUsed(cell);
    // The length and the version choose the form; the cell must then be of it.
    return usesDbList() ? initDbList(cell, dataCell) : initSingleExtent(cell, dataCell);
}

/// Whether the data lies in one cell and nothing will ever change that: then no list of extents is needed.
bool ValueObj::isSingleForGood() const {
    return !PLAIN_PATH && _readOnly && !usesDbList();
}

/// The one cell that holds the data; null when there is none or it is too small. REQUIRES: isSingleForGood(),
/// the data is not resident.
RecordView ValueObj::loadSingle() const {
    const u32 dataCell = L32ToHost(_recordData.data_or_offset);
    const RecordView cell = _hive->cacheLoadRecord(dataCell);
    if (!cell) return {};
    assertUsed(cell);
    return holdsData(cell, dataCell) ? cell : RecordView();
}

bool ValueObj::initSingleExtent(const RecordView& cell, u32 dataCell) {
    if (!holdsData(cell, dataCell)) return false;
    _extents.push_back(dataCell);
    return true;
}

bool ValueObj::holdsData(const RecordView& cell, u32 dataCell) const {
    if (cell.usedSize() < u64{_dataSize} + sizeof(hive_record)) {
        log(4, Channel::hive, "Size of data element is smaller than size value in vk record",
            "size in vk: ", _dataSize.load(), "size of data element: ", cell.usedSize(),
            "data_cell: ", dataCell);
        return ErrorCode::fail(ErrorCode::inconsistentData);
    }
    return true;
}

bool ValueObj::initDbList(const RecordView& cell, u32 dataCell) {
    if (cell.usedSize() < sizeof(hive_record_db)) {
        log(4, Channel::hive, "Size too small for db record: ", cell.usedSize(), "data_cell: ", dataCell);
        return ErrorCode::fail(ErrorCode::inconsistentData);
    }
    if (!cell.isOf(hive_record_db::SIGNATURE)) {
        log(4, Channel::hive, "Invalid record type: Expected db, is: ", cell.signature(),
            "data_cell: ", dataCell);
        return ErrorCode::fail(ErrorCode::inconsistentData);
    }
    const auto db = cell.as<hive_record_db>();
    const u32 count = L16ToHost(db.fragments);
    const u32 listCell = L32ToHost(db.fragmentList);
    if (count * hive_record_vk::V1_5_MAX_DATA_WITHOUT_DB < _dataSize) {
        log(4, Channel::hive, "Size of all fragments smaller than length of data",
            "length of data: ", _dataSize.load(), "num of fragments: ", count, "data_cell: ", dataCell,
            "fragment_list: ", listCell);
        return ErrorCode::fail(ErrorCode::inconsistentData);
    }
    _dbListDataRecord = listCell;
    const RecordView list = _hive->cacheLoadRecord(listCell);
    if (!list) return false;
    assertUsed(list);
    const u32 needed = count * OFFSET_ENTRY_SIZE + static_cast<u32>(sizeof(hive_record));
    if (list.usedSize() < needed) {
        log(4, Channel::hive, "Size of fragment list is smaller than size of expected entries",
            "minimum expected size: ", needed, "size of list: ", list.usedSize(), "data_cell: ", dataCell,
            "fragment_list: ", listCell);
        return ErrorCode::fail(ErrorCode::inconsistentData);
    }
    Array<u32> fragments(count);
    for (u32 i = 0; i < count; ++i)
        fragments[i] = list.u32At(sizeof(hive_record) + u64{i} * OFFSET_ENTRY_SIZE);
    return loadFragments(fragments);
}

bool ValueObj::loadFragments(const Array<u32>& fragments) {
    for (const u32& fragment : fragments) {
        const RecordView cell = _hive->cacheLoadRecord(fragment);
        const bool last = &fragment == &fragments.back();
        if (cell && (last || cell.usedSize() == hive_record_db::FRAGMENT_CELL_SIZE)) {
            _extents.push_back(fragment);
            continue;
        }
        if (cell)
            log(4, Channel::hive, "Invalid size for non-last fragment: ", cell.size(), "value: ", _recordOfs,
                "extent: ", fragment);
        _extents.clear();
        return false;
    }
    return true;
}

u32 ValueObj::coveredLength(u32 extent, const RegistryHiveObj& hive) {
    const u32 capacity =
        hive.versionMinor() == 3 ? MAX_VALUE_DATA_SIZE : hive_record_vk::V1_5_MAX_DATA_WITHOUT_DB;
    return std::min(capacity, extent - static_cast<u32>(sizeof(hive_record)));
}

}  // namespace Libraries::Files::Hive
