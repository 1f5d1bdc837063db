#include "regfile/hexdata.h"

#include <array>

#include "platform/iochar/stringutil.h"

namespace Libraries::Files::Hive {

using Platform::StrConv;
using Platform::u32;
using Platform::u64;
using Platform::u8;

namespace {

constexpr auto npos = std::u16string_view::npos;

/// Takes the head of the text, up to the byte list; false when it is not "hex:" or "hex(N):".
bool parseHead(std::u16string_view& text, u32& type) {
    if (text.size() < 4 || !text.starts_with(u"hex")) return false;
    if (text[3] == u':') {
        text.remove_prefix(4);
        return true;
    }
    const std::size_t close = text[3] == u'(' ? text.find(u')', 4) : npos;
    if (close == npos || close + 1 == text.size() || text[close + 1] != u':') return false;
    u64 number = 0;
    if (!StrConv::num(text.substr(4, close - 4), number, 16) || number > UINT32_MAX) return false;
    type = static_cast<u32>(number);
    text.remove_prefix(close + 2);
    return true;
}

constexpr u8 NO_DIGIT = 16;

/// The values of the hexadecimal digits, by unit.
constexpr auto digits = [] {
    std::array<u8, 128> values{};
    values.fill(NO_DIGIT);
    for (u8 i = 0; i < 10; ++i) values[u'0' + i] = i;
    for (u8 i = 0; i < 6; ++i) values[u'a' + i] = values[u'A' + i] = static_cast<u8>(10 + i);
    return values;
}();

/// The value of a hexadecimal digit; above 15 for any other unit.
u32 digitValue(char16_t unit) {
    return unit < digits.size() ? digits[unit] : NO_DIGIT;
}

}  // namespace

bool parseHexData(std::u16string_view text, HexData& data) {
    data.type = HexData().type;
    if (!parseHead(text, data.type)) return false;
    data.bytes.resize((text.size() + 1) / 3);
    u8* to = data.bytes.data();
    const char16_t* at = text.data();
    const char16_t* const end = at + text.size();
    while (at != end) {
        // Nearly all of it: two digits and one comma.
        for (; end - at >= 3 && at[2] == u','; at += 3) {
            const u32 high = digitValue(at[0]), low = digitValue(at[1]);
            if ((high | low) > 15) break;
            *to++ = static_cast<u8>(high << 4 | low);
        }
        if (at == end) break;
        if (*at == u',') {
            ++at;
            continue;
        }
        if (end - at < 2 || (end - at > 2 && at[2] != u',')) return false;
        const u32 high = digitValue(at[0]), low = digitValue(at[1]);
        if ((high | low) > 15) return false;
        *to++ = static_cast<u8>(high << 4 | low);
        at += end - at > 2 ? 3 : 2;
    }
    data.bytes.resize(static_cast<std::size_t>(to - data.bytes.data()));
    return data.bytes.size() <= UINT32_MAX;
}

}  // namespace Libraries::Files::Hive
