#pragma once

#include "check/checkcontext.h"

namespace Libraries::Files::Hive {

/// The entries of a list record, some at a time, so that a list takes no memory however long it is.
template <typename Entry>
class EntryList {
 public:
    /// `count` entries from `from` on. REQUIRES: they lie inside the cell.
    EntryList(CheckContext& context, const TakenCell& cell, u32 from, u64 count)
        : _context(context), _cell(cell), _from(from), _left(count) {}

    /// The next entry, in file byte order; false behind the last.
    bool nextRaw(Entry& entry) {
        if (_at == _filled) {
            if (_left == 0) return false;
            _filled = static_cast<u32>(std::min<u64>(_left, ENTRIES));
            _context.piece(_cell, _from, _filled * sizeof(Entry)).copy(_entries, 0, _filled * sizeof(Entry));
            _from += _filled * sizeof(Entry);
            _left -= _filled;
            _at = 0;
        }
        entry = _entries[_at++];
        return true;
    }

 private:
    static constexpr u32 ENTRIES = 256;

    CheckContext& _context;
    const TakenCell _cell;
    u64 _from;
    u64 _left;
    Entry _entries[ENTRIES];
    u32 _at = 0;
    u32 _filled = 0;
};

/// A list of bare record offsets.
class OffsetList : EntryList<u32> {
 public:
    using EntryList::EntryList;
    bool next(u32& offset) {
        if (!nextRaw(offset)) return false;
        offset = Platform::L32ToHost(offset);
        return true;
    }
};

}  // namespace Libraries::Files::Hive
