#pragma once

#include "hive/base.h"
#include "platform/iochar/charprinter.h"

namespace Libraries::Files::Hive {

/// What an import did.
struct ImportCounts {
    u64 keysCreated = 0;
    u64 keysDeleted = 0;
    u64 valuesSet = 0;
    u64 valuesDeleted = 0;
};

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

    /// Applies the registry export text in the file at `path` to a hive: creates the keys of its sections,
    /// deletes those of sections that begin with "-", sets and deletes values. Section names must begin with
    /// `prefix` (library notation), which is dropped. Text in UTF-16LE, and with a byte-order mark in
    /// UTF-16BE and UTF-8, well-formed UTF-8 also without.
    ///
    /// False at the first line that cannot be applied, the reason, beginning "line N: ", as a line on
    /// `errorPrinter` or, when that is null, in the log; what was applied up to there stays. With `verbose`
    /// each key created leaves a log line. Nothing is flushed. `counts`, when given, tells what was done, on
    /// failure too.
    static bool importRegFile(const Ref<RegistryHive>& hive, const Ref<String>& path,
                              const Ref<String>& prefix, const Ref<CharPrinter>& errorPrinter, bool verbose,
                              ImportCounts* counts = nullptr);
    /// The same from a byte store.
    static bool importRegFile(const Ref<RegistryHive>& hive, const Ref<Interfaces::Stripe>& source,
                              const Ref<String>& prefix, const Ref<CharPrinter>& errorPrinter, bool verbose,
                              ImportCounts* counts = nullptr);
};

}  // namespace Libraries::Files::Hive
