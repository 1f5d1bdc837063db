#include "tool/keypath.h"

#include "platform/iochar/stringutil.h"
#include "regfile/util.h"

namespace HiveCtl {

namespace {

/// Takes "xNN" or "uNNNN" from the front of `text`.
bool takeEscape(std::u16string_view& text, char16_t& unit) {
    if (text.empty() || (text[0] != u'x' && text[0] != u'u')) return false;
    const std::size_t digits = text[0] == u'x' ? 2 : 4;
    u64 number = 0;
    if (text.size() <= digits || !StrConv::num(text.substr(1, digits), number, 16)) return false;
    unit = static_cast<char16_t>(number);
    text.remove_prefix(1 + digits);
    return true;
}

}  // namespace

std::vector<Ref<String>> parseKeyPath(const std::string& argument) {
    Ref<String> path = String::fromUtf8(argument);
    const bool exportNotation =
        path->view().find(u'\\') != std::u16string_view::npos && argument.find('/') == std::string::npos;
    if (exportNotation) path = Libraries::Files::Hive::Util::regPathFromWindowsStyle(path);

    std::vector<Ref<String>> names;
    std::u16string name;
    const auto endName = [&] {
        if (!name.empty()) names.push_back(String::create(name));
        name.clear();
    };
    for (std::u16string_view rest = path->view(); !rest.empty();) {
        char16_t unit = rest[0];
        rest.remove_prefix(1);
        if (unit == u'/') {
            endName();
        } else if (unit != u'\\') {
            name += unit;
        } else if (!exportNotation && takeEscape(rest, unit)) {
            name += unit;
        } else if (!rest.empty() && rest[0] == u'/') {
            name += u'/';
            rest.remove_prefix(1);
        }
    }
    endName();
    return names;
}

std::u16string pathName(std::u16string_view name) {
    // A backslash has no notation of its own in a path, and in a name it is rubbish that should be seen.
    std::u16string text;
    for (const char16_t unit : name) {
        if (unit == u'\\') {
            text += u"\\x5c";
            continue;
        }
        if (unit == u'/') text += u'\\';
        text += unit;
    }
    return text;
}

std::u16string childPath(std::u16string_view parent, std::u16string_view name) {
    std::u16string path(parent);
    if (path != u"/") path += u'/';
    return path + pathName(name);
}

}  // namespace HiveCtl
