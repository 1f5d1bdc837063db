#pragma once

#include "hive/base.h"
#include "hive/errorcodes.h"
#include "hive/security/securitydescriptor.h"

namespace Libraries::Files::Hive {

/// The base block's fields, in host byte order.
struct HiveHeader {
    u32 primarySequence;  ///< equal to the secondary one when the last writer finished its work
    u32 secondarySequence;
    u64 lastWritten;  ///< 100 ns units since 1601-01-01 UTC
    u32 majorVersion;
    u32 minorVersion;
    u32 rootCell;          ///< record offset of the root key
    u32 hbinsSize;         ///< bytes of the hbins area
    Ref<String> fileName;  ///< the end of the path the hive was loaded from, as far as the block holds it
};

/// What the cells of the hbins area add up to.
struct HiveUsage {
    u32 hbins = 0;
    u64 usedCells = 0;
    u64 usedBytes = 0;
    u64 freeCells = 0;
    u64 freeBytes = 0;
};

/// An open hive file. Hold it, or any key or value of it, for as long as it is to stay open; releasing the
/// last reference writes what has changed and closes the file.
///
/// Thread-safety: one hive may be used from many threads; its monitor `mon` serialises the operations.
class HIVE_API HiveFile : public virtual RegistryHive {
 public:
    /// The 8-bit character set of names stored compressed.
    enum HiveCodepage : u32 {
        hiveCodepageAscii = 0,
        hiveCodepageLatin1 = 1,  ///< ISO 8859-1, what Windows writes
        hiveCodepageCp1250 = 2,
        hiveCodepageCp1252 = 3,
    };

    /// Mode bits. The bits above 4 change no access: 0x8 lets callers resize the data of values of every
    /// type, any of 0xF0 lets a subkey search fall back to a linear one where names cannot be read.
    enum Mode : u32 {
        modeReadWrite = 0,
        modeReadOnly = 1,
        modeWriteThrough = 2,  ///< every change reaches the file at once
        modeUnsafe =
            4,  ///< only with `modeReadOnly`: faster, and reads damaged hives, since cells are not checked
        modeResizeAll = 0x8,
        modeLinearFallback = 0xF0,
    };

    /// Opens a hive over a byte store. Null on failure: 0x8445 null stripe, 0x10002 element size other than
    /// 1, 0x8446 `modeUnsafe` without `modeReadOnly`, 0x2001 no "regf" signature or shorter than its hbins
    /// area, 0x29 version other than 1.3 and 1.5 or wrong checksum; a failed read keeps the stripe's code.
    /// Reads the base block only.
    static Ref<HiveFile> open(Ref<Interfaces::Stripe> stripe, u32 mode, HiveCodepage codepage);
    /// The same for a file, opened read-only with `modeReadOnly` and for reading and writing otherwise; in
    /// addition the file service's codes (0x20000 plus errno).
    static Ref<HiveFile> open(Ref<String> path, u32 mode, HiveCodepage codepage);

    /// Lays out a new, empty hive of version 1.`minorVersion` (3 or 5) in an empty byte store and opens it:
    /// base block, one hbin, a root key, and one security record that gives Administrators and SYSTEM full
    /// control. `fileName` (may be null) goes into the base block's file name field, its last 31 characters.
    /// Null on failure: 0x8445 null stripe, 0x8446 another version, a stripe that is not empty or a read-only
    /// mode, 0x10002 element size other than 1, 0x1002 the store cannot hold it; and the codes of `open`.
    static Ref<HiveFile> create(Ref<Interfaces::Stripe> stripe, u32 minorVersion, u32 mode,
                                HiveCodepage codepage, Ref<String> fileName);

    virtual HiveCodepage codepage() const = 0;
    /// The hive's lock, re-entrant. Hold it to make several operations one step for other threads.
    virtual Ref<Mon> mon() const = 0;
    /// A walk over the security records; null when there is no root key.
    virtual Ref<SecurityDescriptorIterator> securityDescriptorIterator() = 0;

    virtual HiveHeader header() const = 0;
    /// Adds up all cells. Reads the whole file, in bounded memory. False when the hbins or cells are not
    /// intact; what was counted up to there is in `usage`.
    virtual bool usage(HiveUsage& usage) = 0;
};

}  // namespace Libraries::Files::Hive
