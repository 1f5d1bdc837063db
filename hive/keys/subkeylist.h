#pragma once

#include "hive/format.h"
#include "platform/system/heap.h"
#include "platform/system/object.h"

namespace Libraries::Files::Hive {

class KeyObj;

/// The kind of the list records that name a key's subkeys.
enum KeyListType : u8 {
    keyListLI = 0,
    keyListLH = 1,
    keyListLF = 2,
};

/// What a list entry keeps of the subkey's name: the lf hint (four characters) or the lh hash. Zero for li
/// entries.
union SubkeyHash {
    u8 hint[4];
    u32 hash;  // host byte order
};

/// One subkey: its nk record, its hint or hash, and the object last built for it.
struct SubkeyEntry {
    u32 record;
    SubkeyHash hash;
    Platform::WeakRef<KeyObj> key;
};

/// One list record that names subkeys, with its entries in order.
struct Sublist {
    u32 record;     // the list record's offset
    u32 start = 0;  // index of the first entry among all the key's subkeys
    Platform::Array<SubkeyEntry> entries;

    u32 end() const { return start + static_cast<u32>(entries.size()); }
};

/// A key's subkeys in memory, sublist by sublist: a one-level list is a single sublist. Inserting and
/// removing cost what the sublist costs, finding an index the logarithm of the number of sublists.
class SubkeyList {
 public:
    u32 size() const { return _sublists.empty() ? 0 : _sublists.back().end(); }
    u32 sublists() const { return static_cast<u32>(_sublists.size()); }
    Sublist& sublist(u32 j) { return _sublists[j]; }
    const Sublist& sublist(u32 j) const { return _sublists[j]; }

    void clear() { _sublists.clear(); }
    /// Adds a sublist behind the last one.
    void append(u32 record, Platform::Array<SubkeyEntry> entries);
    /// Adds or removes an entry of sublist `j`; `index` counts over the whole key.
    void insert(u32 j, u32 index, SubkeyEntry entry);
    void remove(u32 j, u32 index);
    void removeSublist(u32 j);
    /// Moves the entries of sublist `j` from its `first`-th on into a new sublist behind it.
    void split(u32 j, u32 first, u32 newRecord);

    /// REQUIRES: index < size().
    SubkeyEntry& at(u32 index);
    /// The sublist that holds `index`. REQUIRES: index < size().
    u32 sublistOf(u32 index) const;
    /// The sublist a new entry at `index` goes into: the first that ends at or behind it, so that an entry at
    /// the border of two sublists goes to the end of the first; the last one when none does. REQUIRES: there
    /// are sublists.
    u32 sublistForInsert(u32 index) const;

 private:
    void renumber(u32 from);

    Platform::Array<Sublist> _sublists;
};

/// The objects last built for the subkeys of a key, by index. There is mostly one at a time, which then takes
/// no array.
class SubkeyObjects {
 public:
    /// The object of the subkey at `index`, null when there is none alive.
    Platform::Ref<KeyObj> find(u32 index) const;
    /// Keeps the object of the subkey at `index` of `count`.
    void keep(u32 index, u32 count, const Platform::Ref<KeyObj>& key);
    /// Bytes taken besides the object itself.
    u64 size() const { return _all.capacity() * sizeof(_only); }

 private:
    u32 _index = 0;
    Platform::WeakRef<KeyObj> _only;                  // of the subkey at `_index`, while `_all` is empty
    Platform::Array<Platform::WeakRef<KeyObj>> _all;  // by index
};

}  // namespace Libraries::Files::Hive
