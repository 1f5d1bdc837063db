#pragma once

#include <span>

#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

/// A vk record in the cache, checked. For building a value's object, and for looking at a value's name
/// without one. Valid until the next store operation. REQUIRES the hive's monitor held, as all that follows.
class ValueRecord {
 public:
    /// The record at `offset`; false, with the reason in the log, when there is none that holds its name.
    bool load(RegistryHiveObj& hive, u32 offset);
    /// The same without a word, for a record at hand whose data can be as long as it says.
    bool peek(RegistryHiveObj& hive, u32 offset);
    /// Whether its data can be as long as it says; else false with the reason in the log. To be asked after
    /// the name: readers of logs know the lines in this order. Error: 0x200C.
    bool checkDataLength() const;

    /// Whether one was loaded, and from where.
    bool isLoaded() const { return bool(_view); }
    u32 offset() const { return _offset; }
    const hive_record_vk& fixedPart() const { return _vk; }
    /// Bytes of data, without the resident flag, and whether they lie in the record.
    u32 dataSize() const { return L32ToHost(_vk.dataSize) & ~hive_record_vk::FLAG_RESIDENT; }
    bool isResident() const {
        return (L32ToHost(_vk.dataSize) & hive_record_vk::FLAG_RESIDENT) != 0 || dataSize() == 0;
    }
    /// Copies the name where it stands there as it is and fits; else false, without a word.
    bool copyName(std::span<char16_t> units, u32& length) const;
    /// The name, the very object `likely` (may be null) if that is it; null, with a log line, when a byte of
    /// it has no character.
    Ref<String> name(const Ref<String>& likely = nullptr) const;
    /// `hashOf` the name; false where `name` gives null.
    bool nameHash(u32& hash) const;
    /// A hash of the upper-case form of a name.
    static u32 hashOf(std::u16string_view name);

 private:
    bool isDataLengthSound() const { return !isResident() || dataSize() <= sizeof(_vk.data_or_offset); }
    bool isCompressed() const { return (L16ToHost(_vk.flags) & hive_record_vk::FLAG_COMPRESSED_NAME) != 0; }

    RegistryHiveObj* _hive = nullptr;
    RecordView _view;
    hive_record_vk _vk{};  // in file byte order
    u32 _offset = INVALID_RECORD;
    HiveFile::HiveCodepage _codepage = HiveFile::hiveCodepageAscii;
};

}  // namespace Libraries::Files::Hive
