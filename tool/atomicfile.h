#pragma once

#include <sys/stat.h>

#include <string>

#include "tool/fdstripe.h"

namespace HiveCtl {

/// A file that is replaced as a whole or not at all: the text goes to a temporary file beside it, which takes
/// its place with `commit`. What is no regular file (a pipe, a terminal) is written to as it is. All
/// operations throw Failure.
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
    /// The temporary file's path. REQUIRES: isAtomic().
    const std::string& temporaryPath() const { return _temporary; }
    /// Makes the text durable and puts it in the file's place.
    void commit();
    /// The same for a file that must not exist yet.
    void commitNew();

 private:
    void openDirectly(const std::string& path, bool isOutput);
    void openTemporary(bool keepContents);
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
    Ref<FdStripe> _stripe;
};

/// Whether both paths name one file.
bool isSameFile(const std::string& a, const std::string& b);

}  // namespace HiveCtl
