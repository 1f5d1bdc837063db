#include <algorithm>

#include "hive/hivelog.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

namespace {
constexpr auto function = "Libraries::Files::Hive::ValueObj::read";
}  // namespace

u32 ValueObj::read(ShPtr destination, u32 offset, u32 count) {
    if (!_valid) {
        Error::set(ErrorCode::invalidObject);
        return 0;
    }
    const MonGuard guard(_hive->mon());
    count = std::min(count, _dataSize);  // not to what lies behind `offset`: callers count on whole reads
    u8* const target = destination.address();
    if (count == 0 || !target) return 0;
    if (_dataResident) return readResident(destination, count);
    if (!initExtents()) return 0;
    u64 start = 0;  // data position of the current extent
    u32 copied = 0;
    for (const u32 extent : _extents) {
        const u32 length = extentLength(extent);
        if (start + length <= offset) {
            start += length;
            continue;
        }
        const u32 skip = start < offset ? static_cast<u32>(offset - start) : 0;
        const u32 take = std::min(length - skip, count - copied);
        const RecordView cell = _hive->cacheLoadRecord(extent);
        if (!cell) return 0;
        assertCondition(cell.size() <= 0, "-static_cast<s32>(L32ToHost(hr->data.size)) >= 0", function);
        // The cell's own length is not asked: a read that starts inside a cell may run past its end, and gets
        // what lies there, zeros behind the cache.
        cell.copy(target + copied, sizeof(hive_record) + u64{skip}, take);
        copied += take;
        if (copied == count) break;
        start += length;
    }
    return copied;
}

/// Resident data is always read from its first byte, whatever the offset asked for: callers in the field rely
/// on it.
u32 ValueObj::readResident(ShPtr destination, u32 count) const {
    assertCondition(count <= sizeof(_recordData.data_or_offset), "size <= sizeof(_recordData.data_or_offset)",
                    function);
    Mem::copy(destination.address(), &_recordData.data_or_offset, count);
    return count;
}

/// Reads the first `bytes` bytes, all or nothing. REQUIRES: bytes <= size(), and room for them in `buffer`.
bool ValueObj::readAll(void* buffer, u32 bytes) {
    return read(ShPtr(buffer), 0, bytes) == bytes;
}

}  // namespace Libraries::Files::Hive
