#include "hive/nameencoding.h"

#include <array>

#include "hive/hivelog.h"
#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

namespace {

/// Windows-1250, bytes 128 to 255; 0 where the code page has no character.
constexpr std::array<char16_t, 128> cp1250 = {
    0x20AC, 0,      0x201A, 0,      0x201E, 0x2026, 0x2020, 0x2021, 0,      0x2030, 0x0160, 0x2039, 0x015A,
    0x0164, 0x017D, 0x0179, 0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014, 0,      0x2122,
    0x0161, 0x203A, 0x015B, 0x0165, 0x017E, 0x017A, 0x00A0, 0x02C7, 0x02D8, 0x0141, 0x00A4, 0x0104, 0x00A6,
    0x00A7, 0x00A8, 0x00A9, 0x015E, 0x00AB, 0x00AC, 0x00AD, 0x00AE, 0x017B, 0x00B0, 0x00B1, 0x02DB, 0x0142,
    0x00B4, 0x00B5, 0x00B6, 0x00B7, 0x00B8, 0x0105, 0x015F, 0x00BB, 0x013D, 0x02DD, 0x013E, 0x017C, 0x0154,
    0x00C1, 0x00C2, 0x0102, 0x00C4, 0x0139, 0x0106, 0x00C7, 0x010C, 0x00C9, 0x0118, 0x00CB, 0x011A, 0x00CD,
    0x00CE, 0x010E, 0x0110, 0x0143, 0x0147, 0x00D3, 0x00D4, 0x0150, 0x00D6, 0x00D7, 0x0158, 0x016E, 0x00DA,
    0x0170, 0x00DC, 0x00DD, 0x0162, 0x00DF, 0x0155, 0x00E1, 0x00E2, 0x0103, 0x00E4, 0x013A, 0x0107, 0x00E7,
    0x010D, 0x00E9, 0x0119, 0x00EB, 0x011B, 0x00ED, 0x00EE, 0x010F, 0x0111, 0x0144, 0x0148, 0x00F3, 0x00F4,
    0x0151, 0x00F6, 0x00F7, 0x0159, 0x016F, 0x00FA, 0x0171, 0x00FC, 0x00FD, 0x0163, 0x02D9,
};

/// Windows-1252, bytes 128 to 159 (160 to 255 are the code points themselves); 0 where there is no character.
constexpr std::array<char16_t, 32> cp1252 = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178,
};

/// Searches a table of the bytes from 128 up for a code point.
template <std::size_t N>
bool findByte(const std::array<char16_t, N>& table, u32 codePoint, u8& byte) {
    for (std::size_t i = 0; i < N; ++i) {
        if (table[i] != codePoint) continue;
        byte = static_cast<u8>(128 + i);
        return true;
    }
    return false;
}

}  // namespace

bool charToByte(u32 codePoint, HiveFile::HiveCodepage codepage, u8& byte) {
    byte = static_cast<u8>(codePoint);
    if (codePoint < 128) return true;
    switch (codepage) {
        case HiveFile::hiveCodepageLatin1:
            return codePoint < 256;
        case HiveFile::hiveCodepageCp1250:
            return findByte(cp1250, codePoint, byte);
        case HiveFile::hiveCodepageCp1252:
            return (codePoint >= 160 && codePoint < 256) || findByte(cp1252, codePoint, byte);
        default:
            return false;
    }
}

bool byteToChar(u8 byte, HiveFile::HiveCodepage codepage, u32& codePoint) {
    codePoint = byte;
    if (byte < 128) return true;
    switch (codepage) {
        case HiveFile::hiveCodepageLatin1:
            return true;
        case HiveFile::hiveCodepageCp1250:
            codePoint = cp1250[byte - 128U];
            return codePoint != 0;
        case HiveFile::hiveCodepageCp1252:
            if (byte < 160) codePoint = cp1252[byte - 128U];
            return codePoint != 0;
        default:
            return false;
    }
}

namespace {

/// The text as a NUL-terminated byte string in a buffer long enough; false when a character has no byte.
bool encodeBytes(std::u16string_view text, HiveFile::HiveCodepage codepage, u8* bytes) {
    for (const char16_t unit : text) {
        *bytes = static_cast<u8>(unit);
        if (unit >= 128 && !charToByte(unit, codepage, *bytes)) return false;
        ++bytes;
    }
    *bytes = 0;
    return true;
}

}  // namespace

HeapBuffer stringToBytes(const Ref<String>& text, HiveFile::HiveCodepage codepage) {
    HeapBuffer bytes = heapBuffer(text->length() + 1);
    return bytes && encodeBytes(text->view(), codepage, bytes.get()) ? std::move(bytes) : HeapBuffer();
}

Ref<String> regNameToString(const u8* bytes, u32 length, HiveFile::HiveCodepage codepage) {
    return String::make(length, [=](char16_t* units) {
        for (u32 i = 0; i < length; ++i) {
            u32 codePoint = bytes[i];
            if (codePoint >= 128 && !byteToChar(bytes[i], codepage, codePoint)) return false;
            units[i] =
                static_cast<char16_t>(codePoint);  // all code pages lie in the Basic Multilingual Plane
        }
        return true;
    });
}

Ref<String> decodeName(const RecordView& record, u32 offset, u16 length, bool compressed,
                       HiveFile::HiveCodepage codepage) {
    if (compressed) {
        if (const u8* const stored = record.bytesAt(offset, length))
            return regNameToString(stored, length, codepage);
        Array<u8> bytes(length);
        record.copy(bytes.data(), offset, length);
        return regNameToString(bytes.data(), length, codepage);
    }
    return String::make(length / 2U, [&](char16_t* units) {
        for (u32 i = 0; i < length / 2U; ++i)
            units[i] = static_cast<char16_t>(record.u16At(u64{offset} + 2 * i));
        return true;
    });
}

bool isPlainName(const u8* bytes, u32 length, HiveFile::HiveCodepage codepage) {
    if (codepage == HiveFile::hiveCodepageLatin1) return true;
    u32 all = 0;
    for (u32 i = 0; i < length; ++i) all |= bytes[i];
    return all < 128;
}

bool copyPlainName(const RecordView& record, u32 offset, u16 stored, bool compressed,
                   HiveFile::HiveCodepage codepage, std::span<char16_t> units, u32& length) {
    const u8* const bytes = record.bytesAt(offset, stored);
    length = compressed ? stored : stored / 2U;
    if (!bytes || length > units.size() || (compressed && !isPlainName(bytes, length, codepage)))
        return false;
    for (u32 i = 0; i < length; ++i)
        units[i] = static_cast<char16_t>(compressed ? bytes[i] : bytes[2 * i] | bytes[2 * i + 1] << 8);
    return true;
}

bool isDecodedName(std::u16string_view units, const RecordView& record, u32 offset, u16 length,
                   bool compressed, HiveFile::HiveCodepage codepage) {
    const u8* const stored = record.bytesAt(offset, length);
    if (!stored || units.size() != (compressed ? length : length / 2U)) return false;
    for (std::size_t i = 0; i < units.size(); ++i) {
        if (compressed && stored[i] >= 128 && codepage != HiveFile::hiveCodepageLatin1) return false;
        const unsigned unit = compressed ? stored[i] : stored[2 * i] | unsigned{stored[2 * i + 1]} << 8;
        if (units[i] != unit) return false;
    }
    return true;
}

HeapBuffer RegistryHiveObj::stringToRegName(const Ref<String>& name, u64& length, bool& compressed) const {
    if (name->length() > length) return {};
    HeapBuffer bytes = heapBuffer(name->length() + 1);
    if (!bytes) return {};
    if (encodeBytes(name->view(), _codepage, bytes.get())) {
        const u64 size = std::strlen(reinterpret_cast<const char*>(bytes.get()));  // a U+0000 cuts the name
        if (size > length) {
            log(3, Channel::hive, "Unexpected length of name as ascii: ", size);
            return {};
        }
        compressed = true;
        length = size;
        return bytes;
    }
    // The limit is compared before each unit and not after the last, so that a name may come out two bytes
    // longer than it says. Kept so: names of that length are in hives already written.
    u16 units = 0;
    const std::u16string_view text = name->view();
    while (units < text.size() && text[units]) {
        if (2U * units > length) return {};
        ++units;
    }
    bytes = heapBuffer(2U * units + 2U);
    if (!bytes) return {};
    for (u32 i = 0; i < units; ++i) {
        bytes[2 * i] = static_cast<u8>(text[i]);
        bytes[2 * i + 1] = static_cast<u8>(text[i] >> 8);
    }
    bytes[2U * units] = bytes[2U * units + 1U] = 0;
    compressed = false;
    length = 2U * units;
    return bytes;
}

}  // namespace Libraries::Files::Hive
