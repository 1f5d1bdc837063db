#pragma once

#include <functional>
#include <string>

#include "hive/hivefile.h"
#include "platform/system/heap.h"
#include "regfile/regfileutil.h"

namespace Libraries::Files::Hive {

/// Something in a damaged hive that was not as it should be.
struct SalvageFinding {
    enum Kind {
        lost,      ///< it is not in the text
        doubtful,  ///< it is in the text, but in part, or perhaps not as it was
        note,      ///< damage that by itself cost nothing
    };
    Kind kind;
    std::u16string path;       ///< the key concerned, library notation from the root's "/" on
    bool ofValue;              ///< whether it concerns a value of the key
    std::u16string valueName;  ///< its name, where it could be read
    u32 record;                ///< record offset
    std::string reason;        ///< what is wrong, a short text
};

/// What a salvage did.
struct SalvageCounts {
    u64 keys = 0;  ///< in the text; so is `values`
    u64 values = 0;
    u64 lost = 0;
    u64 doubtful = 0;
};

/// Registry export text of damaged hives. Where `RegFileUtil` stops at the first thing that cannot be read,
/// this goes on, writes all that is still to be found and tells what is not. It looks at no checksum, length
/// or count it can do without, reads list after list and cell after cell by itself, and gives data by what
/// its cells hold. Of an intact hive it writes the same bytes.
///
/// A key's record is written once: a second reference to it, as in a list that goes round, is a loss. Takes
/// time in proportion to the file's length, and memory in proportion to the number of cells and to the
/// largest value. Not thread-safe.
class HIVE_API Salvage {
 public:
    using Sink = std::function<void(const SalvageFinding&)>;

    /// Writes the key that `names` lead to from the root key, and everything below it, to `target`, as
    /// `RegFileUtil::exportRegFile` does; findings go to `sink` as they are met. The hive's bytes in `hive`
    /// are only read. What could not be found is no failure; `counts` tells it.
    ///
    /// False on failure: 0x8445 null argument, 0x10002 element size other than 1, 0x2001 no root key could be
    /// found, 0x1003 no such key; with any other code the text could not be written. For the first four
    /// nothing was written.
    static bool exportRegFile(const Ref<Interfaces::Stripe>& hive, HiveFile::HiveCodepage codepage,
                              const Array<Ref<String>>& names, const Ref<Interfaces::Stripe>& target,
                              const Ref<String>& prefix, RegFileUtil::ExportOptions options, const Sink& sink,
                              SalvageCounts& counts);
};

}  // namespace Libraries::Files::Hive
