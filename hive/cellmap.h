#pragma once

#include <array>

#include "hive/format.h"
#include "platform/system/heap.h"

namespace Libraries::Files::Hive {

/// Remembers where the cells of one cached hbin begin, so that judging a record offset does not walk the
/// hbin's cells again each time. The walk goes only as far as it was asked; changed cells make it forget what
/// lies behind them.
class CellMap {
 public:
    enum class Answer { boundary, noBoundary, zeroSizedCell };

    /// Whether a cell begins at `position` (bytes from the hbin's start), by the plain walk from the first
    /// cell on, each step the stored length exactly. `hbin` is the hbin's head and cells. REQUIRES: position
    /// is a multiple of 8, at least 32 and below `size`.
    Answer isBoundary(const u8* hbin, u32 size, u32 position);

    /// Whether the walk has already found that a cell begins at `position`, a multiple of 8 inside the hbin.
    bool isKnownBoundary(u32 position) { return position <= _walked && isMarked(position); }
    /// `length` bytes of the hbin from `position` on were changed: if a size field is among them, the cells
    /// behind the first such cell are unknown again.
    void changed(u32 position, u32 length);
    /// The whole cells from `position`, a boundary found, to `end` of an hbin of `size` bytes have become
    /// two, the second at `middle`; one when that is `end`.
    void retiled(u32 size, u32 position, u32 middle, u32 end);

 private:
    static constexpr u32 BYTES_PER_BIT = hive_hbin::RECORD_ALIGNMENT;
    static constexpr u32 BYTES_PER_WORD = BYTES_PER_BIT * 64;

    u64* bits() { return _manyBits.empty() ? _fewBits.data() : _manyBits.data(); }
    bool isMarked(u32 position) {
        return position == sizeof(hive_hbin) ||
               (bits()[position / BYTES_PER_WORD] >> (position / BYTES_PER_BIT % 64) & 1) != 0;
    }
    void makeBits(u32 size);
    void mark(u32 position);
    void unmark(u32 from, u32 end);

    // One bit for every 8 bytes: a cell begins here. Most hbins are of the least size and need no array.
    std::array<u64, HBIN_READ_BUFFER_SIZE / BYTES_PER_WORD> _fewBits{};
    Platform::Array<u64> _manyBits;
    u32 _walked = sizeof(hive_hbin);  // a cell boundary; all boundaries up to it are known
    u32 _marked = 0;                  // bits from here on are clear
    bool _unaligned = false;          // a boundary without a bit was passed
};

}  // namespace Libraries::Files::Hive
