#pragma once

#include "hive/keys/keyrecord.h"
#include "hive/keys/leafcopy.h"
#include "hive/keys/subkeylist.h"
#include "hive/nameslot.h"
#include "hive/pathnotation.h"
#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

class KeyIteratorObj;
class ValueIteratorObj;
class ValueObj;
class ValueRecord;

/// Stands for no entry of a list.
constexpr u32 NO_INDEX = 0xFFFFFFFF;

/// One value in a key's value list: its vk record and the object last built for it. Once its name was looked
/// at, the name's hash stays behind, so that a search by name opens only likely matches.
struct ValueEntry {
    u32 record;
    u32 nameHash = 0;  // of the upper-case form
    bool nameKnown = false;
    WeakRef<ValueObj> value;
};

/// A key: the object for one nk record. Keeps a copy of the record's fixed part and, loaded on first use, the
/// lists of its subkeys and values.
///
/// Ownership: holds its hive and the objects of all keys above it (where it was found by path those may come
/// to be later than its own, see `KnownKeys::distant`); refers to its children and iterators weakly, so that
/// asking for a live child again gives the same object. It is the single owner of its children's list state.
/// Locking: the operations of the interface hold the hive's monitor; those marked internal REQUIRE it held.
class HIVE_API KeyObj final : public Key, public Object {
 public:
    static constexpr u32 MAX_KEY_NAME_LENGTH = 255;  // characters
    static constexpr u32 MAX_KEYS_LF_LIST = 400;     // entries an lf record takes
    static constexpr u32 MAX_KEYS_LH_LIST = 1200;
    static constexpr u32 MAX_KEYS_LI_LIST = 900;
    static constexpr u32 MIN_KEYS_LH_LIST_SEC_LVL = 500;  // declared only: no list is merged by a lower bound
    static constexpr u32 MIN_KEYS_LI_LIST_SEC_LVL = 300;
    static constexpr u32 NEW_LH_LF_ALLOCATE_SIZE = 64;  // bytes of a new list record
    static constexpr u32 NEW_RI_ALLOCATE_SIZE = 64;
    static constexpr u64 MAX_FREE_FIND_LOOP_CYCLES = 5;
    /// Levels below the root that a key may lie at.
    static constexpr u32 MAX_KEY_DEPTH = KeyRecord::MAX_DEPTH;

    /// Reads the key at `recordOfs`; check `valid()`. `parent` is null for the root key, and only for it.
    /// `likelyName` (may be null) becomes its name if that is the stored one. Error: 0x2004 no readable nk
    /// record. Internal.
    KeyObj(Ref<RegistryHiveObj> hive, u32 recordOfs, Ref<KeyObj> parent,
           const Ref<String>& likelyName = nullptr);
    /// The same for the subkey at `place` of a key that is known; where it is known itself, its record is not
    /// looked at. `above` is its parent, or the nearest key above it that has an object.
    KeyObj(Ref<KnownKey> known, u32 place, Ref<KeyObj> above);
    ~KeyObj() override;

    Ref<String> name() override { return _valid ? _name.get() : nullptr; }
    Ref<Key> key(Ref<String> name) override;
    Ref<Key> createKey(Ref<String> name) override;
    bool deleteKey(Ref<Key> key) override;
    Ref<KeyIterator> keyIterator() override;
    Ref<Value> value(Ref<String> name) override;
    Ref<Value> createValue(Ref<String> name, Value::ValueType type) override;
    bool deleteValue(Ref<Value> value) override;
    Ref<ValueIterator> valueIterator() override;
    bool move(Ref<Value> value, Ref<String> newName) override;
    bool move(Ref<Key> key, Ref<String> newName) override;
    bool readOnly() override { return !_valid || _readOnly; }

    bool valid() const { return _valid; }
    /// Length of the stored name in bytes.
    u32 binaryNameLength() const { return L16ToHost(_record.nameLength); }
    /// Record offset of the security record.
    u32 sdOffset() const { return L32ToHost(_record.security); }
    u32 keys() const { return _numOfKeys; }
    u32 values() const { return _numOfValues; }
    u32 recordOfs() const { return _recordOfs; }
    const Ref<RegistryHiveObj>& hive() const { return _hive; }

    /// The subkey or value at an index of the list; null when there is none, not `valid()` when it is
    /// unreadable.
    Ref<KeyObj> key(u32 index);
    Ref<ValueObj> value(u32 index);
    ValueListPlace valueList() const { return {_valueListCell, _numOfValues}; }
    /// Copies the subkey at an index of the list, which must be loaded, without an object, where it has no
    /// subkeys and nothing stands in the way; else false, without a word. REQUIRES: the hive is read-only.
    bool copyLeaf(u32 index, LeafCopy& copy);
    /// The key that the names lead to, each as by `key(name)`. No object is made of a key on the way where
    /// what is known of it will do.
    Ref<KeyObj> findPath(PathNames& names);

    Ref<KeyObj> parent();
    void setParent(Ref<KeyObj> parent);
    /// Writes the fixed part of the record copy back to the nk record. Internal.
    bool syncKeyRecord();

    // Lookup (subkeyloading.cpp, subkeylookup.cpp). Internal.

    /// Loads the subkey lists once. Error: 0x2007.
    bool initSubkeys();
    /// Loads the value list once. Error: 0x2008.
    bool initValues();
    /// The hint or hash of a name for a list of the given type. With `lenient` a character without a byte
    /// counts as 0, else it fails.
    bool makeHash(KeyListType type, const Ref<String>& name, SubkeyHash& hash, bool compressed,
                  bool lenient) const;
    /// The subkey of that name by binary search over the sorted list. On a miss `position` (may be null) is
    /// where it would have to be inserted (error 0x1003), or 0xFFFFFFFF when the search broke down.
    Ref<KeyObj> binaryFindKey(std::u16string_view name, u32* position);
    /// The same by looking at every subkey; on a miss `position` is 0xFFFFFFFF.
    Ref<KeyObj> linearFindKey(std::u16string_view name, u32* position);

    /// `createKey` and `createValue` for a name that was not found by the search made last, under the same
    /// hold of the monitor: it is not searched for again where that would tell and touch nothing new.
    Ref<Key> createMissingKey(const Ref<String>& name);
    Ref<Value> createMissingValue(const Ref<String>& name, Value::ValueType type);

    // Maintenance of the lists (valuelist.cpp, subkeymaintenance.cpp). Internal.

    /// Appends the value's record to the value list.
    bool linkValue(const Ref<ValueObj>& value);
    /// Removes the value, which must be the very object this key handed out (else 0x8446).
    bool unlinkValue(const Ref<ValueObj>& value);
    /// Makes room for one more entry in the list record that would receive one at `position`.
    bool ensureFreeListPlace(u32 position);
    /// Inserts an entry; room must have been made. `key` may be null.
    bool insertKey(u32 position, u32 nkOffset, SubkeyHash hash, const Ref<KeyObj>& key);
    /// Removes the entry of the very object `key` (else 0x8446), passing over the one at `skipIndex`.
    bool unlinkKey(const Ref<KeyObj>& key, u32 skipIndex);

    // Changes of the key itself (keyoperations.cpp, keymove.cpp). Internal.

    /// Whether the key has neither subkeys nor values and may be changed.
    bool canBeDeleted() const;
    /// Frees the key's records; the object is not valid afterwards. Its parent's list is not touched.
    bool selfDelete();
    /// Rewrites the nk record with a new name and parent and computes the name's hint or hash for a list of
    /// the given type. Returns the record's offset, which may have changed, or INVALID_RECORD.
    u32 setName(const Ref<String>& name, KeyListType listType, SubkeyHash& hash, u32 parentCell);
    /// Counts one user more or less in a security record. Always true: a broken security record leaves a log
    /// line and never stops a key from coming or going.
    bool adjustSecurityCellRefCount(u32 securityCell, bool increment);

 private:
    bool canChange() const;
    bool loadRecord(const Ref<String>& likelyName);
    Ref<KeyObj> openSubkey(u32 index, const Ref<String>& likelyName = nullptr);
    enum class Outcome : u8 { found, missing, unreadable, irregular };
    static Outcome searchKnown(RegistryHiveObj& hive, KnownKey& known, const FoldedName& name, u32& place);
    static Ref<KeyObj> openFound(const Ref<KnownKey>& known, u32 index, const Ref<KeyObj>& above);
    static Ref<KeyObj> openKnown(const Ref<KnownKey>& known, const Ref<KeyObj>& above);
    static Ref<KeyObj> openKnownSubkey(const Ref<KnownKey>& known, u32 index, const Ref<KeyObj>& above);
    void holdFromBelow();

    bool hasSubkey(u32 index);
    u32 subkeyRecord(u32 index) {
        return _known ? _known->subkeys()[index].record : _keyList.at(index).record;
    }
    Ref<KeyObj> liveSubkey(u32 index);
    void becomeKnown();
    void takeRecord(const hive_record_nk& record);
    void foresee(const FoldedName& name) const;
    bool compareSubkey(u32 index, const FoldedName& name, int& order, bool& isEmpty, Ref<KeyObj>& object);
    bool loadTopList(const RecordView& record);
    bool loadOneLevel(const RecordView& record, KeyListType type, const char* failure);
    bool loadTwoLevel(const RecordView& record);
    u16 loadList(const RecordView& record, KeyListType type, u32 start, Array<SubkeyEntry>& entries) const;

    Ref<ValueObj> openValue(u32 index, const ValueRecord& record, const Ref<String>& likelyName);
    void forgetChangedValues();
    bool mayBeNamed(u32 index, u32 nameHash, ValueRecord& record, bool& readable);
    bool rewriteValueList(u32 removed);
    bool syncValueList(u32 cell);

    bool createEmptyKeyList();
    bool convertLfToLiList();
    bool addSecTreeLevel();
    bool splitRISublist(u32 j);
    bool syncRIList();
    bool makeListPlace(u32 j);
    u32 writeKeyListRecord(u32 cell, u32 first, u16 count, u32 minSize);
    bool rewriteSublist(u32 j, const char* function);
    bool removeEmptySublist(u32 j);
    void setTopList(u32 cell);
    u32 indexOfKey(const Ref<KeyObj>& key, u32 skipIndex);

    Ref<Key> createKeyAt(u32 position, const Ref<String>& name);
    u32 writeNewKey(const Ref<String>& name, SubkeyHash& hash);
    bool freeLists();
    bool canReceive(const Ref<KeyObj>& key) const;
    bool fitsInto(u32 levels, u64& budget);
    void updateParentOfSubkeys(u32 oldCell);

    const Ref<RegistryHiveObj> _hive;
    Ref<KeyObj> _parent;  // null for the root key; of a distant key, the nearest above that has an object
    Ref<KnownKey> _knownParent;  // of a key found through what is known of its parent
    Array<WeakRef<KeyIteratorObj>> _keyIterators;
    Array<WeakRef<ValueIteratorObj>> _valueIterators;
    SubkeyList _keyList;    // empty where the list of `_known` serves
    Ref<KnownKey> _known;   // of a read-only hive, once its subkeys were searched
    u32 _place = NO_INDEX;  // in the parent's list, when it got there
    Array<ValueEntry> _values;
    u64 _changesSeen = 0;  // of the hive's value changes
    NameSlot _name;
    hive_record_nk _record{};  // in file byte order
    u32 _recordOfs;
    std::atomic<u32> _numOfKeys{0};  // these two and `_valid` are read without the lock
    std::atomic<u32> _numOfValues{0};
    u32 _keyListCell = 0;    // top subkey list record, 0 when there is none
    u32 _valueListCell = 0;  // value list record, 0 when there is none
    u32 _depth;              // levels below the root
    const HiveFile::HiveCodepage _codepage;
    u32 _missedAt = NO_INDEX;  // where the last search by name ended without finding and without a word
    KeyListType _listType = keyListLH;
    std::atomic<bool> _valid{false};
    bool _twoLevelList = false;
    bool _subkeysLoaded = false;
    bool _valueMissed = false;  // as `_missedAt`, of values
    const bool _readOnly;
};

}  // namespace Libraries::Files::Hive
