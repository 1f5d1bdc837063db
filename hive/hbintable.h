#pragma once

#include <deque>

#include "hive/format.h"
#include "platform/system/heap.h"

namespace Libraries::Files::Hive {

/// One known hbin.
struct HbinDescriptor {
    u32 offset;                    // in the hbins area
    u32 size;                      // bytes
    u32 largestFree = 0;           // length of the largest free cell, 0 when none is known
    u32 largestFreeRecord = 0;     // its record offset
    u32 cacheSlot = INVALID_HBIN;  // entry of the hbin cache that holds it
};

/// The hbins known so far, in file order: they tile the hbins area from its start without gaps. Finds the
/// hbin of an offset and the first hbin with room in logarithmic time.
class HbinTable {
 public:
    u32 size() const { return static_cast<u32>(_hbins.size()); }
    bool empty() const { return _hbins.empty(); }
    /// Where the next hbin behind the known ones starts.
    u64 end() const { return empty() ? 0 : u64{_hbins.back().offset} + _hbins.back().size; }
    const HbinDescriptor& operator[](u32 index) const { return _hbins[index]; }

    void append(const HbinDescriptor& hbin);
    void setCacheSlot(u32 index, u32 slot) { _hbins[index].cacheSlot = slot; }
    void setLargestFree(u32 index, u32 length, u32 record);

    /// The first hbin whose end is not before `offset`; `size()` when there is none.
    u32 find(u32 offset) const;
    /// The first hbin in file order whose largest free cell has at least `length` bytes; INVALID_HBIN when
    /// none has.
    u32 firstWithRoom(u32 length) const;

 private:
    void raise(u32 index);

    // A deque: a growing table never holds itself twice, which matters for hives of many thousand hbins.
    std::deque<HbinDescriptor, Platform::ArrayAllocator<HbinDescriptor>> _hbins;
    // A binary tree of maxima over `largestFree`, root at 1, leaves from `_leaves` on; empty while all are 0.
    Platform::Array<u32> _maxima;
    u32 _leaves = 0;
};

}  // namespace Libraries::Files::Hive
