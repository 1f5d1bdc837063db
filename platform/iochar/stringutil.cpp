#include "platform/iochar/stringutil.h"

#include <algorithm>
#include <charconv>

#include "platform/system/error.h"

namespace Platform {

namespace {

constexpr u32 NO_DIGIT = 36;

u32 digitValue(char16_t unit) {
    if (unit >= u'0' && unit <= u'9') return static_cast<u32>(unit - u'0');
    if (unit >= u'a' && unit <= u'z') return static_cast<u32>(unit - u'a' + 10);
    if (unit >= u'A' && unit <= u'Z') return static_cast<u32>(unit - u'A' + 10);
    return NO_DIGIT;
}

bool validBase(u32 base) {
    if (base >= 2 && base <= 36) return true;
    Error::set(Error::wrongArgument);
    return false;
}

}  // namespace

Ref<TVector<Ref<String>>> StringUtil::split(const Ref<String>& text, char16_t separator) {
    auto pieces = makeRef<TVector<Ref<String>>>();
    const std::u16string_view units = text->view();
    std::size_t start = 0;
    while (start < units.size()) {
        const std::size_t end = std::min(units.find(separator, start), units.size());
        if (end > start) pieces->append(String::create(units.substr(start, end - start)));
        start = end + 1;
    }
    return pieces;
}

Ref<String> StringUtil::joined(std::initializer_list<std::u16string_view> parts) {
    Utf16Buffer text;
    for (const auto& part : parts) text += part;
    return String::create(text);
}

bool StringUtil::startsWith(const Ref<String>& text, const Ref<String>& head) {
    return text->startsWith(head->view());
}

Ref<String> StrConv::str(u64 number, u32 base) {
    if (!validBase(base)) return {};
    char digits[64];
    const auto end = std::to_chars(digits, digits + sizeof digits, number, static_cast<int>(base)).ptr;
    return String::from8(std::string_view(digits, static_cast<std::size_t>(end - digits)));
}

bool StrConv::num(std::u16string_view text, u64& number, u32 base) {
    if (!validBase(base) || text.empty()) return false;
    u64 value = 0;
    for (const char16_t unit : text) {
        const u32 digit = digitValue(unit);
        if (digit >= base) return false;
        if (value > (~u64{0} - digit) / base) return false;
        value = value * base + digit;
    }
    number = value;
    return true;
}

}  // namespace Platform
