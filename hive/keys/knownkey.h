#pragma once

#include <array>

#include "hive/foldedname.h"
#include "hive/keys/subkeylist.h"
#include "platform/system/counter.h"

namespace Libraries::Files::Hive {

class KeyRecord;

/// What searches have found out about a key of a hive that is open read-only: its record, its name, its
/// subkeys' records and, one by one as a search comes by, their names in upper case. It outlives the key's
/// objects, so that a path that was taken once is taken again without going from record to record, or making
/// objects of the keys on the way. Only what was read without a complaint gets here; all else is looked at,
/// and complained about, each time.
///
/// REQUIRES the hive's monitor held, except for counting references.
class KnownKey {
 public:
    /// A subkey; `key` is null unless subkeys of its own were searched.
    struct Subkey {
        u32 record;
        u32 name = 0;  // where in `_names` its length and its units are
        u64 head = 0;  // of the name, by `FoldedName::head`; 0 while it is not kept
        Ref<KnownKey> key = {};
    };

    /// `place` is the key's index in the list of `parent`, which is null for the root key.
    KnownKey(const hive_record_nk& record, Ref<String> name, const SubkeyList& subkeys, Ref<KnownKey> parent,
             u32 place);

    void incRef() const { _count.increment(); }
    void decRef() const {
        if (_count.decrement()) delete this;
    }
    static void* operator new(std::size_t bytes) { return Heap::mustAlloc(bytes); }
    static void operator delete(void* key) { Heap::free(key); }

    const hive_record_nk& record() const { return _record; }
    const Ref<String>& name() const { return _name; }
    const Ref<KnownKey>& parent() const { return _parent; }
    u32 place() const { return _place; }
    /// Levels below the root.
    u32 depth() const { return _depth; }
    Array<Subkey>& subkeys() { return _subkeys; }
    const Array<Subkey>& subkeys() const { return _subkeys; }
    /// The object last built for the subkey at an index, null when there is none alive.
    Ref<KeyObj> object(u32 index) const;

    /// Whether the name of a subkey is kept: not when it takes more than reading it as it stands, nor when it
    /// is empty.
    bool knowsName(u32 index) const { return _subkeys[index].head != 0; }
    /// How the name of a subkey, upper-cased, compares with `other`. REQUIRES: knowsName(index).
    int compareName(u32 index, const FoldedName& other) const;
    /// The index a search by halves looks at next between `min` and, behind it, `end`.
    static u32 middle(u32 min, u32 end) { return min + (end - 1 - min) / 2; }

 private:
    friend class KnownKeys;
    std::u16string_view nameAt(u32 at) const { return {_names.data() + at + 1, _names[at]}; }
    void keepName(u32 index, const KeyRecord& record);
    void forgetNames();
    bool isInUse() const;
    u64 size() const;

    mutable RefCounter _count{0};
    hive_record_nk _record;  // in file byte order
    const Ref<String> _name;
    const Ref<KnownKey> _parent;
    const u32 _place;
    const u32 _depth;
    Array<Subkey> _subkeys;
    SubkeyObjects _objects;
    Utf16Buffer _names;
};

/// All that is known of a hive's keys, within a bound; when that is reached, all is let go that no object in
/// use has to do with.
class KnownKeys {
 public:
    /// The most bytes they take together, but for twice what objects in use hold on to.
    static constexpr u64 MAX_BYTES = 16U << 20;
    /// The most subkeys of a key that is kept here.
    static constexpr u32 MAX_SUBKEYS = MAX_BYTES / 4 / sizeof(KnownKey::Subkey);

    KnownKeys() = default;
    ~KnownKeys();
    KnownKeys(const KnownKeys&) = delete;
    KnownKeys& operator=(const KnownKeys&) = delete;

    const Ref<KnownKey>& root() const { return _root; }
    /// Whether another key may be added: not while what objects in use have to do with is near the bound. A
    /// file may name one large list at every level.
    bool hasRoom();
    /// Makes `key` the one known at its place.
    void add(const Ref<KnownKey>& key);
    /// Has `parent` keep the name of its subkey at `index`, if it is of the kind that is kept.
    void keepName(KnownKey& parent, u32 index, const KeyRecord& record);
    /// Has `parent` keep the object of its subkey at `index`.
    void keepObject(KnownKey& parent, u32 index, const Ref<KeyObj>& key);

    /// Distant keys: those whose objects were made without objects for the keys right above them. Callers
    /// mostly hold one or two keys at a time that they found by path.
    using Distant = std::array<WeakRef<KeyObj>, 4>;
    const Distant& distant() const { return _distant; }
    /// Where another one is to be kept; null when there are enough.
    WeakRef<KeyObj>* roomForDistant();

 private:
    Ref<KnownKey>& slotOf(const KnownKey& key);
    void grew(u64 bytes);
    void letGo();

    Ref<KnownKey> _root;
    Array<Ref<KnownKey>> _all;  // each behind its parent
    Distant _distant;
    u64 _bytes = 0;
    u64 _limit = MAX_BYTES;
    u64 _refused = 0;  // how often there was no room since that was last looked into
};

}  // namespace Libraries::Files::Hive
