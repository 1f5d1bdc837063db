#pragma once

#include <array>

#include "platform/system/string.h"

namespace Libraries::Files::Hive {

/// Some value names read before: hives use few names again and again, and those then take one string each.
/// Not thread-safe: the hive's monitor must be held.
class NameCache {
 public:
    /// Where the name that is stored in these bytes may be kept, which then is or was one like it or null.
    Platform::Ref<Platform::String>& slot(const Platform::u8* stored, Platform::u32 length) {
        Platform::u32 hash = length;
        if (length) hash = ((hash * 31 + stored[0]) * 31 + stored[length / 2]) * 31 + stored[length - 1];
        return _names[hash % _names.size()];
    }
    /// Longer names, in bytes as stored, are not kept.
    static constexpr Platform::u32 MAX_LENGTH = 64;

 private:
    std::array<Platform::Ref<Platform::String>, 256> _names;
};

}  // namespace Libraries::Files::Hive
