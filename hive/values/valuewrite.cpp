#include <algorithm>

#include "hive/hivelog.h"
#include "hive/values/extentwalk.h"

namespace Libraries::Files::Hive {

namespace {
constexpr auto function = "Libraries::Files::Hive::ValueObj::write";
}  // namespace

u32 ValueObj::write(ShPtr source, u32 offset, u32 count) {
    const MonGuard guard(_hive->monitor());
    if (!_valid || _readOnly) {
        Error::set(_valid ? ErrorCode::readOnly : ErrorCode::invalidObject);
        return 0;
    }
    count = std::min(count, _dataSize.load());  // writing never extends the data
    const u8* const data = source.address();
    if (count == 0 || !data) return 0;
    if (_dataResident) return writeResident(source, count);
    if (!initExtents()) return 0;
    return walkExtents(_extents, offset, count, [&](u32 extent, u32 skip, u32 take, u32 done) {
        if (_hive->writeRecord(extent, data + done, RECORD_HEAD_SIZE + skip, take)) return true;
        log(3, Channel::hive, "Failed to write data record: ", extent);
        return false;
    });
}

/// As in reading, the offset is ignored for resident data.
u32 ValueObj::writeResident(ShPtr source, u32 count) {
    assertCondition(count <= sizeof(_recordData.data_or_offset), "size <= sizeof(_recordData.data_or_offset)",
                    function);
    Mem::copy(&_recordData.data_or_offset, source.address(), count);
    if (updateVkRecord()) return count;
    log(3, Channel::hive, "Failed to update vk record for write resident. record: ", _recordOfs);
    return 0;
}

/// Writes the record copy, signature through spare, back to the vk record.
bool ValueObj::updateVkRecord() {
    const auto* fixedPart = reinterpret_cast<const u8*>(&_recordData) + sizeof(_recordData.size);
    return _hive->writeRecord(_recordOfs, fixedPart, sizeof(_recordData.size),
                              sizeof(_recordData) - sizeof(_recordData.size));
}

bool ValueObj::setType(ValueType type) {
    const MonGuard guard(_hive->monitor());
    if (!_valid) {
        Error::set(ErrorCode::invalidObject);
        return false;
    }
    _recordData.type = HostToL32(type);
    if (!updateVkRecord()) {
        log(3, Channel::hive, "Failed to update vk record for setType(). record: ", _recordOfs);
        return false;
    }
    _type = type;
    return true;
}

}  // namespace Libraries::Files::Hive
