#pragma once

#include "platform/iochar/charprinter.h"

namespace Platform {

/// Where log lines go.
class PLATFORM_API SysLogStream {
 public:
    /// The printer log lines are written to; the standard output unless it was redirected.
    static Ref<CharPrinter> stdOutPrinter();
    /// Sends log lines to another printer; null restores the standard output.
    static void redirect(Ref<CharPrinter> printer);
};

}  // namespace Platform
