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
    /// The same, creating the keys that are missing. Errors: 0x8445, 0x8446 as above, 0x8443 a key could not
    /// be looked up or created; of the keys created up to there some may stay.
    static Ref<Key> openOrCreatePath(const Ref<Key>& start, const Ref<String>& path);

    /// Deletes `key`, a subkey of `parent`, and everything below it. False at the first thing that cannot be
    /// deleted; what was deleted up to there stays deleted. `deletedKeys`, when given, is raised by the
    /// number of keys deleted.
    static bool recursiveKeyDelete(const Ref<Key>& parent, const Ref<Key>& key, u64* deletedKeys = nullptr);
};

}  // namespace Libraries::Files::Hive
