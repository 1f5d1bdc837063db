#include "platform/syslog/syslogstream.h"

#include <unistd.h>

#include <mutex>
#include <utility>

#include "platform/iochar/fdwriter.h"
#include "platform/syslog/log.h"
#include "platform/system/error.h"

namespace Platform {

namespace {

struct LogTarget {
    /// Held while a line is printed: lines of several threads do not mix, and a printer that was replaced is
    /// not touched any more.
    std::mutex mutex;
    /// A writer of its own on the standard output: log lines come from any thread, while the process's own
    /// writer (StdIO) is for one user at a time.
    const Ref<CharPrinter> standard = CharPrinter::create(newFdWriter(STDOUT_FILENO));
    Ref<CharPrinter> current = standard;
};

/// Never destroyed: objects that outlive it would still log.
LogTarget& target() {
    static Immortal<LogTarget> instance;
    return instance.object;
}

}  // namespace

Ref<CharPrinter> SysLogStream::stdOutPrinter() {
    LogTarget& log = target();
    const std::lock_guard guard(log.mutex);
    return log.current;
}

void SysLogStream::redirect(Ref<CharPrinter> printer) {
    LogTarget& log = target();
    if (!printer) printer = log.standard;
    // The printer that goes may be closed with its reference, which is none of the lock's business.
    const std::lock_guard guard(log.mutex);
    std::swap(log.current, printer);
}

void LogLine::write() {
    // Names come from files nobody should trust: they must not drive a terminal, nor fake a line of their
    // own.
    for (char16_t& unit : _text)
        if (unit < 0x20 || (unit >= 0x7F && unit < 0xA0)) unit = u'\uFFFD';
    // A line that cannot be printed must not hide the error it reports.
    const u32 error = Error::get();
    LogTarget& log = target();
    {
        const std::lock_guard guard(log.mutex);
        log.current->print(std::u16string_view(_text));
        log.current->endLine();
        log.current->flush();
    }
    Error::set(error);
}

}  // namespace Platform
