#include "hive/hivelog.h"
#include "hive/plainpath.h"
#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

namespace {

/// Bytes of the file that are read at once where they can stay.
constexpr u32 WINDOW = 64U << 10;

/// What must hold for a record offset before the cells of its hbin are looked at.
bool checkRecordPlace(u32 hbinOffset, u32 hbinSize, u32 offset) {
    constexpr auto function = "Libraries::Files::Hive::RegistryHiveObj::isValidRecord";
    const u64 end = u64{hbinOffset} + hbinSize;
    if (!assertCondition(hbinSize > sizeof(hive_hbin), "hbinSize > sizeof(hive_hbin)", function))
        return false;
    if (!assertCondition(end > offset, "hbinOffset + hbinSize > offset", function)) return false;
    if (offset < u64{hbinOffset} + sizeof(hive_hbin)) {
        log(3, Channel::hive, "Record intersects with HBIN header, record ofs: ", offset);
        return false;
    }
    if (end < u64{offset} + sizeof(hive_record)) {
        log(3, Channel::hive, "No space left for record size, record ofs: ", offset);
        return false;
    }
    return true;
}

void logZeroSizedCell(u32 hbinOffset) {
    log(3, Channel::hive, "Record with 0 size -> HBIN is invalid, hbin: ", hbinOffset);
}

}  // namespace

bool RegistryHiveObj::isValidRecord(const u8* hbin, u32 offset) {
    const RecordView head(hbin, sizeof(hive_hbin));
    const u32 hbinOffset = head.u32At(offsetof(hive_hbin, offset));
    const u32 hbinSize = head.u32At(offsetof(hive_hbin, size));
    if (!checkRecordPlace(hbinOffset, hbinSize, offset)) return false;
    const u32 target = offset - hbinOffset;
    u64 position = sizeof(hive_hbin);
    while (position < target) {
        const u32 length = RecordView(hbin + position, hbinSize - position).absoluteSize();
        if (length == 0) {
            logZeroSizedCell(hbinOffset);
            return false;
        }
        position += length;
    }
    return position == target;
}

/// `isValidRecord` for a cached hbin, answered from its cell map.
bool RegistryHiveObj::isCellBoundary(u32 hbinIdx, u32 position, u32 offset) {
    const HbinDescriptor& hbin = _hbins[hbinIdx];
    // A cell of odd length may end at any offset, while the map knows the aligned ones only.
    if (offset % hive_hbin::RECORD_ALIGNMENT) return isValidRecord(_cache.at(position), offset);
    if (!checkRecordPlace(hbin.offset, hbin.size, offset)) return false;
    CellMap& cells = _cache.entry(hbin.cacheSlot).cells;
    const auto answer = cells.isBoundary(_cache.at(position), hbin.size, offset - hbin.offset);
    if (answer == CellMap::Answer::zeroSizedCell) logZeroSizedCell(hbin.offset);
    return answer == CellMap::Answer::boundary;
}

/// The record at `offset` where nothing stands in the way: its hbin is in the cache and its head was looked
/// at before. Null otherwise, without a word: the long way then tells why.
inline RecordView RegistryHiveObj::knownRecord(u32 offset, u32* hbinIdx, bool expectUnused) {
    const HbinPage* const page = _hbins.page(offset);
    if (!page || !page->isCached() || !_valid) return {};
    const u32 position = page->positionOf(offset);
    __builtin_prefetch(_cache.at(position));
    CachedHbin& cached = _cache.entry(page->slot());
    const u32 inHbin = position - cached.position;
    if (!cached.headChecked || !(readonly() || _cache.isOfRound(page->slot())) ||
        offset % hive_hbin::RECORD_ALIGNMENT || inHbin < sizeof(hive_hbin))
        return {};
    if (!cached.cells.isKnownBoundary(inHbin) &&
        cached.cells.isBoundary(_cache.at(cached.position), cached.size, inHbin) != CellMap::Answer::boundary)
        return {};
    const RecordView record = _cache.view(position);
    const s32 size = record.size();
    if (size == 0 || (size > 0) != expectUnused || record.absoluteSize() > cached.size - inHbin) return {};
    if (hbinIdx) *hbinIdx = page->hbin();
    return record;
}

RecordView RegistryHiveObj::peekRecord(u32 offset) {
    return PLAIN_PATH ? RecordView() : knownRecord(offset, nullptr, false);
}

RecordView RegistryHiveObj::cacheLoadRecord(u32 offset) {
    if (offset % hive_hbin::RECORD_ALIGNMENT) {
        log(4, Channel::hive, "Attempt to access record with invalid alignment, offset: ", offset);
        Error::set(ErrorCode::unalignedOffset);
        return {};
    }
    if (_mode & modeUnsafe) return unsafeGetRecord(offset);
    return cacheLoadRecord(offset, nullptr, false);
}

RecordView RegistryHiveObj::cacheLoadRecord(u32 offset, u32* hbinIdx, bool expectUnused) {
    constexpr auto function = "Libraries::Files::Hive::RegistryHiveObj::cacheLoadRecord";
    if constexpr (!PLAIN_PATH)
        if (const RecordView record = knownRecord(offset, hbinIdx, expectUnused)) return record;
    if (!_valid || !_cache.mapped()) return {};
    if (refuseUnsafe("internal cacheLoadRecord")) return {};
    const u32 index = hbinFromOffset(offset);
    if (index == INVALID_HBIN) return {};
    if (hbinIdx) *hbinIdx = index;
    const u64 position = cacheLoadHbin(index, offset);
    if (position == NO_POSITION) return {};

    const HbinDescriptor& hbin = _hbins[index];
    const auto place = static_cast<u32>(position);
    if (!checkCachedHead(index, place) ||
        !assertCondition(hbin.offset <= offset, "_hbins[hbin].offset <= offset", function) ||
        !assertCondition(u64{hbin.offset} + hbin.size > offset,
                         "_hbins[hbin].offset + _hbins[hbin].size > offset", function))
        return {};
    if (!isCellBoundary(index, place, offset)) {
        log(3, Channel::hive, "Record is not valid: ", offset);
        return {};
    }
    const u32 inHbin = offset - hbin.offset;
    if (hbin.size - inHbin < sizeof(hive_record)) {
        log(3, Channel::hive, "Invalid offset, no space left for size");
        return {};
    }
    const RecordView record = _cache.view(place + inHbin);
    if (record.size() != 0 && (record.size() > 0) != expectUnused) {
        log(3, Channel::hive,
            expectUnused ? "Attempt to access an used record (expected unused), record="
                         : "Attempt to access an unused record, record=",
            offset);
        return {};
    }
    if (record.absoluteSize() > hbin.size - inHbin) {
        log(3, Channel::hive, "Length of record exceeds hbin");
        return {};
    }
    return record;
}

/// Whether a cached hbin's own head says what the hbin table says; asked once for as long as neither changes.
bool RegistryHiveObj::checkCachedHead(u32 hbinIdx, u32 position) {
    constexpr auto function = "Libraries::Files::Hive::RegistryHiveObj::cacheLoadRecord";
    const HbinDescriptor& hbin = _hbins[hbinIdx];
    bool& checked = _cache.entry(hbin.cacheSlot).headChecked;
    if (checked) return true;
    const RecordView head = _cache.view(position);
    checked = assertCondition(hbin.size == head.u32At(offsetof(hive_hbin, size)),
                              "_hbins[hbin].size == L32ToHost(hbin_ptr->size)", function) &&
              assertCondition(hbin.offset == head.u32At(offsetof(hive_hbin, offset)),
                              "_hbins[hbin].offset == L32ToHost(hbin_ptr->offset)", function);
    return checked;
}

/// Reads an hbin into the cache memory, for the record at `offset`.
bool RegistryHiveObj::readHbin(const HbinDescriptor& hbin, u32 position, u32 offset) {
    if (!PLAIN_PATH && readonly()) {
        const u64 inFile = u64{hbin.offset} + HIVE_HEADER_SIZE;
        if (_file->readAt(inFile, ShPtr(_cache.at(position)), hbin.size) == hbin.size) return true;
        if (isBehindFile(offset)) return false;
    }
    if (!seekToHbin(hbin.offset, "Failed to seek to hbin position: ")) return false;
    if (_file->read(ShPtr(_cache.at(position)), hbin.size) == hbin.size) return true;
    log(3, Channel::hive, "Failed to read hbin");
    return false;
}

/// Reads an hbin and those around it that are not there yet by one call, where the cache has room for hbins
/// that nobody has asked for: reading one costs nearly as much. False when that did not come about.
bool RegistryHiveObj::readNeighbours(u32 hbinIdx) {
    // Of a hive that is larger than the cache most would be dropped again before it is asked for.
    if (!readonly() || hbinsSize() > HbinCache::RETAINED_BYTES || _cache.spare() < WINDOW) return false;
    const u32 windowStart = _hbins[hbinIdx].offset / WINDOW * WINDOW;
    const u64 windowEnd = u64{windowStart} + WINDOW;
    const auto belongs = [&](u32 index) {
        const HbinDescriptor& hbin = _hbins[index];
        return hbin.offset >= windowStart && u64{hbin.offset} + hbin.size <= windowEnd && !hbin.isCached();
    };
    if (!belongs(hbinIdx)) return false;
    u32 first = hbinIdx;
    while (first > 0 && belongs(first - 1)) --first;
    u32 end = hbinIdx + 1;
    while (end < _hbins.size() && belongs(end)) ++end;
    if (end - first == 1) return false;
    const u64 bytes = u64{_hbins[end - 1].offset} + _hbins[end - 1].size - _hbins[first].offset;
    const u64 inFile = u64{_hbins[first].offset} + HIVE_HEADER_SIZE;
    const u32 error = Error::get();
    if (_file->readAt(inFile, ShPtr(_cache.at(_cache.end())), bytes) != bytes) {
        Error::set(error);  // nobody has asked for all of these
        return false;
    }
    for (u32 index = first; index < end; ++index) {
        const HbinDescriptor& hbin = _hbins[index];
        const u32 position = _cache.end();
        const u32 slot = index == hbinIdx ? _cache.add(index, hbin.size, hbin.wasLoaded())
                                          : _cache.addUnasked(index, hbin.size);
        _hbins.setCached(index, slot, position);
    }
    return true;
}

/// The position of an hbin in the cache memory. `offset` is the record wanted, which matters only where the
/// hive is read-only.
u64 RegistryHiveObj::cacheLoadHbin(u32 hbinIdx, u32 offset) {
    if (refuseUnsafe("cacheLoadHbin")) return NO_POSITION;
    if (hbinIdx >= _hbins.size()) {
        log(3, Channel::hive, "Invalid hbin idx: ", hbinIdx);
        return NO_POSITION;
    }
    const HbinDescriptor hbin = _hbins[hbinIdx];
    if (hbin.isCached() && (readonly() || _cache.isOfRound(hbin.cacheSlot)))
        return _cache.entry(hbin.cacheSlot).position;
    const u32 position = getFreeCacheChunk(hbin.size);
    if (position == INVALID_RECORD) return NO_POSITION;
    if (_hbins[hbinIdx].isCached()) {  // from an earlier round, and not dropped to make room
        _cache.takeIntoRound(hbin.cacheSlot);
        return _cache.entry(hbin.cacheSlot).position;
    }
    if (readNeighbours(hbinIdx)) return _cache.entry(_hbins[hbinIdx].cacheSlot).position;
    if (!readHbin(hbin, position, offset)) return NO_POSITION;
    _hbins.setCached(hbinIdx, _cache.add(hbinIdx, hbin.size, hbin.wasLoaded()), position);
    return position;
}

/// Takes an hbin into the cache of which the file holds zeros alone, without reading them.
bool RegistryHiveObj::cacheBlankHbin(u32 hbinIdx) {
    const u32 size = _hbins[hbinIdx].size;
    const u32 position = getFreeCacheChunk(size);
    if (position == INVALID_RECORD) return false;
    Mem::fill8(_cache.at(position), 0, size);
    _hbins.setCached(hbinIdx, _cache.add(hbinIdx, size, false), position);
    return true;
}

u32 RegistryHiveObj::getFreeCacheChunk(u32 size) {
    constexpr auto function = "Libraries::Files::Hive::RegistryHiveObj::getFreeCacheChunk";
    if (refuseUnsafe("getFreeCacheChunk") || !_cache.mapped()) return INVALID_RECORD;
    assertCondition(_cache.used() <= _cache.size(), "sizecounter <= _cacheSize", function);
    if (size <= _cache.room()) return _cache.end();
    if (!internalFlush()) {
        log(3, Channel::hive, "Flush failed");
        return INVALID_RECORD;
    }
    // In write-through mode a failed write leaves the cache and the file apart: the next round reads anew.
    const bool mayRetain = !PLAIN_PATH && size <= _cache.size() && !(_mode & modeWriteThrough);
    if (!_cache.nextRound(mayRetain)) emptyCache();
    if (size > _cache.size() && !replaceCache(u64{2} * size)) return INVALID_RECORD;
    return _cache.end();
}

bool RegistryHiveObj::replaceCache(u64 size) {
    if (!_cache.allocate(size)) {
        _valid = false;
        log(4, Channel::hive, "Failed to allocate new buffer: ", size);
        return false;
    }
    if (!_cache.map()) {
        _valid = false;
        log(4, Channel::hive, "Failed to map buffer after reallocation");
        return false;
    }
    return true;
}

void RegistryHiveObj::emptyCache() {
    for (const CachedHbin& entry : _cache.entries()) _hbins.setDropped(entry.hbinIdx);
    _cache.clear();
}

RecordView RegistryHiveObj::unsafeGetRecord(u32 offset) {
    constexpr auto function = "Libraries::Files::Hive::RegistryHiveObj::unsafeGetRecord";
    if (!assertCondition((_mode & modeUnsafe) != 0, "_mode & modeUnsafe", function) ||
        !assertCondition(bool(_unsafeCache), "_unsafeCache != 0", function))
        return {};
    const u64 position = u64{offset} + HIVE_HEADER_SIZE;
    const RecordView head = _unsafeCache->get(position, sizeof(hive_record));
    if (!head) return {};
    if (head.size() >= 0) {
        log(3, Channel::hive, "Attempt to access an unused record in unsafe mode, record=", offset);
        return {};
    }
    const RecordView record = _unsafeCache->get(position, head.absoluteSize());
    if (!record) log(3, Channel::hive, "Failed to get record in unsafe mode, record=", offset);
    return record;
}

}  // namespace Libraries::Files::Hive
