#include "regfile/salvage/salvagefile.h"

#include "platform/iochar/stringutil.h"

namespace Libraries::Files::Hive {

namespace {

constexpr u64 PAGE = HBIN_READ_BUFFER_SIZE;
constexpr u64 UNIT = hive_hbin::RECORD_ALIGNMENT;
constexpr u64 MAX_FILE = u64{1} << 32;  // record offsets reach no further
constexpr u64 LEAST_CELL = 8;
constexpr u64 PIECE = 65536;

u64 absolute(u32 sizeField) {
    return static_cast<s32>(sizeField) < 0 ? 0U - sizeField : sizeField;
}

}  // namespace

std::string salvageHex(u64 number) {
    return "0x" + Platform::StrConv::str(number, 16)->to8();
}

const char* SalvageCell::trouble() const {
    switch (state) {
        case used:
            return "is in use";
        case brokenSize:
            return "has a broken size";
        case free:
            return "is marked free";
        case noCell:
            return "is not where a cell begins";
        case outside:
            return offset % UNIT ? "is not at a multiple of 8" : "lies outside the hbins of the file";
    }
    return "";
}

SalvageFile::SalvageFile(const Ref<Interfaces::Stripe>& stripe)
    : _stripe(stripe), _cache(Platform::makeRef<ReadOnlyCache>(stripe)) {
    const u64 length = std::min(stripe->elementCount(), MAX_FILE);
    readAt(0, &_header, std::min<u64>(length, sizeof(_header)));
    _areaSize = length > HIVE_HEADER_SIZE ? length - HIVE_HEADER_SIZE : 0;
    findStretches();
}

bool SalvageFile::readAt(u64 position, void* destination, u64 count) {
    for (u64 done = 0; done < count;) {
        const u64 piece = std::min(count - done, PIECE);
        u8* const to = static_cast<u8*>(destination) + done;
        if (const RecordView view = _cache->get(position + done, piece)) {
            view.copy(to, 0, piece);
        } else if (_stripe->seek(position + done) != position + done ||
                   _stripe->read(ShPtr(to), piece) != piece) {
            return false;  // nor without what the cache reads around it, which may be a bad place of a disk
        }
        done += piece;
    }
    return true;
}

bool SalvageFile::read(u64 offset, void* destination, u64 count) {
    return offset <= _areaSize && count <= _areaSize - offset &&
           readAt(offset + HIVE_HEADER_SIZE, destination, count);
}

u32 SalvageFile::u32At(u64 offset) {
    u32 field = 0;
    return read(offset, &field, sizeof(field)) ? L32ToHost(field) : 0;
}

bool SalvageFile::isHbinHead(u64 offset) {
    hive_hbin head{};
    return read(offset, &head, sizeof(head)) && L32ToHost(head.offset) == offset &&
           std::memcmp(head.signature, hive_hbin::SIGNATURE, sizeof(head.signature)) == 0;
}

u64 SalvageFile::findHbinHead(u64 from, u64 to) {
    while (from < to && !isHbinHead(from)) from += PAGE;
    return std::min(from, to);
}

void SalvageFile::findStretches() {
    for (u64 at = 0; at < _areaSize;) {
        if (!isHbinHead(at)) {
            const u64 next = findHbinHead(at + PAGE, _areaSize);
            _stretches.push_back({at, next, next, false});
            _stretches.back().damage = "no hbin begins at " + salvageHex(at);
            if (at > 0) _stretches[_stretches.size() - 2].limit = next;
            at = next;
            continue;
        }
        const u64 size = u32At(at + offsetof(hive_hbin, size));
        const bool possible = size > 0 && size % PAGE == 0 && size <= _areaSize - at;
        u64 end = possible ? at + size : _areaSize;
        // Where the size does not lead to the next hbin or the end, it may have gone over some.
        if (end == _areaSize ? !possible || size > PAGE : !isHbinHead(end))
            end = findHbinHead(at + PAGE, end);
        _stretches.push_back({at, end, end, true});
        if (size > _areaSize - at)
            _stretches.back().damage = "the hbin at " + salvageHex(at) + " reaches behind the file's end";
        else if (!possible || end != at + size)
            _stretches.back().damage =
                "the hbin at " + salvageHex(at) + " has the wrong size " + salvageHex(size);
        at = end;
    }
}

SalvageFile::Stretch& SalvageFile::walked(u64 offset) {
    const auto behind = std::upper_bound(_stretches.begin(), _stretches.end(), offset,
                                         [](u64 at, const Stretch& stretch) { return at < stretch.begin; });
    Stretch& stretch = *(behind - 1);
    if (!stretch.walked) walkCells(stretch);
    return stretch;
}

void SalvageFile::walkCells(Stretch& stretch) {
    stretch.walked = true;
    stretch.intact = false;
    if (!stretch.isHbin) return;
    stretch.cells.resize(toSize((stretch.end - stretch.begin) / UNIT / 64 + 1));
    u64 at = stretch.begin + sizeof(hive_hbin);
    while (at < stretch.end) {
        const u64 place = (at - stretch.begin) / UNIT;
        stretch.cells[toSize(place / 64)] |= u64{1} << place % 64;
        const u64 length = absolute(u32At(at));
        if (length < LEAST_CELL || length % UNIT || length > stretch.end - at) {
            if (stretch.damage.empty())
                stretch.damage = "the cells of the hbin at " + salvageHex(stretch.begin) + " break off at " +
                                 salvageHex(at);
            return;
        }
        at += length;
    }
    stretch.intact = true;
}

bool SalvageFile::isMarked(const Stretch& stretch, u64 offset) {
    const u64 place = (offset - stretch.begin) / UNIT;
    return place / 64 < stretch.cells.size() && (stretch.cells[toSize(place / 64)] >> place % 64 & 1) != 0;
}

SalvageCell SalvageFile::cell(u32 offset, SalvageFlaws& flaws) {
    if (offset % UNIT || u64{offset} + sizeof(hive_record) > _areaSize)
        return {offset, 0, 0, SalvageCell::outside};
    Stretch& stretch = walked(offset);
    if (!stretch.damage.empty()) {
        flaws.push_back({SalvageFlaw::note, static_cast<u32>(stretch.begin), stretch.damage});
        stretch.damage.clear();
    }
    const u64 room = stretch.limit - offset;
    const u32 field = u32At(offset);
    const u64 length = absolute(field);
    const bool fits = length >= LEAST_CELL && length <= room;
    const bool marked = isMarked(stretch, offset);
    if (stretch.isHbin && offset < stretch.begin + sizeof(hive_hbin))
        return {offset, 0, 0, SalvageCell::outside};
    if (!marked && (stretch.intact || !fits || length % UNIT))
        return {offset, room, room, SalvageCell::noCell};
    if (!fits || length % UNIT) return {offset, room, room, SalvageCell::brokenSize};
    return {offset, length, room, static_cast<s32>(field) < 0 ? SalvageCell::used : SalvageCell::free};
}

bool SalvageFile::nextCell(u64 offset, u32& cell) {
    while (offset < _areaSize) {
        const Stretch& stretch = walked(offset);
        for (; offset < stretch.end; offset += UNIT) {
            if (!isMarked(stretch, offset)) continue;
            cell = static_cast<u32>(offset);
            return true;
        }
    }
    return false;
}

}  // namespace Libraries::Files::Hive
