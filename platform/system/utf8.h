#pragma once

#include <string_view>
#include <utility>

#include "platform/system/heap.h"

/// UTF-8 to and from UTF-16 units, in pieces of any size: sequences and surrogate pairs may be cut anywhere
/// between two calls. Internal to the platform.
namespace Platform {

constexpr char16_t REPLACEMENT = 0xFFFD;

constexpr bool isHighSurrogate(char16_t unit) {
    return (unit & 0xFC00) == 0xD800;
}
constexpr bool isLowSurrogate(char16_t unit) {
    return (unit & 0xFC00) == 0xDC00;
}

inline void appendCodePoint(Utf16Buffer& out, char32_t codePoint) {
    if (codePoint < 0x10000) {
        out.push_back(static_cast<char16_t>(codePoint));
        return;
    }
    out.push_back(static_cast<char16_t>(0xD7C0 + (codePoint >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 | (codePoint & 0x3FF)));
}

/// Turns bytes into units, at most one unit a byte. Every longest head of a sequence that is not completed
/// becomes one U+FFFD, and so does every byte that cannot begin a sequence.
class Utf8Decoder {
 public:
    void feed(std::string_view bytes, Utf16Buffer& out) {
        for (const char byte : bytes) feed(static_cast<u8>(byte), out);
    }
    void feed(u8 byte, Utf16Buffer& out) {
        if (_missing != 0) {
            if (byte >= _lowest && byte <= _highest) return next(byte, out);
            malformed(out);
        }
        if (byte < 0x80)
            out.push_back(byte);
        else
            start(byte, out);
    }
    /// The end of the text: a sequence cut there is malformed.
    void finish(Utf16Buffer& out) {
        if (_missing != 0) malformed(out);
    }
    /// Whether nothing malformed came so far; a sequence still open counts as well-formed.
    bool wellFormed() const { return _wellFormed; }

 private:
    void malformed(Utf16Buffer& out) {
        _missing = 0;
        _wellFormed = false;
        out.push_back(REPLACEMENT);
    }
    void start(u8 byte, Utf16Buffer& out) {
        if (byte < 0xC2 || byte > 0xF4) return malformed(out);
        _missing = byte < 0xE0 ? 1 : byte < 0xF0 ? 2 : 3;
        _codePoint = byte & (0x3FU >> _missing);
        // These keep out overlong forms, surrogates and what lies above U+10FFFF at the second byte already.
        _lowest = byte == 0xE0 ? 0xA0 : byte == 0xF0 ? 0x90 : 0x80;
        _highest = byte == 0xED ? 0x9F : byte == 0xF4 ? 0x8F : 0xBF;
    }
    void next(u8 byte, Utf16Buffer& out) {
        _codePoint = _codePoint << 6 | (byte & 0x3FU);
        _lowest = 0x80;
        _highest = 0xBF;
        if (--_missing == 0) appendCodePoint(out, _codePoint);
    }

    u32 _codePoint = 0;
    u32 _missing = 0;  // bytes the open sequence still wants
    u8 _lowest = 0x80;
    u8 _highest = 0xBF;
    bool _wellFormed = true;
};

/// Turns units into well-formed UTF-8; a lone surrogate becomes U+FFFD. `Out` is any string of bytes.
class Utf8Encoder {
 public:
    template <typename Out>
    void feed(std::u16string_view units, Out& out) {
        for (const char16_t unit : units) feed(unit, out);
    }
    template <typename Out>
    void feed(char16_t unit, Out& out) {
        if (_high != 0) {
            const char16_t high = std::exchange(_high, u'\0');
            if (isLowSurrogate(unit)) return put(0x10000 + ((high & 0x3FFU) << 10) + (unit & 0x3FFU), out);
            put(REPLACEMENT, out);
        }
        if (unit < 0x80)
            out.push_back(static_cast<char>(unit));
        else if (isHighSurrogate(unit))
            _high = unit;
        else
            put(isLowSurrogate(unit) ? REPLACEMENT : unit, out);
    }
    /// The end of the text: an open high surrogate has stayed alone.
    template <typename Out>
    void finish(Out& out) {
        if (std::exchange(_high, u'\0') != 0) put(REPLACEMENT, out);
    }

 private:
    template <typename Out>
    static void put(u32 codePoint, Out& out) {
        const auto byte = [&out](u32 value) { out.push_back(static_cast<char>(value)); };
        const auto tail = [&](u32 shift) { byte(0x80 | (codePoint >> shift & 0x3F)); };
        if (codePoint < 0x800) {
            byte(0xC0 | codePoint >> 6);
        } else if (codePoint < 0x10000) {
            byte(0xE0 | codePoint >> 12);
            tail(6);
        } else {
            byte(0xF0 | codePoint >> 18);
            tail(12);
            tail(6);
        }
        tail(0);
    }

    char16_t _high = 0;
};

}  // namespace Platform
