#include "hive/cellmap.h"

#include <algorithm>

#include "hive/recordview.h"

namespace Libraries::Files::Hive {

namespace {
constexpr u32 bytesPerBit = hive_hbin::RECORD_ALIGNMENT;
constexpr u32 bytesPerWord = bytesPerBit * 64;
}  // namespace

CellMap::Answer CellMap::isBoundary(const u8* hbin, u32 size, u32 position) {
    if (position == sizeof(hive_hbin)) return Answer::boundary;
    if (_bits.empty()) _bits.resize(size / bytesPerWord);
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
    const u32 first = std::max<u32>(position / bytesPerBit * bytesPerBit, sizeof(hive_hbin));
    for (u64 cell = first; cell < end; cell += bytesPerBit) {
        if (cell + sizeof(hive_record) <= position || !isMarked(static_cast<u32>(cell))) continue;
        _walked = static_cast<u32>(cell);
        return;
    }
}

bool CellMap::isMarked(u32 position) const {
    return position == sizeof(hive_hbin) ||
           (_bits[position / bytesPerWord] >> (position / bytesPerBit % 64) & 1) != 0;
}

void CellMap::mark(u32 position) {
    if (position % bytesPerBit == 0)
        _bits[position / bytesPerWord] |= u64{1} << (position / bytesPerBit % 64);
    else
        _unaligned = true;
}

void CellMap::unmark(u32 from, u32 end) {
    // Whole words at once: a cell may be megabytes long.
    u32 bit = (from + bytesPerBit - 1) / bytesPerBit;
    const u32 endBit = (end + bytesPerBit - 1) / bytesPerBit;
    while (bit < endBit) {
        if (bit % 64 == 0 && endBit - bit >= 64) {
            _bits[bit / 64] = 0;
            bit += 64;
        } else {
            _bits[bit / 64] &= ~(u64{1} << (bit % 64));
            ++bit;
        }
    }
}

}  // namespace Libraries::Files::Hive
