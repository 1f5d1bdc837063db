#include "hive/pathnotation.h"

#include <algorithm>

namespace Libraries::Files::Hive {

bool PathNames::next(std::u16string_view& name) {
    const auto find = [this](std::size_t found) { return std::min(found, _rest.size()); };
    _rest.remove_prefix(find(_rest.find_first_not_of(u'/')));
    std::size_t end = 0;
    while (end < _rest.size() && _rest[end] != u'/' && _rest[end] != u'\\') ++end;
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
