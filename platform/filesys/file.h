#pragma once

#include "platform/interfaces/stripe.h"
#include "platform/system/string.h"

namespace Services::Filesystem::Client {

/// Something of the file system that can be made durable.
class FSItem : public virtual Platform::RefCount {
 public:
    /// Makes what was written durable (fsync). False with the error code set on failure.
    virtual bool flush() = 0;
};

/// An open file: a byte store with element size 1, and a file-system item. Reads and writes go straight to
/// the file (never through a memory map), so that a file that shrinks meanwhile gives short reads, not a
/// signal.
class PLATFORM_API File : public virtual Interfaces::Stripe, public virtual FSItem {
 public:
    /// Bits of the open flags.
    enum OpenFlags : Platform::u32 {
        openFile = 0x001,      ///< always set
        openRead = 0x002,      ///< read only
        openExisting = 0x008,  ///< the file must exist already
        openWrite = 0x010,     ///< read and write; takes an advisory lock, so that a second writer is refused
        openCreate = 0x100,    ///< made when missing
        readExisting = openFile | openRead | openExisting,        ///< 11
        readWriteExisting = openFile | openExisting | openWrite,  ///< 25
        readAny = openFile | openRead,                            ///< 3
        writeOrCreate = openFile | openWrite | openCreate,        ///< 0x111
    };

    /// Opens a regular file or block device. Null on failure with the error code set: 0x8445 null path,
    /// 0x8446 flags that name no combination above or a path with a NUL, otherwise 0x20000 plus errno
    /// (EWOULDBLOCK: another process or opener has the file open for writing).
    static Platform::Ref<File> open(Platform::Ref<Platform::String> path, Platform::u32 flags);
};

}  // namespace Services::Filesystem::Client
