#pragma once

#include <span>

#include "hive/hivefile.h"
#include "hive/recordview.h"
#include "platform/system/heap.h"

/// Names are stored compressed, one byte a character in the hive's code page, or as UTF-16LE.
namespace Libraries::Files::Hive {

/// The byte of a code point in a code page; false when it has none.
bool charToByte(u32 codePoint, HiveFile::HiveCodepage codepage, u8& byte);
/// The code point of a byte in a code page; false when it has none.
bool byteToChar(u8 byte, HiveFile::HiveCodepage codepage, u32& codePoint);

/// The text as a NUL-terminated byte string; null when a character has no byte, or without memory.
HeapBuffer stringToBytes(const Ref<String>& text, HiveFile::HiveCodepage codepage);
/// A stored 8-bit name as text; null when a byte has no character.
Ref<String> regNameToString(const u8* bytes, u32 length, HiveFile::HiveCodepage codepage);
/// The name of `length` bytes that stands in a record at `offset`, in the 8-bit form or as UTF-16LE (an odd
/// last byte is ignored); null when a byte has no character.
Ref<String> decodeName(const RecordView& record, u32 offset, u16 length, bool compressed,
                       HiveFile::HiveCodepage codepage);
/// Whether the bytes of a stored 8-bit name are its units, with no byte to be looked up.
bool isPlainName(const u8* bytes, u32 length, HiveFile::HiveCodepage codepage);
/// Copies a stored name of `stored` bytes where it is plain or UTF-16 and the units suffice; false, without a
/// word, where not.
bool copyPlainName(const RecordView& record, u32 offset, u16 stored, bool compressed,
                   HiveFile::HiveCodepage codepage, std::span<char16_t> units, u32& length);
/// Whether `decodeName` would give just these units; false where telling takes a conversion.
bool isDecodedName(std::u16string_view units, const RecordView& record, u32 offset, u16 length,
                   bool compressed, HiveFile::HiveCodepage codepage);

}  // namespace Libraries::Files::Hive
