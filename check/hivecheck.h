#pragma once

#include <functional>
#include <string>

#include "hive/hivefile.h"

namespace Libraries::Files::Hive {

/// One thing a check found.
struct HiveFinding {
    enum Severity : u32 {
        fault,  ///< the file is not what the format says, or what a record tells is not there
        note,   ///< odd, but nothing is lost by it
    };
    /// Stands for the base block, which has no record offset.
    static constexpr u32 baseBlock = 0xFFFFFFFF;

    Severity severity;
    u32 offset;  ///< of the record or hbin in question; `baseBlock`
    /// The key it belongs to, in library notation from the root's "/" on; null where no key leads to the
    /// record. Paths of more than 128 levels or 4096 characters keep their end, behind "...". Names that
    /// cannot be read, and what is behind the first 255 characters of one, show as "...".
    Ref<String> path;
    Ref<String> value;  ///< the name of the value it belongs to; null when it is not about a value
    std::string text;   ///< what is wrong: one line of ASCII, without anything from the file but numbers
};

/// What a check met, and how many findings it reported.
struct HiveCheckCounts {
    u64 keys = 0;
    u64 values = 0;
    u64 hbins = 0;
    u64 usedCells = 0;
    u64 freeCells = 0;
    u64 faults = 0;
    u64 notes = 0;
};

/// The structural check of a hive file: base block, hbins, cells, and every reference from the root key on,
/// each record looked at once.
///
/// It reads the bytes themselves, so that it also goes through files that `HiveFile::open` refuses, as far as
/// they go. On any input it ends after work linear in the file's length; it takes up to 16 MiB for the file's
/// pages and at most some 64 bytes for each cell, in an ordinary hive 20.
class HIVE_API HiveCheck {
 public:
    using Sink = std::function<void(const HiveFinding&)>;

    /// Checks a whole hive file and hands each finding to `sink` as it comes. `codepage` is that of the names
    /// stored in 8 bits. False when there was nothing to look at: 0x8445 null stripe, 0x10002 element size
    /// other than 1, 0x2001 neither a hive's signature nor an hbin where the first one should be.
    ///
    /// The stripe is for this call alone while it runs; flush a hive that is open over it first.
    static bool run(Ref<Interfaces::Stripe> file, HiveFile::HiveCodepage codepage, const Sink& sink,
                    HiveCheckCounts& counts);
};

}  // namespace Libraries::Files::Hive
