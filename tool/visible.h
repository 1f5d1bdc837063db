#pragma once

#include <span>
#include <string>
#include <string_view>

#include "tool/base.h"

namespace HiveCtl {

/// Text from a hive as UTF-8 that is safe to print: control characters (C0, DEL, C1) stand as \xNN; lone
/// surrogates, line separators and marks that turn the writing direction as \uNNNN. A hive comes from
/// anywhere, and its names must not drive the terminal.
std::string visible(std::u16string_view text);
inline std::string visible(const Ref<String>& text) {
    return visible(text->view());
}
/// The same for text that came from outside as UTF-8 (arguments).
std::string visible(const std::string& utf8);
/// `visible` text in double quotes.
template <typename Text>
std::string inQuotes(const Text& text) {
    return '"' + visible(text) + '"';
}

/// The text with its middle left out where it is long: paths of damaged hives have no bounds worth reading.
std::u16string shortened(std::u16string_view text);

/// "1 key", "2 keys".
std::string counted(u64 count, const char* noun);

/// Number of characters of a UTF-8 text.
u64 characters(std::string_view utf8);
/// The text, filled up with spaces to at least `width` characters.
std::string padded(std::string text, u64 width);

/// Lower-case hexadecimal digits: "0x1a", and "00ff1a" without separators.
std::string hexNumber(u64 number);
std::string hexBytes(std::span<const u8> bytes);
/// Lines of 16 bytes: offset, bytes, printable ASCII characters.
std::string hexDump(std::span<const u8> bytes);

}  // namespace HiveCtl
