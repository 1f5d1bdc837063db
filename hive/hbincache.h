#pragma once

#include "hive/cellmap.h"
#include "hive/recordview.h"
#include "platform/system/shmem.h"

namespace Libraries::Files::Hive {

/// Stands for no position in the cache memory.
constexpr u64 NO_POSITION = ~u64{0};

/// One hbin in the cache.
struct CachedHbin {
    u32 hbinIdx;   // index in the hbin table
    u32 position;  // in the cache memory: the sum of the sizes of the entries before it
    u32 size;      // bytes, as in the hbin table
    bool dirty;    // changed since it was loaded or last written back
    CellMap cells;
};

/// The cache memory and what lies in it: hbins one behind the other, in the order they were loaded. It is a
/// bump region that is emptied as a whole; there is no eviction of single hbins.
///
/// Invariant: `used()` is the sum of the entries' sizes and does not exceed `size()`.
class HbinCache {
 public:
    explicit HbinCache(u32 size) : _size(size) {}

    /// Replaces the cache memory by a new zeroed block of `size` bytes. False when there is no memory; the
    /// cache has no memory then. REQUIRES: the cache is empty.
    bool allocate(u64 size);
    /// Maps the block allocated last; false when that yields nothing.
    bool map();
    void release();

    bool mapped() const { return _base != nullptr; }
    u32 size() const { return _size; }
    u32 used() const { return _used; }
    u32 room() const { return _size - _used; }
    u8* at(u32 position) { return _base + position; }
    /// The cached bytes from `position` on, to the end of the cache memory.
    RecordView view(u32 position) const { return RecordView(_base + position, _size - position); }

    /// The entries, in cache order. Mostly walked to write back what is dirty.
    Platform::Array<CachedHbin>& entries() { return _entries; }
    /// Adds the hbin that was placed at `used()`; returns its slot.
    u32 add(u32 hbinIdx, u32 hbinSize);
    void clear();

 private:
    Platform::Ref<Platform::SharedMemory> _memory;
    u8* _base = nullptr;
    u32 _size;
    u32 _used = 0;
    Platform::Array<CachedHbin> _entries;
};

}  // namespace Libraries::Files::Hive
