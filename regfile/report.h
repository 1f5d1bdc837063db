#pragma once

#include "platform/iochar/charprinter.h"
#include "platform/syslog/log.h"

namespace Libraries::Files::Hive {

/// Reports an error as one line: on `errorPrinter` when there is one, else in the log. Returns false, for the
/// caller to return in turn.
template <typename... Pieces>
bool report(const Platform::Ref<Platform::CharPrinter>& errorPrinter, Platform::LogChannel channel,
            const Pieces&... pieces) {
    if (!errorPrinter) {
        Platform::log(3, channel, pieces...);
        return false;
    }
    (errorPrinter->print(pieces), ...);
    errorPrinter->endLine();
    return false;
}

}  // namespace Libraries::Files::Hive
