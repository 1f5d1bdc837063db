#include "tool/visible.h"

#include <algorithm>

#include "platform/iochar/stringutil.h"

namespace HiveCtl {

namespace {

constexpr char DIGITS[] = "0123456789abcdef";

std::string digits(u32 number, u32 count) {
    std::string text(count, '0');
    for (u32 i = count; i-- > 0; number >>= 4) text[i] = DIGITS[number & 15];
    return text;
}

bool isControl(char16_t unit) {
    return unit < 0x20 || (unit >= 0x7F && unit < 0xA0);
}

/// Characters that print nothing of their own but change how the text around them is laid out.
bool changesLayout(char16_t unit) {
    return unit == 0x061C || (unit >= 0x200E && unit <= 0x200F) || (unit >= 0x2028 && unit <= 0x202E) ||
           (unit >= 0x2066 && unit <= 0x2069);
}

}  // namespace

std::string visible(std::u16string_view text) {
    std::u16string shown;
    const auto escape = [&shown](char letter, u32 unit, u32 count) {
        shown += u'\\';
        shown += static_cast<char16_t>(letter);
        for (const char digit : digits(unit, count)) shown += static_cast<char16_t>(digit);
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char16_t unit = text[i];
        const bool isHigh = (unit & 0xFC00) == 0xD800;
        const bool isLow = (unit & 0xFC00) == 0xDC00;
        if (isHigh && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00)
            shown.append(text.substr(i++, 2));
        else if (isControl(unit))
            escape('x', unit, 2);
        else if (isHigh || isLow || changesLayout(unit))
            escape('u', unit, 4);
        else
            shown += unit;
    }
    return String::create(shown)->toUtf8();
}

std::string visible(const std::string& utf8) {
    return visible(String::fromUtf8(utf8));
}

std::u16string shortened(std::u16string_view text) {
    constexpr std::size_t LONGEST = 400;
    constexpr std::size_t HEAD = 200;
    constexpr std::size_t TAIL = 150;
    if (text.size() <= LONGEST) return std::u16string(text);
    std::u16string result(text.substr(0, HEAD));
    return result.append(u" ... ").append(text.substr(text.size() - TAIL));
}

std::string counted(u64 count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

u64 characters(std::string_view utf8) {
    return static_cast<u64>(
        std::count_if(utf8.begin(), utf8.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

std::string padded(std::string text, u64 width) {
    const u64 count = characters(text);
    if (count < width) text.append(toSize(width - count), ' ');
    return text;
}

std::string hexNumber(u64 number) {
    return "0x" + StrConv::str(number, 16)->to8();
}

std::string hexBytes(std::span<const u8> bytes) {
    std::string text;
    text.reserve(2 * bytes.size());
    for (const u8 byte : bytes) {
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 15];
    }
    return text;
}

std::string hexDump(std::span<const u8> bytes) {
    constexpr std::size_t PER_LINE = 16;
    std::string text;
    for (std::size_t start = 0; start < bytes.size(); start += PER_LINE) {
        const auto line = bytes.subspan(start, std::min(PER_LINE, bytes.size() - start));
        text += digits(static_cast<u32>(start), 8) + ' ';
        for (std::size_t i = 0; i < PER_LINE; ++i)
            text += (i == PER_LINE / 2 ? "  " : " ") + (i < line.size() ? digits(line[i], 2) : "  ");
        text += "  |";
        for (const u8 byte : line) text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
        text += "|\n";
    }
    return text;
}

}  // namespace HiveCtl
