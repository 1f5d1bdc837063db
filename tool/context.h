#pragma once

#include <string>

#include "tool/base.h"

namespace HiveCtl {

/// What every command that works on a hive is told about it.
struct HiveOptions {
    std::string path;
    HiveFile::HiveCodepage codepage = HiveFile::hiveCodepageLatin1;
    bool unsafe = false;
    int verbosity = 0;
};

/// An open key and where it is.
struct KeyAt {
    Ref<Key> key;
    std::u16string path;  ///< library notation, from the root's "/" on
};

/// Why a hive file could not be opened, in words.
std::string openFailure(const HiveOptions& options, u32 code);

/// Opens the hive, in `mode` and, when asked for, unsafe. Throws Failure.
Ref<HiveFile> openHive(const HiveOptions& options, u32 mode = HiveFile::modeReadOnly);

/// Opens the hive's file as bytes, for reading. Throws Failure.
Ref<Interfaces::Stripe> openHiveFile(const HiveOptions& options);

/// The key a path argument means ("" and "/": the root key). Throws Failure.
KeyAt resolveKey(const Ref<HiveFile>& hive, const HiveOptions& options, const std::string& path);

/// The key above the one a path argument means. REQUIRES: the path names a key below the root. Throws
/// Failure.
KeyAt resolveParent(const Ref<HiveFile>& hive, const HiveOptions& options, const std::string& path);

/// The value of that name ("" and "@": the default value). Throws Failure.
Ref<Value> resolveValue(const KeyAt& at, const HiveOptions& options, const std::string& name);

/// How a value's name is shown: quoted, and @ for the default value.
std::string shownValueName(const Ref<String>& name);

}  // namespace HiveCtl
