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
    const u64 close = text[3] == u'(' ? text.find(u')', 4) : npos;
    if (close == npos || close + 1 == text.size() || text[close + 1] != u':') return false;
    u64 number = 0;
    if (!StrConv::num(text.substr(4, close - 4), number, 16) || number > UINT32_MAX) return false;
    type = static_cast<u32>(number);
    text.remove_prefix(close + 2);
    return true;
}

}  // namespace

bool parseHexData(std::u16string_view text, HexData& data) {
    if (!parseHead(text, data.type)) return false;
    data.bytes.reserve((text.size() + 1) / 3);
    while (!text.empty()) {
        const std::u16string_view piece = text.substr(0, text.find(u','));
        text.remove_prefix(piece.size() == text.size() ? piece.size() : piece.size() + 1);
        if (piece.empty()) continue;
        u64 byte = 0;
        if (piece.size() != 2 || !StrConv::num(piece, byte, 16)) return false;
        data.bytes.push_back(static_cast<u8>(byte));
    }
    return data.bytes.size() <= UINT32_MAX;
}

}  // namespace Libraries::Files::Hive
