#pragma once

#include <span>

#include "hive/foldedname.h"
#include "hive/nameencoding.h"
#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

/// An nk record in the cache, checked. For building a key's object, and for looking at a key's name without
/// one. Valid until the next store operation. REQUIRES the hive's monitor held, as all that follows.
class KeyRecord {
 public:
    /// Levels below the root that a key may lie at. Windows allows 512; a file may claim any number, also a
    /// ring.
    static constexpr u32 MAX_DEPTH = 512;

    /// The record at `offset` of a key `depth` levels below the root; false, with the reason in the log, when
    /// there is no sound one. Error: 0x2004.
    bool load(RegistryHiveObj& hive, u32 offset, u32 depth);

    /// The same without a word, for a record at hand; the depth is the caller's to check.
    bool peek(RegistryHiveObj& hive, u32 offset);
    /// Copies the name where it stands there as it is and fits; else false, without a word.
    bool copyName(std::span<char16_t> units, u32& length) const;

    const hive_record_nk& fixedPart() const { return _nk; }
    /// The name, the very object `likely` (may be null) if that is it; null, with a log line, when a byte of
    /// it has no character.
    Ref<String> name(const Ref<String>& likely = nullptr) const;
    /// Calls `use(length, unitAt)` with the units of a name that stands there as it is, one byte or two to a
    /// unit; false, without a call, when its bytes have to be converted.
    template <typename Use>
    bool plainName(Use use) const {
        const u16 length = L16ToHost(_nk.nameLength);
        const u8* const bytes = _view.bytesAt(sizeof(_nk), length);
        if (!bytes || (isCompressed() && !isPlainName(bytes, length, _codepage))) return false;
        if (isCompressed())
            use(length, [bytes](u64 i) { return char16_t{bytes[i]}; });
        else
            use(length / 2U,
                [bytes](u64 i) { return static_cast<char16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8); });
        return true;
    }
    /// How the name, upper-cased, compares with `other`: `order` becomes less than 0, 0 or greater than 0.
    /// False, without a log line, when a byte of it has no character.
    bool compareName(const FoldedName& other, int& order, bool& isEmpty) const;

 private:
    bool check(RegistryHiveObj& hive, u32 depth);
    Ref<String> decodedName() const;
    bool isCompressed() const { return (L16ToHost(_nk.flags) & hive_record_nk::FLAG_COMPRESSED_NAME) != 0; }

    RecordView _view;
    hive_record_nk _nk{};  // in file byte order
    u32 _offset = INVALID_RECORD;
    HiveFile::HiveCodepage _codepage = HiveFile::hiveCodepageAscii;
};

}  // namespace Libraries::Files::Hive
