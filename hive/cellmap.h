#pragma once

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

    /// `length` bytes of the hbin from `position` on were changed: if a size field is among them, the cells
    /// behind the first such cell are unknown again.
    void changed(u32 position, u32 length);

 private:
    bool isMarked(u32 position) const;
    void mark(u32 position);
    void unmark(u32 from, u32 end);

    Platform::Array<u64> _bits;       // one bit for every 8 bytes: a cell begins here
    u32 _walked = sizeof(hive_hbin);  // a cell boundary; all boundaries up to it are known
    bool _unaligned = false;          // a boundary without a bit was passed
};

}  // namespace Libraries::Files::Hive
