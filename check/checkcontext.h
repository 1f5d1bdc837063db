#pragma once

#include "check/celltable.h"
#include "check/filebytes.h"
#include "check/hivecheck.h"

namespace Libraries::Files::Hive {

/// "0x1a2b".
std::string hexText(u64 number);
/// "1 key", "2 keys".
std::string countText(u64 count, const char* noun);

/// A used cell that a reference led to for the first time.
struct TakenCell {
    u32 offset = 0;
    u32 length = 0;
    explicit operator bool() const { return length != 0; }
};

/// What the parts of a check share: the bytes, the cells, and the way findings go out.
class CheckContext {
 public:
    CheckContext(Ref<Interfaces::Stripe> file, HiveFile::HiveCodepage codepage, const HiveCheck::Sink& sink,
                 HiveCheckCounts& totals)
        : bytes(std::move(file)), counts(totals), _codepage(codepage), _sink(sink) {}

    void fault(u32 offset, std::string text) { report(HiveFinding::fault, offset, std::move(text)); }
    void note(u32 offset, std::string text) { report(HiveFinding::note, offset, std::move(text)); }

    /// Takes the cell that the record at `owner` (CellTable::NONE: the base block) names for this use. A
    /// reference to no cell, a free one, or one that was taken before is a fault of the owner and gives
    /// nothing; so a cell's contents are looked at once at most.
    TakenCell take(u32 offset, CellUse use, u32 owner);
    /// The first `length` bytes of a record, its size field included; what is not the cell's reads as 0.
    RecordView record(const TakenCell& cell, u64 length) {
        return bytes.view(u64{HIVE_HEADER_SIZE} + cell.offset, std::min<u64>(length, cell.length));
    }
    /// `length` bytes of a record from `from` on.
    RecordView piece(const TakenCell& cell, u64 from, u64 length) {
        return bytes.view(u64{HIVE_HEADER_SIZE} + cell.offset + from,
                          from < cell.length ? std::min<u64>(length, cell.length - from) : 0);
    }
    /// The cell of a record that is known to be one.
    TakenCell cellAt(u32 offset) const;

    /// Decodes a name of `length` bytes that stands in the record from `from` on; false when a byte has no
    /// character. REQUIRES: it lies inside the cell.
    bool readName(const TakenCell& cell, u32 from, u16 length, bool compressed, std::u16string& name);
    /// The name of a key or value record.
    bool readKeyName(const TakenCell& cell, std::u16string& name);
    bool readValueName(const TakenCell& cell, std::u16string& name);
    HiveFile::HiveCodepage codepage() const { return _codepage; }

    FileBytes bytes;
    CellTable cells;
    HiveCheckCounts& counts;
    bool isV13 = false;

 private:
    void report(HiveFinding::Severity severity, u32 offset, std::string text);
    void locate(HiveFinding& finding);
    std::u16string pathOf(u32 key);
    std::u16string shownName(u32 offset, bool isKey);

    const HiveFile::HiveCodepage _codepage;
    const HiveCheck::Sink& _sink;
    u32 _lastKey = CellTable::NONE;  // findings come in flocks: the path made last
    std::u16string _lastPath;
};

}  // namespace Libraries::Files::Hive
