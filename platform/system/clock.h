#pragma once

#include "platform/system/export.h"
#include "platform/system/types.h"

namespace Platform {

class PLATFORM_API Clock {
 public:
    /// The time now as files of our kinds store it: 100 ns units since 1601-01-01 UTC.
    static u64 fileTime();
};

}  // namespace Platform
