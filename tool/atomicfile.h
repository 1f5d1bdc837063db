#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/filesys/file.h"
#include "tool/failure.h"
#include "tool/fdstripe.h"
#include "tool/watchedstore.h"

namespace HiveCtl {

/// A file that is replaced as a whole or not at all: the text goes to a temporary file beside it, which takes
/// its place with `commit`. What is no regular file (a pipe, a terminal) is written to as it is. All
/// operations throw Failure.
///
/// The temporary file is called FILE.hivectl-XXXXXX, six letters or digits, and is locked for as long as it
/// has that name. Whoever finds one that is not locked knows that its maker was killed, and removes it.
class AtomicFile {
 public:
    /// `keepContents`: the new file begins with what the old one holds.
    AtomicFile(const std::string& path, bool keepContents);
    /// Without a commit the temporary file is removed, and the old file is as it was.
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    /// Where to write to.
    const Ref<FdStripe>& stripe() const { return _stripe; }
    /// Whether the target is untouched until `commit`.
    bool isAtomic() const { return !_temporary.empty(); }
    /// The temporary file as a store to read and write, to be let go before the commit. REQUIRES: isAtomic().
    /// Throws when it could not be opened and locked.
    Ref<Interfaces::Stripe> store();
    /// Whether everything written to the store is in it.
    bool storeIsWhole() const { return !_store || !_store->failure(); }
    /// The failure with the reason why the store could not be written, where that is not told already.
    Failure explained(const Failure& failure) const;
    /// Makes the text durable and puts it in the file's place.
    void commit();
    /// The same for a file that must not exist yet.
    void commitNew();

    /// Removes what killed runs left beside the file, as making one does. Tells of no failure.
    static void removeStale(const std::string& path);

 private:
    using File = Services::Filesystem::Client::File;

    void openDirectly(const std::string& path, bool isOutput);
    void openTemporary(bool keepContents);
    bool makeLocked();
    bool isThere() const;
    u64 copyOldContents();
    void takeOldAttributes(const struct stat& old) const;
    void copyExtendedAttributes() const;
    void finish();
    void syncDirectory();
    void discard();
    [[noreturn]] void fail(const std::string& what, int errnoValue);

    std::string _target;     // symbolic links resolved
    std::string _temporary;  // empty when the target is written directly
    int _fd = -1;
    Ref<File> _locked;         // the temporary file; null where it cannot be locked
    Ref<WatchedStore> _store;  // the same, once asked for
    u32 _lockError = 0;        // why not
    Ref<FdStripe> _stripe;
};

/// Whether both paths name one file.
bool isSameFile(const std::string& a, const std::string& b);

}  // namespace HiveCtl
