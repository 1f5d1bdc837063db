#include "hive/keys/subkeylist.h"

#include <algorithm>
#include <iterator>

#include "hive/keys/keyobj.h"

namespace Libraries::Files::Hive {

void SubkeyList::append(u32 record, Platform::Array<SubkeyEntry> entries) {
    _sublists.push_back(Sublist{record, size(), std::move(entries)});
}

void SubkeyList::insert(u32 j, u32 index, SubkeyEntry entry) {
    Sublist& list = _sublists[j];
    list.entries.insert(list.entries.begin() + (index - list.start), std::move(entry));
    renumber(j + 1);
}

void SubkeyList::remove(u32 j, u32 index) {
    Sublist& list = _sublists[j];
    list.entries.erase(list.entries.begin() + (index - list.start));
    renumber(j + 1);
}

void SubkeyList::removeSublist(u32 j) {
    _sublists.erase(_sublists.begin() + j);
    renumber(j);
}

void SubkeyList::split(u32 j, u32 first, u32 newRecord) {
    Platform::Array<SubkeyEntry>& entries = _sublists[j].entries;
    Sublist second{newRecord, 0, {}};
    second.entries.assign(std::make_move_iterator(entries.begin() + first),
                          std::make_move_iterator(entries.end()));
    entries.resize(first);
    _sublists.insert(_sublists.begin() + j + 1, std::move(second));
    renumber(j + 1);
}

SubkeyEntry& SubkeyList::at(u32 index) {
    Sublist& list = _sublists[sublistOf(index)];
    return list.entries[index - list.start];
}

u32 SubkeyList::sublistOf(u32 index) const {
    const auto found = std::partition_point(_sublists.begin(), _sublists.end(),
                                            [index](const Sublist& list) { return list.end() <= index; });
    return static_cast<u32>(found - _sublists.begin());
}

u32 SubkeyList::sublistForInsert(u32 index) const {
    const auto found = std::partition_point(_sublists.begin(), _sublists.end() - 1,
                                            [index](const Sublist& list) { return list.end() < index; });
    return static_cast<u32>(found - _sublists.begin());
}

void SubkeyList::renumber(u32 from) {
    for (u32 j = from; j < _sublists.size(); ++j) _sublists[j].start = j ? _sublists[j - 1].end() : 0;
}

Platform::Ref<KeyObj> SubkeyObjects::find(u32 index) const {
    if (!_all.empty()) return _all[index].lock();
    return index == _index ? _only.lock() : nullptr;
}

void SubkeyObjects::keep(u32 index, u32 count, const Platform::Ref<KeyObj>& key) {
    if (_all.empty() && _only.lock()) {
        _all.resize(count);
        _all[_index] = std::move(_only);
    }
    if (!_all.empty()) {
        _all[index] = Platform::WeakRef<KeyObj>(key);
        return;
    }
    _index = index;
    _only = Platform::WeakRef<KeyObj>(key);
}

}  // namespace Libraries::Files::Hive
