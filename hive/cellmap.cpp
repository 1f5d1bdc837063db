#include "hive/cellmap.h"

#include <algorithm>

#include "hive/recordview.h"

namespace Libraries::Files::Hive {

CellMap::Answer CellMap::isBoundary(const u8* hbin, u32 size, u32 position) {
    if (position == sizeof(hive_hbin)) return Answer::boundary;
    makeBits(size);
    while (_walked < position) {
        const u32 length = RecordView(hbin + _walked, size - _walked).absoluteSize();
        if (length == 0) return Answer::zeroSizedCell;
        if (length > size - _walked) return Answer::noBoundary;
        const u32 next = _walked + length;
        if (next >= size) return Answer::noBoundary;
        unmark(_walked + 1, next);
        _walked = next;
        mark(next);
    }
    if (_walked == position) return Answer::boundary;
    return isMarked(position) ? Answer::boundary : Answer::noBoundary;
}

void CellMap::changed(u32 position, u32 length) {
    if (_unaligned) {  // cells of odd lengths have no bit of their own
        _walked = sizeof(hive_hbin);
        _unaligned = false;
        return;
    }
    const u64 end = std::min<u64>(u64{position} + length, _walked);
    const u32 first = std::max<u32>(position / BYTES_PER_BIT * BYTES_PER_BIT, sizeof(hive_hbin));
    for (u64 cell = first; cell < end; cell += BYTES_PER_BIT) {
        if (cell + sizeof(hive_record) <= position || !isMarked(static_cast<u32>(cell))) continue;
        _walked = static_cast<u32>(cell);
        return;
    }
}

void CellMap::retiled(u32 size, u32 position, u32 middle, u32 end) {
    if (_unaligned || position > _walked || (position | middle | end) % BYTES_PER_BIT) {
        changed(position, sizeof(hive_record));
        changed(middle, sizeof(hive_record));
        return;
    }
    makeBits(size);
    unmark(position + 1, _walked < end ? middle : end);
    if (middle < size) mark(middle);
    if (_walked < end) _walked = middle < size ? middle : position;
}

void CellMap::makeBits(u32 size) {
    if (size > HBIN_READ_BUFFER_SIZE && _manyBits.empty()) _manyBits.resize(size / BYTES_PER_WORD);
}

void CellMap::mark(u32 position) {
    if (position % BYTES_PER_BIT) {
        _unaligned = true;
        return;
    }
    bits()[position / BYTES_PER_WORD] |= u64{1} << (position / BYTES_PER_BIT % 64);
    _marked = std::max(_marked, position + BYTES_PER_BIT);
}

void CellMap::unmark(u32 from, u32 end) {
    u32 bit = (from + BYTES_PER_BIT - 1) / BYTES_PER_BIT;
    const u32 endBit = (std::min(end, _marked) + BYTES_PER_BIT - 1) / BYTES_PER_BIT;
    while (bit < endBit) {
        const u32 count = std::min(64 - bit % 64, endBit - bit);
        bits()[bit / 64] &= ~(~u64{0} >> (64 - count) << (bit % 64));
        bit += count;
    }
}

}  // namespace Libraries::Files::Hive
