#pragma once

#include "hive/base.h"
#include "platform/iochar/charprinter.h"

namespace Libraries::Files::Hive {

/// Exchange of key branches with registry export text ("Windows Registry Editor Version 5.00").
class HIVE_API RegFileUtil {
 public:
    /// A bit set.
    enum ExportOptions : u32 {
        exportDefault = 0,
        exportAppend = 1,  ///< keep what the target holds and write behind it: no byte-order mark, no header
        exportBinaryOnly = 2,  ///< every value as "hex(type):", which loses nothing
    };

    /// Writes `key` and everything below it as export text (UTF-16LE, lines ended by "\r\n") to the file at
    /// `path`, created when missing. Section names begin with `prefix` (library notation). Names and texts
    /// are written as they stand, unescaped. Memory does not grow with the branch.
    ///
    /// False on failure, the reason as a line on `errorPrinter` or, when that is null, in the log; what was
    /// written up to there stays in the target. `flag` is kept for callers of old and changes nothing.
    static bool exportRegFile(const Ref<Key>& key, const Ref<String>& path, const Ref<String>& prefix,
                              ExportOptions options, const Ref<CharPrinter>& errorPrinter, bool flag);
    /// The same to a byte store, from its start or, with `exportAppend`, from its end on.
    static bool exportRegFile(const Ref<Key>& key, const Ref<Interfaces::Stripe>& target,
                              const Ref<String>& prefix, ExportOptions options,
                              const Ref<CharPrinter>& errorPrinter, bool flag);
};

}  // namespace Libraries::Files::Hive
