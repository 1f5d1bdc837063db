#pragma once

#include "platform/system/export.h"
#include "platform/system/types.h"

namespace Platform {

/// The per-thread error code: failing operations set it before they return their failure value. It is never
/// cleared by success unless an operation says so. 0 means no error.
class PLATFORM_API Error {
 public:
    static void set(u32 code);
    static u32 get();

    /// Codes of the platform itself; libraries above define their own.
    static constexpr u32 nullArgument = 0x8445;
    static constexpr u32 wrongArgument = 0x8446;
    static constexpr u32 notSupported = 0x10002;
    /// A failed call of the operating system: this base plus its errno.
    static constexpr u32 systemBase = 0x20000;
    static void setSystem(int errnoValue) { set(systemBase + static_cast<u32>(errnoValue)); }
};

}  // namespace Platform
