#pragma once

#include "hive/cellmap.h"
#include "hive/freecells.h"
#include "hive/recordview.h"
#include "platform/system/shmem.h"

namespace Libraries::Files::Hive {

/// Stands for no position in the cache memory.
constexpr u64 NO_POSITION = ~u64{0};

/// One hbin in the cache.
struct CachedHbin {
    u32 hbinIdx;               // index in the hbin table
    u32 position;              // in the cache memory: the sum of the sizes of the entries before it
    u32 size;                  // bytes, as in the hbin table
    u32 round;                 // the round it was last asked for in
    bool dirty = false;        // changed since it was loaded or last written back; of this round then
    bool headChecked = false;  // its head was compared with the hbin table and has not changed since
    CellMap cells = {};
};

/// The cache memory and what lies in it: hbins one behind the other, in the order they were loaded. It is a
/// bump region that is emptied as a whole; there is no eviction of single hbins.
///
/// A round lasts from one emptying to the next and takes hbins of `size()` bytes in all; its end is when
/// changed hbins are written back, which is why rounds are kept to exactly. The bytes of a finished round may
/// stay, though: while hbins that were dropped keep coming back (paths looked up here and there in a large
/// hive), the memory may take RETAINED_BYTES, and an hbin that is still there is taken into the new round
/// without being read. A walk from one end of a hive to the other does not come back, and stays at `size()`.
///
/// Invariant: `used()` is the sum of the sizes of the round's hbins and does not exceed `size()`.
class HbinCache {
 public:
    /// The most memory a cache grows to for hbins of earlier rounds.
    static constexpr u32 RETAINED_BYTES = 64U << 20;

    explicit HbinCache(u32 size) : _size(size) {}

    /// Replaces the cache memory by a new zeroed block of `size` bytes. False when there is no memory; the
    /// cache has no memory then. REQUIRES: the cache is empty.
    bool allocate(u64 size);
    /// Maps the block allocated last; false when that yields nothing.
    bool map();
    void release();

    bool mapped() const { return _base != nullptr; }
    /// Bytes of a round.
    u32 size() const { return _size; }
    u32 used() const { return _used; }
    u32 room() const { return _size - _used; }
    /// Bytes behind those that the round may take.
    u32 spare() const { return _capacity - _end - room(); }
    /// Where the next hbin is to be placed; `room()` bytes are free there.
    u32 end() const { return _end; }
    u8* at(u32 position) { return _base + position; }
    /// The cached bytes from `position` on, to the end of the cache memory.
    RecordView view(u32 position) const { return RecordView(_base + position, _capacity - position); }

    CachedHbin& entry(u32 slot) { return _entries[slot]; }
    /// What is known of the free cells of the hbin in an entry; apart, since looking records up needs none.
    FreeCells& freeCells(u32 slot) {
        if (_freeCells.size() <= slot) _freeCells.resize(_entries.size());
        return _freeCells[slot];
    }
    const Platform::Array<CachedHbin>& entries() const { return _entries; }
    /// The slots of the round's hbins, in the order they were asked for.
    const Platform::Array<u32>& round() const { return _round; }
    /// Adds the hbin that was placed at `end()`; returns its slot. `cameBack`: it had been loaded before.
    u32 add(u32 hbinIdx, u32 hbinSize, bool cameBack);
    /// The same for one that nobody has asked for, which is of no round. REQUIRES: its size <= spare().
    u32 addUnasked(u32 hbinIdx, u32 hbinSize);
    u32 roundNumber() const { return _roundNumber; }
    bool isOfRound(u32 slot) const { return _entries[slot].round == _roundNumber; }
    /// Takes an hbin of an earlier round into this one. REQUIRES: its size <= room().
    void takeIntoRound(u32 slot);

    /// Ends the round, keeping its bytes if `mayRetain` and it pays. False when they cannot be kept: then the
    /// caller must `clear()`.
    bool nextRound(bool mayRetain);
    void clear();

 private:
    bool grow();
    u32 place(u32 hbinIdx, u32 hbinSize, u32 round);

    Platform::Ref<Platform::SharedMemory> _memory;
    u8* _base = nullptr;
    u32 _size;
    u32 _capacity = 0;  // bytes of the memory
    u32 _used = 0;
    u32 _end = 0;
    u32 _roundNumber = 0;
    u32 _loads = 0;     // since the memory was last emptied
    u32 _cameBack = 0;  // of these, hbins that had been loaded before
    Platform::Array<CachedHbin> _entries;
    Platform::Array<FreeCells> _freeCells;  // by entry, as far as they were asked for
    Platform::Array<u32> _round;
};

}  // namespace Libraries::Files::Hive
