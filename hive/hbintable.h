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

/// Which hbin a page of the hive is part of and where it is in the cache, in one word, since this is asked
/// for every record. A hive, as the cache, has at most 2^20 pages.
class HbinPage {
 public:
    static constexpr u32 SIZE = HBIN_READ_BUFFER_SIZE;
    static constexpr u32 NOT_CACHED = (1U << 21) - 1;

    HbinPage() = default;
    explicit HbinPage(u32 hbin) : HbinPage(hbin, NOT_CACHED, 0) {}
    /// `slot` is the hbin's entry of the cache, `position` that of the page in the cache memory.
    HbinPage(u32 hbin, u32 slot, u32 position)
        : _bits(u64{hbin} | u64{slot} << 21 | u64{position / SIZE} << 42) {}

    u32 hbin() const { return _bits & NOT_CACHED; }
    u32 slot() const { return _bits >> 21 & NOT_CACHED; }
    bool isCached() const { return slot() != NOT_CACHED; }
    /// Where in the cache memory the byte at `offset` of the hive is, which lies in the page.
    u32 positionOf(u32 offset) const { return static_cast<u32>(_bits >> 42) * SIZE + offset % SIZE; }

 private:
    u64 _bits = 0;
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
    /// The hbin is in entry `slot` of the cache, its bytes at `position` of the cache memory.
    void setCached(u32 index, u32 slot, u32 position);
    void setDropped(u32 index);
    void setLargestFree(u32 index, u32 length, u32 record, u32 otherFree = UNKNOWN_LENGTH);

    /// The hbin whose bytes the offset lies in; INVALID_HBIN when there is none.
    u32 holding(u32 offset) const {
        return offset < _end ? _pages[offset / HbinPage::SIZE].hbin() : INVALID_HBIN;
    }
    /// The page the offset lies in, null when no known hbin has it.
    const HbinPage* page(u32 offset) const {
        return offset < _end ? &_pages[offset / HbinPage::SIZE] : nullptr;
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
    u32 maximumBelow(u32 node) const;

    ChunkedArray<HbinDescriptor> _hbins;
    ChunkedArray<HbinPage> _pages;
    u64 _end = 0;
    // A tree of maxima over `largestFree`: root at 1, four nodes below each one, of node n those from 4 n on,
    // leaves from `_leaves`, a power of 4, on; empty while all are 0.
    // Leaves are exact. What is above them is never too small, and only lowered when a search finds it too
    // large: most hbins lose room many times before one is passed over.
    Platform::Array<u32> _maxima;
    u32 _leaves = 0;
};

}  // namespace Libraries::Files::Hive
