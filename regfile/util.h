#pragma once

#include "hive/base.h"
#include "hive/errorcodes.h"

namespace Libraries::Files::Hive {

/// Key paths. Two notations exist: in library notation names are separated by '/', and a '/' that belongs to
/// a name is written "\/"; in the notation of registry export files names are separated by '\' and there is
/// no escape. Leading, trailing and doubled separators carry no meaning. Works on any `Key`. Thread-safe.
class HIVE_API Util {
 public:
    /// Library notation to export notation: "/SOFTWARE//Vendor/" gives "SOFTWARE\Vendor". Never null.
    static Ref<String> regPathToWindowsStyle(const Ref<String>& path);
    /// Export notation to library notation: "SOFTWARE\a/b\c" gives "SOFTWARE/a\/b/c". Never null.
    static Ref<String> regPathFromWindowsStyle(const Ref<String>& path);

    /// The key at a path (library notation) below `start`. Null on failure: 0x8445 null argument, 0x8446
    /// empty path (use "/" for the start key itself), 0x1003 a name on the path does not exist.
    static Ref<Key> openPath(const Ref<Key>& start, const Ref<String>& path);
};

}  // namespace Libraries::Files::Hive
