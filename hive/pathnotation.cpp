#include "hive/pathnotation.h"

namespace Libraries::Files::Hive {

Array<Ref<String>> namesOnPath(const Ref<String>& path) {
    Array<Ref<String>> names;
    Utf16Buffer name;
    bool escaped = false;
    bool pendingSeparator = false;
    for (const char16_t unit : path ? path->view() : u"") {
        if (unit == u'/' && !escaped) {
            pendingSeparator = true;
        } else if (unit == u'\\') {
            escaped = true;  // dropped itself, also when doubled: names cannot hold a backslash
        } else {
            if (pendingSeparator && !name.empty()) names.push_back(String::take(std::exchange(name, {})));
            name += unit;
            escaped = pendingSeparator = false;
        }
    }
    if (!name.empty()) names.push_back(String::take(std::move(name)));
    return names;
}

Ref<String> pathToWindowsStyle(const Ref<String>& path) {
    Utf16Buffer out;
    for (const Ref<String>& name : namesOnPath(path)) {
        if (!out.empty()) out += u'\\';
        out += name->view();
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
