#pragma once

#include "hive/hivefile.h"
#include "platform/system/heap.h"

/// Names are stored compressed, one byte a character in the hive's code page, or as UTF-16LE.
namespace Libraries::Files::Hive {

/// The byte of a code point in a code page; false when it has none.
bool charToByte(u32 codePoint, HiveFile::HiveCodepage codepage, u8& byte);
/// The code point of a byte in a code page; false when it has none.
bool byteToChar(u8 byte, HiveFile::HiveCodepage codepage, u32& codePoint);

/// The text as a NUL-terminated byte string; null when a character has no byte.
HeapBuffer stringToBytes(const Ref<String>& text, HiveFile::HiveCodepage codepage);
/// A stored 8-bit name as text; null when a byte has no character.
Ref<String> regNameToString(const u8* bytes, u32 length, HiveFile::HiveCodepage codepage);
/// A stored UTF-16LE name as text; an odd last byte is ignored.
Ref<String> utf16NameToString(const u8* bytes, u32 length);

}  // namespace Libraries::Files::Hive
