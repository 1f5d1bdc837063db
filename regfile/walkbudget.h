#pragma once

#include "hive/base.h"

namespace Libraries::Files::Hive {

/// Bounds a walk over a key tree by what the hive file has room for. Keys and values of an intact hive have
/// records of their own, so a walk that meets more entries, or more data, than the file could hold goes round
/// in a damaged file whose lists name the same records again and again, and might take longer than anybody
/// can wait.
class HIVE_API WalkBudget {
 public:
    /// For a walk that starts at `start`; a key that is no hive file's gets no bounds.
    explicit WalkBudget(const Ref<Key>& start);

    /// Counts one key or value met, and `bytes` of data to be looked at. False when the file cannot hold that
    /// much.
    bool takeEntry() { return _entries-- != 0; }
    bool takeData(u64 bytes) {
        if (bytes > _bytes) return false;
        _bytes -= bytes;
        return true;
    }

 private:
    u64 _entries = ~u64{0};
    u64 _bytes = ~u64{0};
};

}  // namespace Libraries::Files::Hive
