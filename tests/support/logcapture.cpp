#include "tests/support/logcapture.h"

#include "platform/syslog/syslogfilter.h"

namespace HiveTest {

using Platform::CharPrinter;
using Platform::CharWriter;
using Platform::SysLogFilter;
using Platform::SysLogStream;

Ref<CharPrinter> printerTo(const Ref<MemoryStripe>& store) {
    return CharPrinter::create(CharWriter::create(store, 0, CharWriter::LineEnd::lf));
}

LogCapture::LogCapture(u32 level)
    : _oldLevel(SysLogFilter::level()),
      _oldPrinter(SysLogStream::stdOutPrinter()),
      _store(Platform::makeRef<MemoryStripe>()),
      _printer(printerTo(_store)) {
    SysLogStream::redirect(_printer);
    SysLogFilter::setLevel(level);
}

LogCapture::~LogCapture() {
    SysLogFilter::setLevel(_oldLevel);
    SysLogStream::redirect(_oldPrinter);
}

std::string LogCapture::text() {
    _printer->flush();
    return {_store->bytes().begin(), _store->bytes().end()};
}

u64 LogCapture::count(std::string_view part) {
    const std::string all = text();
    u64 found = 0;
    for (auto at = all.find(part); at != std::string::npos; at = all.find(part, at + part.size())) ++found;
    return found;
}

void LogCapture::clear() {
    _printer->flush();
    _store->setElementCount(0);
}

}  // namespace HiveTest
