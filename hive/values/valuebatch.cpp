#include "hive/values/valuebatch.h"

#include "hive/plainpath.h"
#include "hive/values/valueobj.h"
#include "hive/values/valuerecord.h"

namespace Libraries::Files::Hive {

void ValueBatch::fill(RegistryHiveObj& hive, const ValueListPlace& list, u32 first) {
    _count = _nameUnits = _dataBytes = 0;
    if constexpr (PLAIN_PATH) return;
    const MonGuard guard(hive.monitor());
    const RecordView record = hive.peekRecord(list.cell);
    if (!record || u64{list.count} * OFFSET_ENTRY_SIZE + sizeof(hive_record) > record.absoluteSize()) return;
    for (u32 i = first; i < list.count && _count < ENTRIES; ++i)
        if (!add(hive, record.u32At(sizeof(hive_record) + u64{i} * OFFSET_ENTRY_SIZE))) return;
}

bool ValueBatch::add(RegistryHiveObj& hive, u32 offset) {
    ValueRecord record;
    if (!record.peek(hive, offset)) return false;
    const auto units = std::span(_names).subspan(_nameUnits);
    const auto bytes = std::span(_data).subspan(_dataBytes);
    const u32 size = record.dataSize();
    u32 length = 0;
    if (size > bytes.size() || !record.copyName(units, length)) return false;
    const u32 dataField = record.fixedPart().data_or_offset;
    if (record.isResident()) {
        Mem::copy(bytes.data(), &dataField, size);
    } else {
        // Data that is longer than what its cell's place lets it cover does not come whole.
        const u32 cell = L32ToHost(dataField);
        if (size > ValueObj::coveredLength(cell, hive) || size > hive.hbinsSize()) return false;
        const RecordView view = hive.peekRecord(cell);
        if (!view || view.usedSize() < u64{size} + sizeof(hive_record)) return false;
        view.copy(bytes.data(), sizeof(hive_record), size);
    }
    const u32 type = L32ToHost(record.fixedPart().type);
    _entries[_count++] = {static_cast<Value::ValueType>(type), {units.data(), length}, {bytes.data(), size}};
    _nameUnits += length;
    _dataBytes += size;
    return true;
}

}  // namespace Libraries::Files::Hive
