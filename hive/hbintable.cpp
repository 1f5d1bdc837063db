#include "hive/hbintable.h"

#include <algorithm>

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
        while (node < _leaves) {  // without branches: which way is not foreseeable
            const u32* const below = &_maxima[u64{4} * node];
            const u32 notFirst = below[0] < length;
            const u32 notSecond = notFirst & static_cast<u32>(below[1] < length);
            const u32 notThird = notSecond & static_cast<u32>(below[2] < length);
            node = 4 * node + notFirst + notSecond + notThird;
        }
        if (_maxima[node] >= length) return node - _leaves < size() ? node - _leaves : INVALID_HBIN;
        lower(node);
    }
    return INVALID_HBIN;
}

u32 HbinTable::maximumBelow(u32 node) const {
    const u32* const below = &_maxima[u64{4} * node];
    return std::max({below[0], below[1], below[2], below[3]});
}

/// Makes the maxima above a leaf no larger than those below them.
void HbinTable::lower(u32 node) {
    for (node /= 4; node > 0; node /= 4) _maxima[node] = maximumBelow(node);
}

void HbinTable::raise(u32 index) {
    if (index >= _leaves) {
        _leaves = 64;
        while (_leaves < size()) _leaves *= 4;
        _maxima.assign(u64{2} * _leaves, 0);
        for (u32 i = 0; i < size(); ++i) _maxima[_leaves + i] = _hbins[i].largestFree;
        for (u32 level = _leaves / 4; level > 0; level /= 4)
            for (u32 node = level; node < 2 * level; ++node) _maxima[node] = maximumBelow(node);
        return;
    }
    const u32 length = _hbins[index].largestFree;
    u32 node = _leaves + index;
    _maxima[node] = length;
    for (node /= 4; node > 0 && _maxima[node] < length; node /= 4) _maxima[node] = length;
}

}  // namespace Libraries::Files::Hive
