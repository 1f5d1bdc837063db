#include "hive/values/valuecopy.h"

#include "hive/values/valueobj.h"
#include "hive/values/valuerecord.h"

namespace Libraries::Files::Hive {

bool ValueCopy::take(RegistryHiveObj& hive, u32 offset) {
    ValueRecord record;
    if (!record.peek(hive, offset) || !record.copyName(_name, _nameLength)) return false;
    _type = static_cast<Value::ValueType>(L32ToHost(record.fixedPart().type));
    _dataSize = record.dataSize();
    const u32 dataField = record.fixedPart().data_or_offset;
    if (record.isResident()) {
        Mem::copy(_data.data(), &dataField, _dataSize);
        return true;
    }
    // Data that is longer than what its cell's place lets it cover does not come whole.
    const u32 cell = L32ToHost(dataField);
    if (_dataSize > _data.size() || _dataSize > ValueObj::coveredLength(cell, hive) ||
        _dataSize > hive.hbinsSize())
        return false;
    const RecordView view = hive.peekRecord(cell);
    if (!view || view.usedSize() < u64{_dataSize} + sizeof(hive_record)) return false;
    view.copy(_data.data(), sizeof(hive_record), _dataSize);
    return true;
}

}  // namespace Libraries::Files::Hive
