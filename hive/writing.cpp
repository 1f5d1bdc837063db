#include "hive/hivelog.h"
#include "hive/plainpath.h"
#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

bool RegistryHiveObj::writeRecord(u32 offset, const void* data, u32 offsetInRecord, u32 length) {
    constexpr auto function = "Libraries::Files::Hive::RegistryHiveObj::writeRecord";
    if (refuseChange("writeRecord")) return false;
    if (length == 0) return true;
    if (offsetInRecord < sizeof(hive_record)) {  // the size field belongs to the allocator
        Error::set(ErrorCode::outsideRecord);
        return false;
    }
    u32 hbinIdx = INVALID_HBIN;
    const RecordView record = cacheLoadRecord(offset, &hbinIdx, false);
    if (!record) return false;
    const u32 recordSize = record.usedSize();
    assertCondition(hbinIdx < _hbins.size(), "hbin < _hbins.size()", function);
    assertCondition(record.size() <= 0, "-static_cast<s32>(L32ToHost(record->size)) >= 0", function);
    if (u64{offsetInRecord} + length > recordSize) {
        Error::set(ErrorCode::outsideRecord);
        return false;
    }
    const HbinDescriptor& hbin = _hbins[hbinIdx];
    assertCondition(
        offset > hbin.offset && u64{offset} + recordSize <= u64{hbin.offset} + hbin.size,
        "offsetOfRecord > _hbins[hbin].offset && offsetOfRecord + recordsize <= _hbins[hbin].offset + "
        "_hbins[hbin].size",
        function);
    // No cell's size field is among the bytes, so the cell map stays right.
    return store(_cache.entry(hbin.cacheSlot), offset - hbin.offset + offsetInRecord, data, length);
}

bool RegistryHiveObj::writeHBIN(u32 hbinIdx, u32 offsetInHbin, const void* data, u32 length) {
    if (refuseChange("writeHBIN")) return false;
    if (!assertCondition(hbinIdx < _hbins.size(), "hbin_idx < _hbins.size()",
                         "Libraries::Files::Hive::RegistryHiveObj::writeHBIN"))
        return false;
    const u64 position = cacheLoadHbin(hbinIdx);
    if (position == NO_POSITION) return false;
    CachedHbin& hbin = _cache.entry(_hbins[hbinIdx].cacheSlot);
    if (u64{offsetInHbin} + length > hbin.size) return false;
    if (offsetInHbin < sizeof(hive_hbin)) hbin.headChecked = false;
    hbin.cells.changed(offsetInHbin, length);
    _cache.freeCells(_hbins[hbinIdx].cacheSlot).forget();
    return store(hbin, offsetInHbin, data, length);
}

/// Changes a cached hbin and writes it through or remembers that it changed. REQUIRES: the bytes lie inside.
bool RegistryHiveObj::store(CachedHbin& hbin, u32 offsetInHbin, const void* data, u32 length) {
    Mem::copy(_cache.at(hbin.position + offsetInHbin), data, length);
    if (_mode & modeWriteThrough) return writeThrough(hbin, offsetInHbin, length);
    hbin.dirty = true;
    return true;
}

bool RegistryHiveObj::writeThrough(const CachedHbin& hbin, u32 offsetInHbin, u32 length) {
    const u64 position = u64{_hbins[hbin.hbinIdx].offset} + HIVE_HEADER_SIZE + offsetInHbin;
    if (_file->seek(position) != position) {
        log(3, Channel::hive, "Failed to seek to data position: ", position,
            "record: ", _hbins[hbin.hbinIdx].offset + offsetInHbin);
        return false;
    }
    if (_file->write(ShPtr(_cache.at(hbin.position + offsetInHbin)), length) != length) {
        log(3, Channel::hive, "Failed to write data of record: ", _hbins[hbin.hbinIdx].offset + offsetInHbin);
        return false;
    }
    return !_item || _item->flush();
}

bool RegistryHiveObj::internalFlush() {
    if (_mode & (modeReadOnly | modeWriteThrough | modeUnsafe)) return true;
    const auto count = static_cast<u32>(_cache.round().size());
    for (u32 first = 0; first < count;) {
        const u32 end = endOfRun(first);
        if (!writeBack(first, end)) return false;
        first = end;
    }
    return true;
}

/// Behind the last of the round's hbins that can be written in one piece with the one at index `first`: they
/// are changed, and lie one behind the other in the cache and in the file, which is long enough.
u32 RegistryHiveObj::endOfRun(u32 first) {
    const Array<u32>& round = _cache.round();
    u32 next = first + 1;
    for (; !PLAIN_PATH && next < round.size(); ++next) {
        const CachedHbin& last = _cache.entry(round[next - 1]);
        const CachedHbin& hbin = _cache.entry(round[next]);
        if (!last.dirty || !hbin.dirty || hbin.hbinIdx != last.hbinIdx + 1 ||
            hbin.position != last.position + last.size)
            break;
    }
    if (next == first + 1) return next;
    const HbinDescriptor& last = _hbins[_cache.entry(round[next - 1]).hbinIdx];
    return _file->elementCount() < u64{last.offset} + last.size + HIVE_HEADER_SIZE ? first + 1 : next;
}

/// Writes what has changed of the round's hbins from index `first` to `end`, a run. Those written before a
/// failure count as written.
bool RegistryHiveObj::writeBack(u32 first, u32 end) {
    const Array<u32>& round = _cache.round();
    const CachedHbin& head = _cache.entry(round[first]);
    if (!head.dirty) return true;
    const u64 position = u64{_hbins[head.hbinIdx].offset} + HIVE_HEADER_SIZE;
    if (_file->seek(position) != position) {
        log(3, Channel::hive, "Failed to seek to data position: ", position, "hbin: ", head.hbinIdx);
        return false;
    }
    const CachedHbin& tail = _cache.entry(round[end - 1]);
    const u32 bytes = tail.position + tail.size - head.position;
    u64 written = _file->write(ShPtr(_cache.at(head.position)), bytes);
    for (u32 i = first; i < end; ++i) {
        CachedHbin& hbin = _cache.entry(round[i]);
        if (written < hbin.size) {
            log(4, Channel::hive, "Failed to flush hbin: ", hbin.hbinIdx,
                "offset: ", _hbins[hbin.hbinIdx].offset, ", error: ", Error::get());
            return false;
        }
        written -= hbin.size;
        hbin.dirty = false;
    }
    return true;
}

bool RegistryHiveObj::flush() {
    const MonGuard guard(*_mon);
    if (readonly()) return true;
    return internalFlush() && (!_item || _item->flush());
}

}  // namespace Libraries::Files::Hive
