#pragma once

#include "hive/chunkedarray.h"
#include "hive/format.h"

namespace Libraries::Files::Hive {

/// Stands for a bound that is not known.
constexpr u32 UNKNOWN_LENGTH = 0xFFFFFFFF;

/// One known hbin.
struct HbinDescriptor {
    u32 offset = 0;                  // in the hbins area
    u32 size = 0;                    // bytes
    u32 largestFree = 0;             // length of the largest free cell, 0 when none is known
    u32 largestFreeRecord = 0;       // its record offset
    u32 otherFree = UNKNOWN_LENGTH;  // no other free cell is longer; unknown when the cells are not sound
    u32 cacheSlot = INVALID_HBIN;    // entry of the hbin cache that holds it, DROPPED when it has left it

    static constexpr u32 DROPPED = INVALID_HBIN - 1;
    bool isCached() const { return cacheSlot < DROPPED; }
    bool wasLoaded() const { return cacheSlot != INVALID_HBIN; }
};

/// The hbins known so far, in file order: they tile the hbins area from its start without gaps. Finds the
/// hbin of an offset at once and the first hbin with room in logarithmic time.
class HbinTable {
 public:
    u32 size() const { return _hbins.size(); }
    bool empty() const { return _hbins.empty(); }
    /// Where the next hbin behind the known ones starts.
    u64 end() const { return _end; }
    const HbinDescriptor& operator[](u32 index) const { return _hbins[index]; }

    void append(const HbinDescriptor& hbin);
    void setCached(u32 index, u32 slot) { _hbins[index].cacheSlot = slot; }
    void setDropped(u32 index) { _hbins[index].cacheSlot = HbinDescriptor::DROPPED; }
    void setLargestFree(u32 index, u32 length, u32 record, u32 otherFree = UNKNOWN_LENGTH);

    /// The hbin whose bytes the offset lies in; INVALID_HBIN when there is none.
    u32 holding(u32 offset) const {
        return offset < _end ? _pages[offset / HBIN_READ_BUFFER_SIZE] : INVALID_HBIN;
    }
    /// The first hbin whose end is not before `offset`, so that an offset right behind an hbin still finds
    /// it; `size()` when there is none.
    u32 find(u32 offset) const {
        const u32 index = holding(offset);
        if (index == INVALID_HBIN) return offset == _end && !empty() ? size() - 1 : size();
        return offset == _hbins[index].offset && index ? index - 1 : index;
    }
    /// The first hbin in file order whose largest free cell has at least `length` bytes; INVALID_HBIN when
    /// none has.
    u32 firstWithRoom(u32 length);

 private:
    void raise(u32 index);
    void lower(u32 node);

    ChunkedArray<HbinDescriptor> _hbins;
    ChunkedArray<u32> _pages;  // the hbin of every 4096 bytes
    u64 _end = 0;
    // A binary tree of maxima over `largestFree`, root at 1, leaves from `_leaves` on; empty while all are 0.
    // Leaves are exact. What is above them is never too small, and only lowered when a search finds it too
    // large: most hbins lose room many times before one is passed over.
    Platform::Array<u32> _maxima;
    u32 _leaves = 0;
};

}  // namespace Libraries::Files::Hive
