#pragma once

#include "hive/foldedname.h"
#include "hive/keys/subkeylist.h"
#include "platform/system/counter.h"

namespace Libraries::Files::Hive {

class KeyRecord;

/// What searches have found out about a key of a hive that is open read-only: its record, its name, its
/// subkeys' records and, one by one as a search comes by, their names in upper case. It outlives the key's
/// objects, so that a path that was taken once is taken again without going from record to record. Only what
/// was read without a complaint gets here; all else is looked at, and complained about, each time.
///
/// REQUIRES the hive's monitor held, except for counting references.
class KnownKey {
 public:
    /// A subkey; `key` is null unless subkeys of its own were searched.
    struct Subkey {
        u32 record;
        u32 name = NO_NAME;  // where in `_names` its length and its units are
        Ref<KnownKey> key = {};
    };

    KnownKey(const hive_record_nk& record, Ref<String> name, const SubkeyList& subkeys);

    void incRef() const { _count.increment(); }
    void decRef() const {
        if (_count.decrement()) delete this;
    }
    static void* operator new(std::size_t bytes) { return Heap::mustAlloc(bytes); }
    static void operator delete(void* key) { Heap::free(key); }

    const hive_record_nk& record() const { return _record; }
    const Ref<String>& name() const { return _name; }
    Array<Subkey>& subkeys() { return _subkeys; }

    bool knowsName(u32 index) const { return _subkeys[index].name != NO_NAME; }
    /// How the name of a subkey, upper-cased, compares with `other`, as `KeyRecord::compareName`. REQUIRES:
    /// knowsName(index).
    int compareName(u32 index, const FoldedName& other, bool& isEmpty) const;
    /// Keeps the name of a subkey, unless it takes more than reading it as it stands. Returns the bytes that
    /// takes.
    u64 keepName(u32 index, const KeyRecord& record, u32 round);
    /// Bytes it takes.
    u64 size() const;

 private:
    static constexpr u32 NO_NAME = 0xFFFFFFFF;

    mutable RefCounter _count{0};
    hive_record_nk _record;  // in file byte order
    Ref<String> _name;
    Array<Subkey> _subkeys;
    Utf16Buffer _names;
    u32 _round = 0;  // that of `KnownKeys` in which `_names` was begun
};

/// All that is known of a hive's keys, within a bound; when that is reached all is forgotten.
class KnownKeys {
 public:
    /// The most bytes they take together, but for what objects in use hold on to.
    static constexpr u64 MAX_BYTES = 16U << 20;
    /// The most subkeys of a key that is kept here.
    static constexpr u32 MAX_SUBKEYS = MAX_BYTES / 4 / sizeof(KnownKey::Subkey);

    const Ref<KnownKey>& root() const { return _root; }
    void setRoot(Ref<KnownKey> key);
    /// Makes `key` the one known of the subkey of `parent` at `index`.
    void add(const Ref<KnownKey>& parent, u32 index, const Ref<KnownKey>& key);
    /// Has `parent` keep the name of its subkey at `index`.
    void keepName(KnownKey& parent, u32 index, const KeyRecord& record);

 private:
    void grew(u64 bytes);
    void forget();

    Ref<KnownKey> _root;
    Array<Ref<KnownKey>> _parents;  // of all that were added
    u64 _bytes = 0;
    u32 _round = 0;  // counts how often all was forgotten
};

}  // namespace Libraries::Files::Hive
