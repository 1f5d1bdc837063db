#include "hive/hivelog.h"
#include "hive/plainpath.h"
#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

namespace {
constexpr u32 PIECE = HBIN_READ_BUFFER_SIZE;
}  // namespace

u32 RegistryHiveObj::hbinFromOffset(u32 offset) {
    constexpr auto function = "Libraries::Files::Hive::RegistryHiveObj::hbinFromOffset";
    if (!_cache.mapped()) return INVALID_HBIN;
    const u64 end = u64{offset} + HIVE_HEADER_SIZE + RECORD_HEAD_SIZE;
    const bool checked = !(_mode & modeUnsafe);
    if (checked && (end > UINT32_MAX || u64{offset} + RECORD_HEAD_SIZE >= hbinsSize())) return INVALID_HBIN;
    const bool known = !_hbins.empty() && offset <= _hbins.end();
    const u32 found = known ? _hbins.find(offset) : _hbins.size();
    // The file may have shrunk under us; only what is cached does without it. What is only going to be read
    // tells by itself.
    const bool cached = found < _hbins.size() && _hbins[found].isCached();
    const bool willTell = !PLAIN_PATH && readonly() && found < _hbins.size() &&
                          _hbins.holding(offset) == found && _hbins[found].size <= _cache.room();
    if (checked && !cached && !willTell && isBehindFile(offset)) return INVALID_HBIN;
    if (!known) return discoverHbins(offset);

    if (!assertCondition(found < _hbins.size(), "ele != _hbins.end()", function)) return INVALID_HBIN;
    const HbinDescriptor& ele = _hbins[found];
    // Fails for an offset right at an hbin's end, where no cell can be; the record access then finds none.
    assertCondition(ele.offset <= offset && u64{ele.offset} + ele.size > offset,
                    "ele->offset <= offset && ele->offset + ele->size > offset", function);
    return found;
}

/// Whether the file ends before the record at `offset` has a size field.
bool RegistryHiveObj::isBehindFile(u32 offset) const {
    return u64{offset} + HIVE_HEADER_SIZE + RECORD_HEAD_SIZE >= _file->elementCount();
}

/// Takes in hbins by reading no more than their heads, and the last one whole where that is known, up to the
/// one that holds `offset` or one that cannot be taken in this way: what is wrong with that one, if anything,
/// the long way tells.
void RegistryHiveObj::stepOverHbins(u32 offset, u32 buffer) {
    const u64 fileSize = _file->elementCount();
    while (_hbins.end() <= offset) {
        const u64 position = _hbins.end() + HIVE_HEADER_SIZE;
        const bool isWanted =
            offset < _hbins.end() + PIECE;  // and most hbins are of that size: read it at once
        const u64 bytes = isWanted ? PIECE : sizeof(hive_hbin);
        if (position + PIECE > fileSize || _file->readAt(position, ShPtr(_cache.at(buffer)), bytes) != bytes)
            return;
        const auto head = _cache.view(buffer).as<hive_hbin>();
        const HbinDescriptor hbin{L32ToHost(head.offset), L32ToHost(head.size)};
        if (std::memcmp(head.signature, hive_hbin::SIGNATURE, sizeof(head.signature)) != 0 ||
            hbin.offset != _hbins.end() || hbin.size == 0 || hbin.size % HBIN_READ_BUFFER_SIZE ||
            u64{hbin.offset} + hbin.size > hbinsSize())
            return;
        _hbins.append(hbin);
        if (!isWanted || hbin.size != PIECE) continue;
        const u32 index = _hbins.size() - 1;
        _hbins.setCached(index, _cache.add(index, PIECE, false), buffer);
    }
}

u32 RegistryHiveObj::discoverHbins(u32 offset) {
    const u32 buffer = getFreeCacheChunk(PIECE);
    if (buffer == INVALID_RECORD) return INVALID_HBIN;
    if (!PLAIN_PATH && readonly()) {
        stepOverHbins(offset, buffer);
        if (offset < _hbins.end()) return _hbins.size() - 1;
    }
    if (!seekToHbin(_hbins.end(), "Failed to seek to last hbin position: ")) return INVALID_HBIN;
    for (;;) {
        hive_hbin header;
        if (!readHbinHeader(buffer, _hbins.end(), header)) return INVALID_HBIN;
        HbinDescriptor hbin{L32ToHost(header.offset), L32ToHost(header.size)};
        const u64 end = u64{hbin.offset} + hbin.size;
        // A read-only hive needs no free cells, so its hbins are stepped over. A scan stops at the last
        // cell's head, which may lie pages before the hbin's end; either way the stripe must stand at the
        // next hbin.
        if (!readonly() && !scanFreeCells(buffer, hbin)) return INVALID_HBIN;
        if (_file->pos() != end + HIVE_HEADER_SIZE && hbin.size != PIECE &&
            !seekToHbin(end, "Failed to seek to position [find free]: "))
            return INVALID_HBIN;
        _hbins.append(hbin);
        if (offset < end) return _hbins.size() - 1;
    }
}

bool RegistryHiveObj::seekToHbin(u64 hbinOffset, const char* failure) {
    const u64 position = hbinOffset + HIVE_HEADER_SIZE;
    if (_file->seek(position) == position) return true;
    log(3, Channel::hive, failure, position);
    return false;
}

bool RegistryHiveObj::readHbinHeader(u32 buffer, u64 expectedOffset, hive_hbin& header) {
    const u64 position = _file->pos();
    const u64 expectedPosition = expectedOffset + HIVE_HEADER_SIZE;
    // Only warns: the header check below tells whether what stands there is the hbin.
    if (position != expectedPosition)
        log(3, Channel::hive, "Expected current stripe offset ", expectedPosition,
            " does not match file offset ", position);
    if (_file->read(ShPtr(_cache.at(buffer)), PIECE) != PIECE) {
        log(3, Channel::hive, "Failed to read hbin header");
        return false;
    }
    header = _cache.view(buffer).as<hive_hbin>();
    if (std::memcmp(header.signature, hive_hbin::SIGNATURE, sizeof(header.signature)) != 0) {
        log(4, Channel::hive, "Unexpected hbin signature: ",
            std::string_view(reinterpret_cast<const char*>(header.signature), sizeof(header.signature)));
        return false;
    }
    const u32 offset = L32ToHost(header.offset);
    const u32 size = L32ToHost(header.size);
    if (offset != expectedOffset) {
        log(4, Channel::hive, "Wrong offset for hbin");
        log(1, Channel::hive, "expected: ", expectedOffset);
        log(1, Channel::hive, "is: ", offset);
        return false;
    }
    if (size == 0 || size % HBIN_READ_BUFFER_SIZE) {
        log(4, Channel::hive, "Invalid size for hbin: ", size);
        return false;
    }
    if (u64{offset} + size > hbinsSize()) {
        log(4, Channel::hive, "Hbin exeeds total length");
        return false;
    }
    return true;
}

bool RegistryHiveObj::scanFreeCells(u32 buffer, HbinDescriptor& hbin) {
    constexpr auto function = "Libraries::Files::Hive::RegistryHiveObj::hbinFromOffset";
    const u64 end = u64{hbin.offset} + hbin.size;
    u32 last = hbin.offset;  // the piece in the buffer
    u64 next = u64{hbin.offset} + sizeof(hive_hbin);
    while (next < end) {
        const auto record = static_cast<u32>(next);
        const u32 current = record - (record - hbin.offset) % PIECE;
        assertCondition(record % hive_hbin::RECORD_ALIGNMENT == 0,
                        "next_rec % hive_hbin::RECORD_ALIGNMENT == 0", function);
        assertCondition(current >= last, "current >= last", function);
        if (current != last && !readNextPiece(buffer, current, last)) return false;
        const RecordView cell = _cache.view(buffer + (record - current));
        const u32 length = cell.absoluteSize();
        if (length < sizeof(hive_record)) {
            log(3, Channel::hive, "record with invalid size: ", length);
            log(1, Channel::hive, "record offset: ", record);
            return false;
        }
        if (length > end - next) {
            log(3, Channel::hive, "Length of record exceeds hbin");
            return false;
        }
        if (cell.size() > 0 && length > hbin.largestFree) {
            hbin.largestFree = length;
            hbin.largestFreeRecord = record;
        }
        next += alignedLength(length);
    }
    return true;
}

bool RegistryHiveObj::readNextPiece(u32 buffer, u32 piece, u32& last) {
    assertCondition(_file->pos() == u64{last} + HIVE_HEADER_SIZE + PIECE,
                    "_file->pos() == last + sizeof(hive_header) + HBIN_READ_BUFFER_SIZE",
                    "Libraries::Files::Hive::RegistryHiveObj::hbinFromOffset");
    // A cell longer than a piece leads past pieces that need not be read.
    const bool adjacent = piece == last + PIECE;
    if ((!adjacent && !seekToHbin(piece, "Failed to seek to position [find free]: ")) ||
        _file->read(ShPtr(_cache.at(buffer)), PIECE) != PIECE) {
        log(3, Channel::hive, "Failed to read hbin data");
        return false;
    }
    last = piece;
    return true;
}

}  // namespace Libraries::Files::Hive
