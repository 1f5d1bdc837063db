#include "platform/system/string.h"

#include <algorithm>
#include <cstring>

#include "platform/system/utf8.h"

namespace Platform {

namespace {

/// A unit of ISO 8859-1 for each byte.
Utf16Buffer widen(std::string_view bytes) {
    Utf16Buffer units(bytes.size(), u'\0');
    std::transform(bytes.begin(), bytes.end(), units.begin(),
                   [](char byte) { return static_cast<u8>(byte); });
    return units;
}

}  // namespace

Ref<String> String::create(std::u16string_view units) {
    return make(units.size(), [units](char16_t* to) {
        units.copy(to, units.size());
        return true;
    });
}

/// The object and its units are one piece of memory: most strings are short and do not live long.
Ref<String> String::uninitialised(std::size_t length, char16_t*& units) {
    if (length > PTRDIFF_MAX / sizeof(char16_t)) outOfMemory();
    auto* const memory = static_cast<u8*>(Heap::mustAlloc(u64{sizeof(String)} + length * sizeof(char16_t)));
    units = reinterpret_cast<char16_t*>(memory + sizeof(String));
    return Ref<String>(::new (memory) String(std::u16string_view(units, length)));
}

Ref<String> String::from8(std::string_view bytes) {
    return makeRef<String>(widen(bytes));
}

Ref<String> String::from32(std::u32string_view codePoints) {
    Utf16Buffer units;
    units.reserve(codePoints.size());
    for (const char32_t codePoint : codePoints)
        appendCodePoint(units, codePoint > 0x10FFFF ? char32_t{REPLACEMENT} : codePoint);
    return makeRef<String>(std::move(units));
}

Ref<String> String::fromUtf8(std::string_view utf8) {
    Utf16Buffer units;
    units.reserve(utf8.size());
    Utf8Decoder decoder;
    decoder.feed(utf8, units);
    decoder.finish(units);
    return makeRef<String>(std::move(units));
}

Ref<String> String::sub(u64 from, u64 count) const {
    if (from >= length()) return create();
    return create(view().substr(toSize(from), toSize(count)));
}

Ref<String> String::concat(const Ref<String>& tail) const {
    Utf16Buffer units;
    units.reserve(_units.size() + tail->_units.size());
    units.append(_units).append(tail->_units);
    return makeRef<String>(std::move(units));
}

Ref<String> String::upper() const {
    return make(_units.size(), [this](char16_t* to) {
        upperUnits(_units, to);
        return true;
    });
}

void String::upperUnits(std::u16string_view units, char16_t* to) {
    // Four units at once while they are ASCII, as nearly all names are.
    constexpr u64 each = 0x0001000100010001;
    std::size_t i = 0;
    for (u64 four = 0; units.size() - i >= sizeof(four) / sizeof(char16_t);
         i += sizeof(four) / sizeof(char16_t)) {
        std::memcpy(&four, units.data() + i, sizeof(four));
        if (four & each * 0xFF80) break;
        const u64 fromA = four + each * (0x80 - u'a');  // bit 7 of a unit: not before 'a'
        const u64 behindZ = four + each * (0x80 - u'z' - 1);
        four -= (fromA & ~behindZ & each * 0x80) >> 2;
        std::memcpy(to + i, &four, sizeof(four));
    }
    for (; i < units.size(); ++i) to[i] = upperUnit(units[i]);
}

int String::compareUpper(const Ref<String>& other) const {
    const std::u16string_view left = view();
    const std::u16string_view right = other->view();
    const std::size_t common = std::min(left.size(), right.size());
    for (std::size_t i = 0; i < common; ++i) {
        if (left[i] == right[i]) continue;
        const char16_t a = upperUnit(left[i]);
        const char16_t b = upperUnit(right[i]);
        if (a != b) return a < b ? -1 : 1;
    }
    return left.size() == right.size() ? 0 : left.size() < right.size() ? -1 : 1;
}

bool String::equalUpper(const Ref<String>& other) const {
    return length() == other->length() && compareUpper(other) == 0;
}

// The strings of the standard library throw where ours end the process.

std::string String::toUtf8() const try {
    std::string bytes;
    bytes.reserve(_units.size());
    Utf8Encoder encoder;
    encoder.feed(_units, bytes);
    encoder.finish(bytes);
    return bytes;
} catch (const std::bad_alloc&) {
    outOfMemory();
}

std::u32string String::to32() const try {
    std::u32string codePoints;
    codePoints.reserve(_units.size());
    for (std::size_t i = 0; i < _units.size(); ++i) {
        const char32_t unit = _units[i];
        if (isHighSurrogate(_units[i]) && isLowSurrogate(charAt(i + 1)))
            codePoints.push_back(0x10000 + ((unit & 0x3FF) << 10) + (_units[++i] & 0x3FFU));
        else
            codePoints.push_back(unit);
    }
    return codePoints;
} catch (const std::bad_alloc&) {
    outOfMemory();
}

std::string String::to8() const try {
    std::string bytes(_units.size(), '\0');
    std::transform(_units.begin(), _units.end(), bytes.begin(),
                   [](char16_t unit) { return static_cast<char>(unit > 0xFF ? u'?' : unit); });
    return bytes;
} catch (const std::bad_alloc&) {
    outOfMemory();
}

}  // namespace Platform
