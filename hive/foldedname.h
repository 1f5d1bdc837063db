#pragma once

#include <array>

#include "hive/base.h"

namespace Libraries::Files::Hive {

/// A name in upper case, made once for a search that compares it with many. Valid while it lives.
class FoldedName {
 public:
    explicit FoldedName(std::u16string_view name) : _length(name.size()) {
        if (_length > _few.size()) _many.resize(_length);
        char16_t* const units = _many.empty() ? _few.data() : _many.data();
        String::upperUnits(name, units);
        _head = headOf(view());
    }
    std::u16string_view view() const { return {_many.empty() ? _few.data() : _many.data(), _length}; }

    /// The first units of a name as a number: where two such differ, they compare as the names do, so that
    /// most names are told apart without a look at them. 0 for an empty one.
    static u64 headOf(std::u16string_view name) {
        u64 head = 0;
        for (std::size_t i = 0; i < sizeof(head) / sizeof(char16_t); ++i)
            head = head << 16 | (i < name.size() ? name[i] : 0);
        return head;
    }
    u64 head() const { return _head; }

    /// How `other`, upper-cased, compares with this name: less than 0, 0 or greater than 0. `unitAt(i)` gives
    /// the units of `other`.
    template <typename UnitAt>
    int compareOther(u64 length, UnitAt unitAt) const {
        const std::u16string_view own = view();
        const std::size_t common = std::min(toSize(length), own.size());
        for (std::size_t i = 0; i < common; ++i) {
            const char16_t unit = String::upperUnit(unitAt(i));
            if (unit != own[i]) return unit < own[i] ? -1 : 1;
        }
        return length == own.size() ? 0 : length < own.size() ? -1 : 1;
    }
    int compareOther(std::u16string_view other) const {
        return compareOther(other.size(), [other](std::size_t i) { return other[i]; });
    }

 private:
    std::size_t _length;
    u64 _head = 0;
    std::array<char16_t, 256> _few;  // holds every key name the library writes
    Utf16Buffer _many;
};

}  // namespace Libraries::Files::Hive
