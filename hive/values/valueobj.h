#pragma once

#include <span>

#include "hive/nameslot.h"
#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

class KeyObj;
class ValueRecord;

/// A value: the object for one vk record. Its data lies in the record itself (up to 4 bytes), in one data
/// cell, or, for more than 16,344 bytes in a version 1.5 hive, in fragments named by a db record.
///
/// Ownership: holds its hive and its key. Locking: the operations of the interface hold the hive's monitor,
/// but for the plain getters; those marked internal REQUIRE it held.
class HIVE_API ValueObj final : public Value, public Object {
 public:
    /// Length reported as every value's maximum, and the capacity of a data cell in a version 1.3 hive.
    /// `size(n)` does not enforce it.
    static constexpr u32 MAX_VALUE_DATA_SIZE = 1048572;
    static constexpr u32 MAX_VALUE_NAME_LENGTH = 16383;  // characters

    /// Reads the value at `recordOfs`; check `valid()`. `likelyName` (may be null) becomes its name if that
    /// is the stored one. Error: 0x200C impossible resident length. Internal.
    ValueObj(Ref<RegistryHiveObj> hive, u32 recordOfs, Ref<KeyObj> parent,
             const Ref<String>& likelyName = nullptr);
    /// The same with the record at hand.
    ValueObj(const ValueRecord& record, Ref<KeyObj> parent, const Ref<String>& likelyName);
    ~ValueObj() override;

    Ref<String> name() const override { return _valid ? _name.get() : nullptr; }
    ValueType type() const override { return _type; }
    bool setType(ValueType type) override;
    u32 size() override;
    u32 size(u32 newSize) override;
    u32 maxSize() const override { return MAX_VALUE_DATA_SIZE; }
    bool canResize() const override { return _canResize; }
    bool readOnly() override { return !_valid || _readOnly; }
    u32 read(ShPtr destination, u32 offset, u32 count) override;
    u32 write(ShPtr source, u32 offset, u32 count) override;
    Ref<String> string(u32 maxLength) override;
    bool setString(Ref<String> text) override;
    /// The same, for those who have the units only.
    bool setUnits(std::u16string_view text);
    Ref<TVector<Ref<String>>> strings(u32 maxLength) override;
    bool setStrings(Ref<TVector<Ref<String>>> texts) override;
    u64 number() override;
    bool setNumber(u64 number) override;
    Ref<Interfaces::Stripe> binary() override;

    bool valid() const { return _valid; }
    u32 recordOfs() const { return _recordOfs; }
    /// Length of the stored name in bytes.
    u32 binaryNameLength() const { return L16ToHost(_recordData.nameLength); }
    /// Whether data of this length is kept behind a db record; says nothing of resident data.
    bool usesDbList() const { return !_isV13 && _dataSize > hive_record_vk::V1_5_MAX_DATA_WITHOUT_DB; }
    const Ref<RegistryHiveObj>& hive() const { return _hive; }
    Ref<KeyObj> parent() const;
    void setParent(Ref<KeyObj> parent);

    /// Writes a new vk record, and a data cell where the type's length needs one, for a value of `parent`
    /// that is not in its value list yet. Null on failure: 0x1009 name too long. Internal.
    static Ref<ValueObj> createValue(const Ref<RegistryHiveObj>& hive, const Ref<KeyObj>& parent,
                                     const Ref<String>& name, ValueType type);
    /// Rewrites the vk record with a new name and returns its offset, which may have changed: the caller
    /// stores it in the key's value list. On failure 0xFFFFFFFF (0x1001 not valid, 0x100B name too long) or 0
    /// (0x100B name not encodable, or the record could not be written).
    u32 setName(const Ref<String>& name);
    /// Frees the data's cells and the vk record; the object is not valid afterwards. The value list is not
    /// touched.
    bool selfDelete();

    /// The fixed data length of a type: 4 or 8 for numbers, 0 for all others.
    static u32 datasizeFormType(ValueType type);
    /// The data bytes that the cell at `extent` is taken to cover: what a cell of the hive's version may
    /// hold, but never more than its own offset allows. The offset, not the cell's length, is the rule that
    /// readers of existing hives rely on.
    static u32 coveredLength(u32 extent, const RegistryHiveObj& hive);

 private:
    bool takeRecord(const ValueRecord& record, const Ref<String>& likelyName);

    // Data extents (extents.cpp). Internal.
    bool initExtents();
    bool initSingleExtent(const RecordView& cell, u32 dataCell);
    bool holdsData(const RecordView& cell, u32 dataCell) const;
    bool isSingleForGood() const;
    RecordView loadSingle() const;
    bool initDbList(const RecordView& cell, u32 dataCell);
    bool loadFragments(const Array<u32>& fragments);
    template <typename Piece>
    u32 walkExtents(std::span<const u32> extents, u32 offset, u32 count, Piece piece) const;

    u32 readResident(ShPtr destination, u32 count) const;
    bool readAll(void* buffer, u32 bytes);
    bool updateVkRecord();
    u32 writeResident(ShPtr source, u32 count);

    // Resizing (valueresize.cpp).
    bool freeAllExtents();
    u32 resizeFailed(const char* message) const;
    u32 finishResize(u32 newSize);
    u32 resizeToResident(u32 newSize);
    u32 resizeToSingle(u32 newSize);
    u32 resizeSingle(u32 newSize);

    // Resizing to, and within, a db list (dblist.cpp).
    u32 resizeDbList(u32 newSize);
    const char* resizeFragments(u16 fragments);
    const char* makeDbList(u16 fragments);
    const char* writeDbList();

    bool dataIsThere();
    bool canSet(bool typeSuits) const;
    bool replaceData(const void* data, u32 bytes, const char* resizeFailure, const char* writeFailure);
    bool readUnits(u32 units, Utf16Buffer& text);

    const Ref<RegistryHiveObj> _hive;
    Ref<KeyObj> _parent;
    Array<u32>
        _extents;  // record offsets of the cells that hold the data, in data order; empty until worked out
    NameSlot _name;
    hive_record_vk _recordData{};  // in file byte order, kept in step with the record
    u32 _recordOfs;
    std::atomic<u32> _dataSize{0};  // bytes, without the resident flag
    std::atomic<ValueType> _type{valueNone};
    u32 _dbListDataRecord = INVALID_RECORD;  // the fragment list's cell, once worked out
    bool _dbListStale = false;               // the fragment list on disk is not `_extents`, after a failure
    bool _dataResident = false;
    std::atomic<bool> _valid{false};
    bool _isV13 = false;
    bool _canResize = false;
    const bool _readOnly;
};

}  // namespace Libraries::Files::Hive
