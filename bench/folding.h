#pragma once

#include <string>
#include <string_view>

namespace HiveBench {

/// The form of a UTF-8 name by which names are compared, by the hive's own rule.
void appendFolded(std::string& folded, std::string_view name);
std::string folded(std::string_view name);

/// UTF-8 units of UTF-16 text and the reverse, quick for ASCII.
void appendUtf8(std::string& text, std::u16string_view units);
void appendUtf16(std::u16string& units, std::string_view text);

}  // namespace HiveBench
