#pragma once

#include <optional>

#include "hive/hivefile.h"
#include "regfile/salvage/salvagefile.h"

namespace Libraries::Files::Hive {

/// A key's record, as far as it matters for an export.
struct SalvagedKey {
    u32 record;
    std::u16string name;
    u16 flags;
    u32 parent;
    u32 numOfKeys;
    u32 keyList;
    u32 numOfValues;
    u32 valueList;
};

struct SalvagedValue {
    u32 record;
    std::u16string name;
    u32 type;
    u32 size;
    bool resident;
    u32 dataOrOffset;  // as stored
};

/// Reads the records of a damaged hive one by one, and takes what is there of each. Whatever is not as it
/// should be goes into `flaws`.
///
/// The lists and data it reads are bounded in sum by what the file has room for: only cells that overlap or
/// are named again and again can say more.
class SalvageRecords {
 public:
    SalvageRecords(SalvageFile& file, HiveFile::HiveCodepage codepage);

    /// The key at a record offset; nothing, with a flaw, when none is there. `parent` is the record that
    /// names it: a key that names it back needs no signature.
    std::optional<SalvagedKey> key(u32 record, u32 parent, SalvageFlaws& flaws);
    /// The records that a key's subkey lists name.
    Array<u32> subkeys(const SalvagedKey& key, SalvageFlaws& flaws);
    /// The records that a key's value list names.
    Array<u32> values(const SalvagedKey& key, SalvageFlaws& flaws);
    std::optional<SalvagedValue> value(u32 record, SalvageFlaws& flaws);
    /// Appends the value's data, with zeros in the place of pieces lost before others. False when it is not
    /// all there; nothing may have come then, too.
    bool data(const SalvagedValue& value, Array<u8>& bytes, SalvageFlaws& flaws);

 private:
    /// A record with a signature, and how many bytes may belong to it; 0 when it cannot be read.
    u64 record(u32 offset, u64 fixedSize, bool isMeant, const char* kind, SalvageFlaws& flaws);
    bool hasSignature(u32 offset, const char* signature);
    std::u16string name(u32 offset, u64 place, u32 length, u64 room, bool compressed, SalvageFlaws& flaws);
    std::u16string decode(u32 offset, const Array<u8>& bytes, bool compressed, SalvageFlaws& flaws);

    void appendSublist(u32 list, bool mayNest, Array<u32>& records, SalvageFlaws& flaws);
    void appendEntries(u64 place, u64 stride, u64 count, u32 list, Array<u32>& records, SalvageFlaws& flaws);

    bool single(u32 owner, const SalvageCell& cell, u64 size, Array<u8>& bytes, SalvageFlaws& flaws);
    bool fragments(u32 owner, u32 db, u64 size, Array<u8>& bytes, SalvageFlaws& flaws);
    bool fragment(u32 owner, u32 offset, u64 place, u64 wanted, Array<u8>& bytes, SalvageFlaws& flaws);
    bool takeBytes(u64 count);

    SalvageFile& _file;
    const HiveFile::HiveCodepage _codepage;
    const bool _isV13;
    u64 _entriesLeft;
    u64 _bytesLeft;
};

}  // namespace Libraries::Files::Hive
