#include "check/celltable.h"

#include <algorithm>

namespace Libraries::Files::Hive {

const char* useName(CellUse use) {
    static constexpr const char* NAMES[] = {
        "nothing",   "key record",      "subkey list",   "class name", "value list",     "value record",
        "data cell", "big-data record", "fragment list", "fragment",   "security record"};
    return NAMES[static_cast<u8>(use)];
}

void CellTable::add(u32 offset, s32 size) {
    while (_firstOfPage.size() <= offset / PAGE) _firstOfPage.push_back(count());
    _offsets.push_back(offset);
    _sizes.push_back(size);
}

void CellTable::seal() {
    _firstOfPage.push_back(count());
    _owners.assign(count(), NONE);
    _uses.assign(count(), CellUse::none);
}

u32 CellTable::find(u32 offset) const {
    const u32 page = offset / PAGE;
    if (page + 1 >= _firstOfPage.size()) return NONE;
    const auto begin = _offsets.begin() + _firstOfPage[page];
    const auto end = _offsets.begin() + _firstOfPage[page + 1];
    const auto found = std::lower_bound(begin, end, offset);
    if (found == end || *found != offset) return NONE;
    return static_cast<u32>(found - _offsets.begin());
}

}  // namespace Libraries::Files::Hive
