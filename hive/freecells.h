#pragma once

#include <algorithm>
#include <array>

#include "hive/format.h"

namespace Libraries::Files::Hive {

/// What is known of the free cells of a cached hbin: a few exactly, and of the others how long they can be.
/// Tells the largest in most cases where it would take a walk over all cells.
class FreeCells {
 public:
    /// Nothing is known any more.
    void forget() { _known = false; }
    /// Begins anew, as of an hbin without free cells.
    void clear() {
        _known = true;
        _count = 0;
        _bound = {};
    }
    void add(u32 record, u32 length) {
        if (!_known || length == 0) return;
        Cell cell{record, length};
        if (_count < KEPT) {
            _cells[_count++] = cell;
            return;
        }
        Cell& last = *std::max_element(_cells.begin(), _cells.end(), isBefore);
        if (isBefore(cell, last)) std::swap(cell, last);
        if (isBefore(cell, _bound)) _bound = cell;
    }
    /// The cells that begin in these bytes are gone.
    void remove(u32 offset, u32 length) {
        for (u32 i = 0; _known && i < _count;) {
            if (_cells[i].record - offset < length)
                _cells[i] = _cells[--_count];
            else
                ++i;
        }
    }
    /// The first of the largest (zeros when there is none), and the most that another can have; false when
    /// that is not known.
    bool largest(u32& record, u32& length, u32& others) const {
        if (!_known) return false;
        Cell best{};
        others = _bound.length;
        for (u32 i = 0; i < _count; ++i) {
            const bool better = isBefore(_cells[i], best);
            others = std::max(others, better ? best.length : _cells[i].length);
            if (better) best = _cells[i];
        }
        record = best.record;
        length = best.length;
        return !isBefore(_bound, best);
    }

 private:
    struct Cell {
        u32 record = 0;
        u32 length = 0;
    };
    /// The order of choice: the longest, and the first of these.
    static bool isBefore(const Cell& a, const Cell& b) {
        return a.length != b.length ? a.length > b.length : a.record < b.record;
    }
    static constexpr u32 KEPT = 4;

    bool _known = false;
    u32 _count = 0;
    Cell _bound;  // no cell but those kept comes before it
    std::array<Cell, KEPT> _cells;
};

}  // namespace Libraries::Files::Hive
