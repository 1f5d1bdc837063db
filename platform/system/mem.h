#pragma once

#include <cstring>

#include "platform/system/types.h"

namespace Platform {

/// Plain memory operations; a count of 0 allows any pointers, null included.
class Mem {
 public:
    static void copy(void* destination, const void* source, u64 bytes) {
        if (bytes) std::memcpy(destination, source, toSize(bytes));
    }
    static void fill8(void* destination, u8 value, u64 bytes) {
        if (bytes) std::memset(destination, value, toSize(bytes));
    }
};

}  // namespace Platform
