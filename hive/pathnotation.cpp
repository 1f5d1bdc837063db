#include "hive/pathnotation.h"

namespace Libraries::Files::Hive {

Ref<String> pathToWindowsStyle(const Ref<String>& path) {
    std::u16string out;
    bool escaped = false;
    bool pendingSeparator = false;
    for (const char16_t unit : path ? path->view() : u"") {
        if (unit == u'/' && !escaped) {
            pendingSeparator = true;
        } else if (unit == u'\\') {
            escaped = true;  // dropped itself, also when doubled: names cannot hold a backslash
        } else {
            if (pendingSeparator && !out.empty()) out += u'\\';
            out += unit;
            escaped = pendingSeparator = false;
        }
    }
    return String::create(out);
}

Ref<String> pathFromWindowsStyle(const Ref<String>& path) {
    std::u16string out;
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
