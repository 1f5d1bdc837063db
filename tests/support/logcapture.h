#pragma once

#include <string>
#include <string_view>

#include "platform/syslog/syslogstream.h"
#include "tests/support/memorystripe.h"

namespace HiveTest {

/// Prints UTF-8 with lines ended by "\n".
Ref<Platform::CharPrinter> printerTo(const Ref<MemoryStripe>& store);

/// Catches all log lines for the length of a scope, then puts the level and the printer back as they were.
/// Read it only when no other thread logs.
class LogCapture {
 public:
    /// Lines of this level and above are caught.
    explicit LogCapture(u32 level = 1);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// What was logged so far, UTF-8, lines ended by "\n".
    std::string text();
    bool contains(std::string_view part) { return text().find(part) != std::string::npos; }
    /// How often `part` occurs, without overlaps.
    u64 count(std::string_view part);
    void clear();

 private:
    u32 _oldLevel;
    Ref<Platform::CharPrinter> _oldPrinter;
    Ref<MemoryStripe> _store;
    Ref<Platform::CharPrinter> _printer;
};

}  // namespace HiveTest
