#include "hive/hbintable.h"

#include <algorithm>
#include <bit>

namespace Libraries::Files::Hive {

void HbinTable::append(const HbinDescriptor& hbin) {
    _hbins.push_back(hbin);
    for (u32 page = 0; page < hbin.size / HbinPage::SIZE; ++page) _pages.push_back(HbinPage(size() - 1));
    _end = u64{hbin.offset} + hbin.size;
    if (hbin.largestFree) raise(size() - 1);
}

void HbinTable::setCached(u32 index, u32 slot, u32 position) {
    HbinDescriptor& hbin = _hbins[index];
    hbin.cacheSlot = slot;
    for (u32 page = 0; page < hbin.size / HbinPage::SIZE; ++page)
        _pages[hbin.offset / HbinPage::SIZE + page] = HbinPage(index, slot, position + page * HbinPage::SIZE);
}

void HbinTable::setDropped(u32 index) {
    HbinDescriptor& hbin = _hbins[index];
    hbin.cacheSlot = HbinDescriptor::DROPPED;
    for (u32 page = 0; page < hbin.size / HbinPage::SIZE; ++page)
        _pages[hbin.offset / HbinPage::SIZE + page] = HbinPage(index);
}

void HbinTable::setLargestFree(u32 index, u32 length, u32 record, u32 otherFree) {
    HbinDescriptor& hbin = _hbins[index];
    const bool changed = hbin.largestFree != length;
    hbin.largestFree = length;
    hbin.largestFreeRecord = record;
    hbin.otherFree = otherFree;
    if (changed) raise(index);
}

u32 HbinTable::firstWithRoom(u32 length) {
    while (!_maxima.empty() && _maxima[1] >= length) {
        u32 node = 1;
        while (node < _leaves)
            node = 2 * node + (_maxima[2 * node] < length);  // which way is not foreseeable
        if (_maxima[node] >= length) return node - _leaves < size() ? node - _leaves : INVALID_HBIN;
        lower(node);
    }
    return INVALID_HBIN;
}

/// Makes the maxima above a leaf no larger than those below them.
void HbinTable::lower(u32 node) {
    for (node /= 2; node > 0; node /= 2) _maxima[node] = std::max(_maxima[2 * node], _maxima[2 * node + 1]);
}

void HbinTable::raise(u32 index) {
    if (index >= _leaves) {
        _leaves = std::bit_ceil(std::max(size(), 64U));
        _maxima.assign(u64{2} * _leaves, 0);
        for (u32 i = 0; i < size(); ++i) _maxima[_leaves + i] = _hbins[i].largestFree;
        for (u32 node = _leaves - 1; node > 0; --node)
            _maxima[node] = std::max(_maxima[2 * node], _maxima[2 * node + 1]);
        return;
    }
    const u32 length = _hbins[index].largestFree;
    u32 node = _leaves + index;
    _maxima[node] = length;
    for (node /= 2; node > 0 && _maxima[node] < length; node /= 2) _maxima[node] = length;
}

}  // namespace Libraries::Files::Hive
