#include "hive/hbincache.h"

namespace Libraries::Files::Hive {

bool HbinCache::allocate(u64 size) {
    release();
    if (size > UINT32_MAX) return false;
    _size = static_cast<u32>(size);
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

u32 HbinCache::add(u32 hbinIdx, u32 hbinSize) {
    _entries.push_back(CachedHbin{hbinIdx, _used, hbinSize, false, {}});
    _used += hbinSize;
    return static_cast<u32>(_entries.size() - 1);
}

void HbinCache::clear() {
    _entries.clear();
    _used = 0;
}

}  // namespace Libraries::Files::Hive
