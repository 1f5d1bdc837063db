#include <algorithm>

#include "hive/hivelog.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

namespace {
constexpr auto function = "Libraries::Files::Hive::ValueObj::write";
}  // namespace

u32 ValueObj::write(ShPtr source, u32 offset, u32 count) {
    if (!_valid || _readOnly) {
        Error::set(_valid ? ErrorCode::readOnly : ErrorCode::invalidObject);
        return 0;
    }
    const MonGuard guard(_hive->mon());
    count = std::min(count, _dataSize);  // writing never extends the data
    const u8* const data = source.address();
    if (count == 0 || !data) return 0;
    if (_dataResident) return writeResident(source, count);
    if (!initExtents()) return 0;
    u64 start = 0;  // data position of the current extent
    u32 written = 0;
    for (const u32 extent : _extents) {
        const u32 length = extentLength(extent);
        if (start + length <= offset) {
            start += length;
            continue;
        }
        const u32 skip = start < offset ? static_cast<u32>(offset - start) : 0;
        const u32 take = std::min(length - skip, count - written);
        if (!_hive->writeRecord(extent, data + written, static_cast<u32>(sizeof(hive_record)) + skip, take)) {
            log(3, Channel::hive, "Failed to write data record: ", extent);
            return written;
        }
        written += take;
        if (written == count) break;
        start += length;
    }
    return written;
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
    if (!_valid) {
        Error::set(ErrorCode::invalidObject);
        return false;
    }
    const MonGuard guard(_hive->mon());
    _recordData.type = HostToL32(type);
    if (!updateVkRecord()) {
        log(3, Channel::hive, "Failed to update vk record for setType(). record: ", _recordOfs);
        return false;
    }
    _type = type;
    return true;
}

}  // namespace Libraries::Files::Hive
