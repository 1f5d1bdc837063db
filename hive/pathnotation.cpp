#include "hive/pathnotation.h"

#include <algorithm>
#include <cstring>

namespace Libraries::Files::Hive {

namespace {

/// Units up to the first that means something in a path.
std::size_t plainLength(std::u16string_view path) {
    // Four units at once: a unit that is 0 in one of the differences sets its highest bit.
    constexpr u64 each = 0x0001000100010001;
    const auto anyZero = [](u64 four) { return ((four - each) & ~four & each * 0x8000) != 0; };
    std::size_t i = 0;
    for (u64 four = 0; path.size() - i >= sizeof(four) / sizeof(char16_t);
         i += sizeof(four) / sizeof(char16_t)) {
        std::memcpy(&four, path.data() + i, sizeof(four));
        if (anyZero(four ^ each * u'/') || anyZero(four ^ each * u'\\')) break;
    }
    while (i < path.size() && path[i] != u'/' && path[i] != u'\\') ++i;
    return i;
}

}  // namespace

bool PathNames::next(std::u16string_view& name) {
    const auto find = [this](std::size_t found) { return std::min(found, _rest.size()); };
    _rest.remove_prefix(find(_rest.find_first_not_of(u'/')));
    std::size_t end = plainLength(_rest);
    name = _rest.substr(0, end);
    if (end < _rest.size() && _rest[end] == u'\\') {
        _unescaped = name;
        while (end < _rest.size() && _rest[end] != u'/') {
            // A backslash is dropped itself, also when doubled: names cannot hold one.
            end = find(_rest.find_first_not_of(u'\\', end));
            if (end < _rest.size()) _unescaped += _rest[end++];
        }
        name = _unescaped;
    }
    _rest.remove_prefix(end);
    return !name.empty();
}

Ref<String> pathToWindowsStyle(const Ref<String>& path) {
    Utf16Buffer out;
    PathNames names(path);
    for (std::u16string_view name; names.next(name);) {
        if (!out.empty()) out += u'\\';
        out += name;
    }
    return String::take(std::move(out));
}

Ref<String> pathFromWindowsStyle(const Ref<String>& path) {
    Utf16Buffer out;
    bool pendingSeparator = false;
    for (const char16_t unit : path ? path->view() : u"") {
        if (unit == u'\\') {
            pendingSeparator = true;
            continue;
        }
        if (pendingSeparator && !out.empty()) out += u'/';
        if (unit == u'/') out += u'\\';
        out += unit;
        pendingSeparator = false;
    }
    return String::create(out);
}

}  // namespace Libraries::Files::Hive
