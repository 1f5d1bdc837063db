#pragma once

#include <string>
#include <string_view>

#include "platform/system/object.h"

namespace Platform {

/// An immutable Unicode string. Its characters are UTF-16 units; lone surrogates and NUL units are kept as
/// they are. Comparison is by unit. Thread-safe, being immutable.
class PLATFORM_API String final : public Object {
 public:
    static constexpr u64 all = ~u64{0};

    static Ref<String> create(std::u16string_view units = {});
    /// The same, taking over the units instead of copying them.
    static Ref<String> take(Utf16Buffer units) { return makeRef<String>(std::move(units)); }
    /// A string of `length` units that `fill(units)` writes; null when that returns false.
    template <typename Fill>
    static Ref<String> make(std::size_t length, Fill fill) {
        char16_t* units = nullptr;
        Ref<String> made = uninitialised(length, units);
        if (!fill(units)) made.reset();
        return made;
    }
    /// One unit a byte: byte value = code point (ISO 8859-1).
    static Ref<String> from8(std::string_view bytes);
    /// Code points above U+FFFF become surrogate pairs, surrogate code points lone surrogates, and values
    /// above U+10FFFF become U+FFFD.
    static Ref<String> from32(std::u32string_view codePoints);
    /// Each malformed sequence becomes one U+FFFD.
    static Ref<String> fromUtf8(std::string_view utf8);

    u64 length() const { return _units.size(); }
    bool isEmpty() const { return _units.empty(); }
    /// The unit at `index`; 0 behind the end.
    char16_t charAt(u64 index) const { return index < _units.size() ? _units[toSize(index)] : u'\0'; }
    /// The units; valid while the string lives.
    std::u16string_view view() const { return _units; }

    /// At most `count` units from `from` on; empty when `from` is behind the end.
    Ref<String> sub(u64 from, u64 count = all) const;
    Ref<String> concat(const Ref<String>& tail) const;
    bool startsWith(std::u16string_view head) const { return view().starts_with(head); }

    /// Less than 0, 0 or greater than 0, by unit.
    int compare(const Ref<String>& other) const { return _units.compare(other->_units); }
    bool equal(const Ref<String>& other) const { return _units == other->_units; }
    bool equal(std::u16string_view other) const { return _units == other; }

    /// The upper-case form: each unit by `upperUnit`, so of the same length.
    Ref<String> upper() const;
    /// `upper()` of both compared by `compare`, without building them.
    int compareUpper(const Ref<String>& other) const;
    bool equalUpper(const Ref<String>& other) const;

    /// Well-formed UTF-8: a lone surrogate becomes U+FFFD.
    std::string toUtf8() const;
    /// Code points; lone surrogates stay as they are, so `from32` gives the same string back.
    std::u32string to32() const;
    /// One byte a unit; units above 0xFF become '?'.
    std::string to8() const;

    /// The one-to-one upper case of a unit where the pair maps back (so U+0131, U+017F, U+00B5 and U+00DF
    /// stay as they are), otherwise the unit itself.
    static char16_t upperUnit(char16_t unit) {
        if (unit < 0x80) return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 0x20) : unit;
        return upperBeyondAscii(unit);
    }
    /// `upperUnit` of all `units`, written to `to`.
    static void upperUnits(std::u16string_view units, char16_t* to);

 private:
    template <typename T, typename... Args>
    friend Ref<T> makeRef(Args&&... args);
    static char16_t upperBeyondAscii(char16_t unit);
    explicit String(Utf16Buffer units) : _taken(std::move(units)), _units(_taken) {}
    explicit String(std::u16string_view units) : _units(units) {}
    static Ref<String> uninitialised(std::size_t length, char16_t*& units);

    const Utf16Buffer _taken;  // holds the units of a string that took them over; else they follow the object
    const std::u16string_view _units;
};

}  // namespace Platform
