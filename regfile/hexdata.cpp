#include "regfile/hexdata.h"

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

/// The value of a hexadecimal digit; above 15 for any other unit.
u32 digitValue(char16_t unit) {
    if (unit >= u'0' && unit <= u'9') return static_cast<u32>(unit - u'0');
    if (unit >= u'a' && unit <= u'f') return static_cast<u32>(unit - u'a' + 10);
    if (unit >= u'A' && unit <= u'F') return static_cast<u32>(unit - u'A' + 10);
    return 16;
}

}  // namespace

bool parseHexData(std::u16string_view text, HexData& data) {
    if (!parseHead(text, data.type)) return false;
    data.bytes.reserve((text.size() + 1) / 3);
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] == u',') {
            ++at;
            continue;
        }
        const std::size_t end = at + 2;
        if (end > text.size() || (end < text.size() && text[end] != u',')) return false;
        const u32 high = digitValue(text[at]), low = digitValue(text[at + 1]);
        if ((high | low) > 15) return false;
        data.bytes.push_back(static_cast<u8>(high << 4 | low));
        at = end;
    }
    return data.bytes.size() <= UINT32_MAX;
}

}  // namespace Libraries::Files::Hive
