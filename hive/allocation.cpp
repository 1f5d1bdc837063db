#include "hive/hivelog.h"
#include "hive/plainpath.h"
#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

namespace {

/// The largest cell: its length stands as a negative 32-bit number while it is in use.
constexpr u32 MAX_CELL_SIZE = 0x7FFFFFF8;

/// A requested cell size rounded up to the alignment; 0 stays 0.
u32 aligned(u32 size) {
    return static_cast<u32>(alignedLength(size));
}

}  // namespace

u32 RegistryHiveObj::allocateRecord(u32 size, u32* allocatedSize) {
    if (refuseChange("allocateRecord")) return INVALID_RECORD;
    const u32 length = aligned(size);
    if (allocatedSize) *allocatedSize = length;
    if (size > MAX_CELL_SIZE) {
        Error::set(ErrorCode::allocationFailed);
        return INVALID_RECORD;
    }
    u32 hbinIdx = _hbins.firstWithRoom(length);
    if (hbinIdx == INVALID_HBIN && _hbins.end() < hbinsSize()) {
        if (hbinFromOffset(hbinsSize() - 5) == INVALID_HBIN) {  // an offset in the last hbin: discovers all
            Error::set(ErrorCode::allocationFailed);
            return INVALID_RECORD;
        }
        hbinIdx = _hbins.firstWithRoom(length);
    }
    const u32 record = hbinIdx == INVALID_HBIN ? appendHbin(length) : _hbins[hbinIdx].largestFreeRecord;
    if (record == INVALID_RECORD) {
        Error::set(ErrorCode::allocationFailed);
        return INVALID_RECORD;
    }
    if (initRecord(record, length)) return record;
    if (hbinIdx == INVALID_HBIN)
        log(4, Channel::hive, "Failed to initialize new record after creating a new HBIN. record=", record);
    Error::set(ErrorCode::allocationFailed);
    return INVALID_RECORD;
}

/// Appends an hbin that holds a record of `length` bytes; returns the offset of its one free cell. Steps done
/// before a failure stay done.
u32 RegistryHiveObj::appendHbin(u32 length) {
    const u32 oldSize = hbinsSize();
    if (_hbins.end() != oldSize)
        return INVALID_RECORD;  // a damaged base block: the hbin would not join the others
    const u64 hbinSize =
        ((u64{length} + sizeof(hive_hbin) - 1) / HBIN_READ_BUFFER_SIZE + 1) * HBIN_READ_BUFFER_SIZE;
    const u64 newSize = oldSize + hbinSize;
    bool isBlank = false;
    if (newSize + HIVE_HEADER_SIZE > UINT32_MAX || !growFile(static_cast<u32>(newSize), isBlank))
        return INVALID_RECORD;
    _hbins.append({oldSize, static_cast<u32>(hbinSize)});
    if (_file->seek(0) != 0 || _file->write(ShPtr(&_header), HIVE_HEADER_SIZE) != HIVE_HEADER_SIZE) {
        log(4, Channel::hive, "Failed to write header on resize");
        return INVALID_RECORD;
    }
    const u32 index = _hbins.size() - 1;
    if ((isBlank && !PLAIN_PATH && !cacheBlankHbin(index)) || !writeHbinHead(index)) {
        log(4, Channel::hive, "Failed to write new hbin header on resize");
        return INVALID_RECORD;
    }
    if (index > 0) {
        const u32 distance = HostToL32(_hbins[index - 1].size);
        if (!writeHBIN(index - 1, offsetof(hive_hbin, next), &distance, sizeof(distance))) {
            log(4, Channel::hive, "Failed to write last hbin offset pointer on resize");
            return INVALID_RECORD;
        }
    }
    return oldSize + sizeof(hive_hbin);
}

/// Makes the file and the base block's hbins area long enough. `isBlank`: all the file had to be given is
/// new.
bool RegistryHiveObj::growFile(u32 newSize, bool& isBlank) {
    const u64 needed = u64{newSize} + HIVE_HEADER_SIZE;
    const u64 present = _file->elementCount();
    isBlank = present <= u64{hbinsSize()} + HIVE_HEADER_SIZE;
    if (present < needed && _file->setElementCount(needed) != needed) return false;
    _header.hbinsSize = HostToL32(newSize);
    _header.checksum = HostToL32(calculateHeaderChecksum(&_header));
    return true;
}

bool RegistryHiveObj::writeHbinHead(u32 hbinIdx) {
    struct {
        hive_hbin hbin;
        hive_record cell;
    } head{};
    const HbinDescriptor& hbin = _hbins[hbinIdx];
    Mem::copy(head.hbin.signature, hive_hbin::SIGNATURE, sizeof(head.hbin.signature));
    head.hbin.offset = HostToL32(hbin.offset);
    head.hbin.size = HostToL32(hbin.size);
    head.cell.size = static_cast<s32>(HostToL32(hbin.size - u32{sizeof(hive_hbin)}));
    static_assert(sizeof(head) == 36);
    return writeHBIN(hbinIdx, 0, &head, sizeof(head));
}

bool RegistryHiveObj::writeCellSize(u32 hbinIdx, u32 offset, s32 size) {
    const u32 field = HostToL32(static_cast<u32>(size));
    return writeHBIN(hbinIdx, offset - _hbins[hbinIdx].offset, &field, sizeof(field));
}

bool RegistryHiveObj::initRecord(u32 offset, u32 size) {
    if (refuseChange("initRecord")) return false;
    u32 hbinIdx = INVALID_HBIN;
    const RecordView record = cacheLoadRecord(offset, &hbinIdx, true);
    if (!record) return false;
    const u32 length = record.absoluteSize();
    if (length < size) return false;
    const u32 behind = freeBehind(record, hbinIdx, offset);
    const u32 changed = size == length ? length : length + behind;
    const Unwritten unwritten = writeCells(hbinIdx, offset, changed, -static_cast<s32>(size));
    if (unwritten != Unwritten::nothing) {
        log(3, Channel::hive,
            unwritten == Unwritten::cell ? "Failed to write record while initializing, record="
                                         : "Failed to write free record while initializing, record=",
            offset);
        return restoreCellSize(hbinIdx, offset, static_cast<s32>(length));
    }
    noteChange(hbinIdx, offset, changed, offset + size, changed - size);
    return true;
}

/// Makes one cell of `size` (negative: used), and a free one of what is left, of the whole cells that take
/// `total` bytes from `offset` on.
RegistryHiveObj::Unwritten RegistryHiveObj::writeCells(u32 hbinIdx, u32 offset, u32 total, s32 size) {
    const u32 length = static_cast<u32>(size < 0 ? -size : size);
    const auto rest = static_cast<s32>(total - length);
    if (PLAIN_PATH || (_mode & modeWriteThrough)) {
        if (!writeCellSize(hbinIdx, offset, size)) return Unwritten::cell;
        if (rest && !writeCellSize(hbinIdx, offset + length, rest)) return Unwritten::rest;
        return Unwritten::nothing;
    }
    if (!isAtHand(hbinIdx) && cacheLoadHbin(hbinIdx) == NO_POSITION) return Unwritten::cell;
    const u32 inHbin = offset - _hbins[hbinIdx].offset;
    CachedHbin& hbin = _cache.entry(_hbins[hbinIdx].cacheSlot);
    const auto put = [cell = _cache.at(hbin.position + inHbin)](u32 at, s32 value) {
        const u32 field = HostToL32(static_cast<u32>(value));
        std::memcpy(cell + at, &field, sizeof(field));
    };
    put(0, size);
    if (rest) put(length, rest);
    hbin.dirty = true;
    hbin.cells.retiled(hbin.size, inHbin, inHbin + length, inHbin + total);
    return Unwritten::nothing;
}

/// Undoes a change of a cell that failed halfway, and returns false: a failed write has changed the cache
/// already, whose cells must go on to tile the hbin. Any free cells behind stay good as they are.
bool RegistryHiveObj::restoreCellSize(u32 hbinIdx, u32 offset, s32 size) {
    writeCellSize(hbinIdx, offset, size);
    updateFreeSpace(hbinIdx);
    return false;
}

u32 RegistryHiveObj::getFreeSpaceBehindRecord(u32 offset, bool expectUnused) {
    if (refuseUnsafe("getFreeSpaceBehindRecord")) return INVALID_RECORD;
    u32 hbinIdx = INVALID_HBIN;
    const RecordView record = cacheLoadRecord(offset, &hbinIdx, expectUnused);
    return record ? freeBehind(record, hbinIdx, offset) : 0;
}

u32 RegistryHiveObj::freeBehind(const RecordView& record, u32 hbinIdx, u32 offset) const {
    const HbinDescriptor& hbin = _hbins[hbinIdx];
    const u32 inHbin = offset - hbin.offset;
    u64 position = u64{inHbin} + record.absoluteSize();
    u32 total = 0;
    while (position + sizeof(hive_record) <= hbin.size) {
        const auto size = static_cast<s32>(record.u32At(position - inHbin));
        if (size < 0) return total;
        if (size == 0 || position + static_cast<u32>(size) > hbin.size ||
            static_cast<u32>(size) % hive_hbin::RECORD_ALIGNMENT) {
            log(3, Channel::hive, "Invalid unused record after record: ", offset);
            log(1, Channel::hive, "next_size: ", size);
            return 0;
        }
        total += static_cast<u32>(size);
        position += static_cast<u32>(size);
    }
    return total;
}

bool RegistryHiveObj::updateFreeSpace(u32 hbinIdx) {
    constexpr auto function = "Libraries::Files::Hive::RegistryHiveObj::updateFreeSpace";
    if (refuseUnsafe("updateFreeSpace")) return false;
    if (!assertCondition(hbinIdx < _hbins.size(), "hbin_idx < _hbins.size()", function)) return false;
    const u64 place = cacheLoadHbin(hbinIdx);
    if (place == NO_POSITION) return false;
    const u32 hbinOffset = _hbins[hbinIdx].offset;
    const u32 hbinSize = _hbins[hbinIdx].size;
    const u8* const hbin = _cache.at(static_cast<u32>(place));
    const auto fieldAt = [hbin](u64 position) {
        u32 field;
        std::memcpy(&field, hbin + position, sizeof(field));
        return L32ToHost(field);
    };
    assertCondition(hbinSize == fieldAt(offsetof(hive_hbin, size)), "size == _hbins[hbin_idx].size",
                    function);
    FreeCells& known = _cache.freeCells(_hbins[hbinIdx].cacheSlot);
    known.clear();
    bool sound = true;
    u64 position = sizeof(hive_hbin);
    while (sound && position + sizeof(hive_record) < hbinSize) {
        const auto size = static_cast<s32>(fieldAt(position));
        const u32 length = size < 0 ? 0U - static_cast<u32>(size) : static_cast<u32>(size);
        const u32 record = hbinOffset + static_cast<u32>(position);
        sound = length >= sizeof(hive_record) && length % hive_hbin::RECORD_ALIGNMENT == 0;
        if (!sound) {
            log(3, Channel::hive, "Invalid record size: ", length);
            log(1, Channel::hive, "record: ", record);
        } else if (size > 0) {
            known.add(record, length);
        }
        position += length;
    }
    u32 record = 0, largest = 0, others = 0;
    known.largest(record, largest, others);
    sound = sound && position == hbinSize;
    if (!sound) known.forget();
    _hbins.setLargestFree(hbinIdx, largest, record, sound ? others : UNKNOWN_LENGTH);
    return true;
}

/// Brings an hbin's largest free cell in step after the `length` bytes at `offset`, whole cells, have become
/// used cells and one free cell (none if `freeLength` is 0). Looks at all its cells only where it must: when
/// the largest has gone, and when they were not sound, so that the log goes on telling.
void RegistryHiveObj::noteChange(u32 hbinIdx, u32 offset, u32 length, u32 freeRecord, u32 freeLength) {
    const HbinDescriptor& hbin = _hbins[hbinIdx];
    const u32 largest = hbin.largestFree, record = hbin.largestFreeRecord, others = hbin.otherFree;
    if (PLAIN_PATH || others == UNKNOWN_LENGTH) {
        updateFreeSpace(hbinIdx);
        return;
    }
    FreeCells& known = _cache.freeCells(hbin.cacheSlot);
    known.remove(offset, length);
    known.add(freeRecord, freeLength);
    const bool gone = largest && record >= offset && record - offset < length;
    if (gone && (freeLength > others || others == 0)) {
        _hbins.setLargestFree(hbinIdx, freeLength, freeLength ? freeRecord : 0, others);
    } else if (gone) {
        u32 newRecord = 0, newLargest = 0, newOthers = 0;
        if (known.largest(newRecord, newLargest, newOthers))
            _hbins.setLargestFree(hbinIdx, newLargest, newRecord, newOthers);
        else
            updateFreeSpace(hbinIdx);
    } else if (freeLength > largest || (freeLength == largest && freeLength && freeRecord < record)) {
        _hbins.setLargestFree(hbinIdx, freeLength, freeRecord, std::max(others, largest));
    } else {
        _hbins.setLargestFree(hbinIdx, largest, record, std::max(others, freeLength));
    }
}

u32 RegistryHiveObj::resizeRecord(u32 offset, u32 size, bool copyData, u32* allocatedSize,
                                  bool keepIfLarger) {
    constexpr auto function = "Libraries::Files::Hive::RegistryHiveObj::resizeRecord";
    if (refuseChange("resizeRecord")) return INVALID_RECORD;
    const u32 wanted = aligned(size);
    if (allocatedSize) *allocatedSize = wanted;
    if (size > MAX_CELL_SIZE) {
        Error::set(ErrorCode::allocationFailed);
        return INVALID_RECORD;
    }
    u32 hbinIdx = INVALID_HBIN;
    const RecordView record = cacheLoadRecord(offset, &hbinIdx, false);
    if (!record) return INVALID_RECORD;
    const u32 current = record.usedSize();
    const HbinDescriptor& hbin = _hbins[hbinIdx];
    assertCondition(
        offset > hbin.offset && u64{offset} + current <= u64{hbin.offset} + hbin.size,
        "offsetOfRecord > _hbins[hbin].offset && offsetOfRecord + recordsize <= _hbins[hbin].offset + "
        "_hbins[hbin].size",
        function);
    if (current == wanted || (current > wanted && keepIfLarger)) return offset;
    const u32 available = current + freeBehind(record, hbinIdx, offset);
    assertCondition(available % hive_hbin::RECORD_ALIGNMENT == 0,
                    "(recordSize + freeBehind) % hive_hbin::RECORD_ALIGNMENT == 0", function);
    if (wanted == 0) return freeRecord(hbinIdx, offset, current, available) ? 0 : INVALID_RECORD;
    if (available >= wanted) {
        const Unwritten unwritten = writeCells(hbinIdx, offset, available, -static_cast<s32>(wanted));
        if (unwritten != Unwritten::nothing) {
            log(3, Channel::hive,
                unwritten == Unwritten::cell ? "Failed to write record while resizing, record="
                                             : "Failed to write free record while resizing, record=",
                offset);
            restoreCellSize(hbinIdx, offset, -static_cast<s32>(current));
            return INVALID_RECORD;
        }
        noteChange(hbinIdx, offset, available, offset + wanted, available - wanted);
        return offset;
    }
    const u32 moved = moveRecord(offset, current, wanted, copyData);
    if (moved == INVALID_RECORD) return INVALID_RECORD;
    if (!freeRecord(hbinIdx, offset, current, available)) {
        log(3, Channel::hive, "Failed to write free record while resizing (re-allocate), record=", offset);
        return INVALID_RECORD;
    }
    return moved;
}

bool RegistryHiveObj::freeRecord(u32 hbinIdx, u32 offset, u32 current, u32 available) {
    if (writeCells(hbinIdx, offset, available, static_cast<s32>(available)) != Unwritten::nothing)
        return restoreCellSize(hbinIdx, offset, -static_cast<s32>(current));
    noteChange(hbinIdx, offset, available, offset, available);
    return true;
}

/// Allocates a record of `wanted` bytes and carries the old one's body over if asked; frees nothing.
u32 RegistryHiveObj::moveRecord(u32 offset, u32 current, u32 wanted, bool copyData) {
    const u32 bodySize = current > sizeof(hive_record) ? current - static_cast<u32>(sizeof(hive_record)) : 0;
    const u8* body = nullptr;
    HeapBuffer copy;
    if (copyData && bodySize) {
        const RecordView record = cacheLoadRecord(offset, nullptr, false);
        if (!record) return INVALID_RECORD;
        body = record.bytesAt(sizeof(hive_record), bodySize);
        // Placing the record may load an hbin, and the old one may have to make room for it.
        if (PLAIN_PATH || !body || !isAtHand(_hbins.firstWithRoom(wanted))) {
            copy = heapBuffer(bodySize);
            if (!copy) {
                Error::set(ErrorCode::allocationFailed);
                return INVALID_RECORD;
            }
            record.copy(copy.get(), sizeof(hive_record), bodySize);
            body = copy.get();
        }
    }
    const u32 moved = allocateRecord(wanted, nullptr);
    if (moved == INVALID_RECORD) {
        log(3, Channel::hive, "Failed to allocate new record with size: ", wanted);
        return INVALID_RECORD;
    }
    if (body && !writeRecord(moved, body, sizeof(hive_record), bodySize)) return INVALID_RECORD;
    return moved;
}

}  // namespace Libraries::Files::Hive
