#include "hive/hbincache.h"

#include "platform/system/error.h"

namespace Libraries::Files::Hive {

namespace {
/// The cache grows when one load in so many brings back an hbin that was dropped.
constexpr u32 ENOUGH_COME_BACK = 4;
}  // namespace

bool HbinCache::allocate(u64 size) {
    release();
    if (size > UINT32_MAX) return false;
    _size = _capacity = static_cast<u32>(size);
    _memory = Platform::ShMem::create(size);
    return bool(_memory);
}

bool HbinCache::map() {
    _base = _memory ? _memory->address() : nullptr;
    return mapped();
}

void HbinCache::release() {
    _base = nullptr;
    _memory.reset();
}

u32 HbinCache::place(u32 hbinIdx, u32 hbinSize, u32 round) {
    _entries.push_back(CachedHbin{hbinIdx, _end, hbinSize, round});
    _end += hbinSize;
    return static_cast<u32>(_entries.size() - 1);
}

u32 HbinCache::add(u32 hbinIdx, u32 hbinSize, bool cameBack) {
    const u32 slot = place(hbinIdx, hbinSize, _roundNumber);
    _round.push_back(slot);
    _used += hbinSize;
    ++_loads;
    _cameBack += cameBack;
    return slot;
}

u32 HbinCache::addUnasked(u32 hbinIdx, u32 hbinSize) {
    return place(hbinIdx, hbinSize, _roundNumber - 1);
}

void HbinCache::takeIntoRound(u32 slot) {
    CachedHbin& hbin = _entries[slot];
    hbin.round = _roundNumber;
    _used += hbin.size;
    _round.push_back(slot);
}

bool HbinCache::nextRound(bool mayRetain) {
    if (!mayRetain || (_capacity - _end < _size && !grow())) return false;
    _used = 0;
    _round.clear();
    ++_roundNumber;
    return true;
}

/// Makes room behind what is there; false when that does not pay or there is no memory. What is never used
/// of the memory takes none.
bool HbinCache::grow() {
    if (_cameBack * ENOUGH_COME_BACK < _loads || RETAINED_BYTES < u64{_end} + _size) return false;
    const u32 error = Platform::Error::get();
    const auto memory = Platform::ShMem::createPrivate(RETAINED_BYTES);
    if (!memory) {
        Platform::Error::set(error);  // the cache does without
        return false;
    }
    Platform::Mem::copy(memory->address(), _base, _end);
    _memory = memory;
    _base = memory->address();
    _capacity = RETAINED_BYTES;
    return true;
}

void HbinCache::clear() {
    _entries.clear();
    _freeCells.clear();
    _round.clear();
    _used = _end = 0;
    _loads = _cameBack = 0;
    ++_roundNumber;
}

}  // namespace Libraries::Files::Hive
