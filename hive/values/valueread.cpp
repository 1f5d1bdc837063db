#include <algorithm>

#include "hive/hivelog.h"
#include "hive/values/extentwalk.h"

namespace Libraries::Files::Hive {

namespace {
constexpr auto function = "Libraries::Files::Hive::ValueObj::read";
}  // namespace

u32 ValueObj::read(ShPtr destination, u32 offset, u32 count) {
    const MonGuard guard(_hive->monitor());
    if (!_valid) {
        Error::set(ErrorCode::invalidObject);
        return 0;
    }
    count =
        std::min(count, _dataSize.load());  // not to what lies behind `offset`: callers count on whole reads
    u8* const target = destination.address();
    if (count == 0 || !target) return 0;
    if (_dataResident) return readResident(destination, count);
    const bool single = isSingleForGood();
    const u32 only = L32ToHost(_recordData.data_or_offset);
    const RecordView onlyCell = single ? loadSingle() : RecordView();
    if (single ? !onlyCell : !initExtents()) return 0;
    const auto extents = single ? std::span(&only, 1) : std::span<const u32>(_extents);
    bool loaded = true;
    const u32 copied = walkExtents(extents, offset, count, [&](u32 extent, u32 skip, u32 take, u32 done) {
        const RecordView cell = single ? onlyCell : _hive->cacheLoadRecord(extent);
        loaded = bool(cell);
        if (!loaded) return false;
        assertCondition(cell.size() <= 0, "-static_cast<s32>(L32ToHost(hr->data.size)) >= 0", function);
        // The cell's own length is not asked: a read that starts inside a cell may run past its end, and gets
        // what lies there, zeros behind the cache.
        cell.copy(target + done, RECORD_HEAD_SIZE + u64{skip}, take);
        return true;
    });
    return loaded ? copied : 0;
}

/// Resident data is always read from its first byte, whatever the offset asked for: callers in the field rely
/// on it.
u32 ValueObj::readResident(ShPtr destination, u32 count) const {
    assertCondition(count <= sizeof(_recordData.data_or_offset), "size <= sizeof(_recordData.data_or_offset)",
                    function);
    Mem::copy(destination.address(), &_recordData.data_or_offset, count);
    return count;
}

/// Reads the first `bytes` bytes; false when not all came. REQUIRES: bytes <= size(), and room for them in
/// `buffer`.
bool ValueObj::readAll(void* buffer, u32 bytes) {
    return read(ShPtr(buffer), 0, bytes) == bytes;
}

}  // namespace Libraries::Files::Hive
