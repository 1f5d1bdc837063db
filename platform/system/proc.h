#pragma once

#include "platform/system/export.h"

namespace Platform {

class PLATFORM_API Proc {
 public:
    /// Ends the process at once with this exit code.
    [[noreturn]] static void exit(int code);
};

/// Serialises one-time initialisation code of the whole process.
class PLATFORM_API InitCode {
 public:
    static void lock();
    static void unlock();
};

}  // namespace Platform
