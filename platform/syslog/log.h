#pragma once

#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/syslog/syslogfilter.h"
#include "platform/system/string.h"

namespace Platform {

/// A number printed in decimal alone (source line numbers).
struct Decimal {
    u64 number;
};

/// One log line in the making; used only when the line is on.
class PLATFORM_API LogLine {
 public:
    LogLine(u32 level, LogChannel channel);

    void add(std::string_view text);
    void add(const char* text) { add(std::string_view(text)); }
    void add(const Ref<String>& text);
    void add(Decimal number);
    /// Numbers stand in hexadecimal followed by "h (", then in decimal followed by ")".
    template <std::integral T>
    void add(T number) {
        addNumber(static_cast<u64>(static_cast<std::make_unsigned_t<T>>(number)), static_cast<s64>(number),
                  std::is_signed_v<T>);
    }
    /// Hands the whole line to the log printer in one piece.
    void write();

 private:
    void addNumber(u64 bits, s64 asSigned, bool isSigned);

    Utf16Buffer _text;
};

/// Writes one log line made of text pieces and numbers. Costs one test when the line is off.
template <typename... Pieces>
inline void log(u32 level, LogChannel channel, const Pieces&... pieces) {
    if (!SysLogFilter::enabled(level, channel)) [[likely]]
        return;
    LogLine line(level, channel);
    (line.add(pieces), ...);
    line.write();
}

/// Logs a failed internal condition, level 4, on the default channel if none is given, and returns whether
/// the condition held. It never stops the process: what happens then is up to the caller. `text` is the
/// condition as log readers know it, `function` the qualified name of the operation, `line` the number to
/// print (the caller's own by default).
inline bool assertCondition(bool held, const char* text, const char* function, int line = __builtin_LINE(),
                            LogChannel channel = SysLogFilter::defaultChannel) {
    if (!held) [[unlikely]]
        log(4, channel, "ASSERT CONDITION ", text, " FAILED IN LINE ", Decimal{static_cast<u64>(line)},
            ", FUNCTION ", function);
    return held;
}

}  // namespace Platform
