#include "platform/syslog/log.h"

#include <charconv>

namespace Platform {

namespace {

template <typename T>
void appendDigits(Utf16Buffer& text, T number, int base) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, number, base).ptr;
    text.append(digits, end);
}

}  // namespace

LogLine::LogLine(u32 level, LogChannel channel) {
    appendDigits(_text, level, 10);
    add(" ");
    add(SysLogFilter::id(channel));
    add(": ");
}

void LogLine::add(std::string_view text) {
    for (const char byte : text) _text.push_back(static_cast<u8>(byte));
}

void LogLine::add(const Ref<String>& text) {
    if (text) _text.append(text->view());
}

void LogLine::add(Decimal number) {
    appendDigits(_text, number.number, 10);
}

void LogLine::addNumber(u64 bits, s64 asSigned, bool isSigned) {
    appendDigits(_text, bits, 16);
    add("h (");
    if (isSigned)
        appendDigits(_text, asSigned, 10);
    else
        appendDigits(_text, bits, 10);
    add(")");
}

}  // namespace Platform
