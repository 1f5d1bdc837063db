#pragma once

#include "platform/iochar/charwriter.h"

namespace Platform {

/// The process's standard streams as character writers: UTF-8, lines end with "\n", each `flush` reaches the
/// system.
class PLATFORM_API StdIO {
 public:
    static Ref<CharWriter> stdOutWriter();
    static Ref<CharWriter> stdErrWriter();
};

}  // namespace Platform
