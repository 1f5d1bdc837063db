#include "tool/sddl.h"

#include <optional>

#include "tool/visible.h"

namespace HiveCtl {

namespace {

/// Reads a descriptor's little-endian fields; what lies outside of it makes the whole unreadable.
class Fields {
 public:
    explicit Fields(std::span<const u8> bytes) : _bytes(bytes) {}
    bool intact() const { return _intact; }
    u64 number(u64 offset, u32 width) {
        u64 value = 0;
        for (u32 i = 0; i < width; ++i) value |= u64{byte(offset + i)} << 8 * i;
        return value;
    }
    u8 byte(u64 offset) {
        if (offset < _bytes.size()) return _bytes[toSize(offset)];
        _intact = false;
        return 0;
    }
    std::span<const u8> part(u64 offset, u64 length) {
        if (offset <= _bytes.size() && length <= _bytes.size() - offset)
            return _bytes.subspan(toSize(offset), toSize(length));
        _intact = false;
        return {};
    }

 private:
    std::span<const u8> _bytes;
    bool _intact = true;
};

struct Named {
    const char* text;
    const char* name;
};
constexpr Named knownSids[] = {
    {"S-1-1-0", "WD"},      {"S-1-3-0", "CO"},      {"S-1-3-1", "CG"},      {"S-1-5-4", "IU"},
    {"S-1-5-6", "SU"},      {"S-1-5-7", "AN"},      {"S-1-5-10", "PS"},     {"S-1-5-11", "AU"},
    {"S-1-5-12", "RC"},     {"S-1-5-18", "SY"},     {"S-1-5-19", "LS"},     {"S-1-5-20", "NS"},
    {"S-1-5-32-544", "BA"}, {"S-1-5-32-545", "BU"}, {"S-1-5-32-546", "BG"}, {"S-1-5-32-547", "PU"},
    {"S-1-15-2-1", "AC"},
};

struct Flag {
    u32 bit;
    const char* name;
};
constexpr Flag aceFlags[] = {{0x01, "OI"}, {0x02, "CI"}, {0x04, "NP"}, {0x08, "IO"},
                             {0x10, "ID"}, {0x40, "SA"}, {0x80, "FA"}};
constexpr Flag aceTypes[] = {{0, "A"}, {1, "D"}, {2, "AU"}, {3, "AL"}, {0x11, "ML"}};
constexpr Flag keyRights[] = {{0xF003F, "KA"},    {0x20019, "KR"},    {0x20006, "KW"},   {0x10000000, "GA"},
                              {0x80000000, "GR"}, {0x40000000, "GW"}, {0x20000000, "GX"}};

std::string sidText(Fields& fields, u64 offset) {
    const u32 count = fields.byte(offset + 1);
    u64 authority = 0;
    for (u32 i = 0; i < 6; ++i) authority = authority << 8 | fields.byte(offset + 2 + i);
    std::string text = "S-" + std::to_string(fields.byte(offset)) + "-" + std::to_string(authority);
    for (u32 i = 0; i < count; ++i) text += "-" + std::to_string(fields.number(offset + 8 + 4ULL * i, 4));
    for (const Named& known : knownSids)
        if (text == known.text) return known.name;
    return text;
}

std::string aceText(Fields& fields, u64 offset) {
    const u32 type = fields.byte(offset);
    const u32 flags = fields.byte(offset + 1);
    const u64 mask = fields.number(offset + 4, 4);
    std::string typeText = hexNumber(type);
    for (const Flag& known : aceTypes)
        if (known.bit == type) typeText = known.name;
    std::string flagText;
    for (const Flag& known : aceFlags)
        if (flags & known.bit) flagText += known.name;
    std::string rights = hexNumber(mask);
    for (const Flag& known : keyRights)
        if (known.bit == mask) rights = known.name;
    return "(" + typeText + ";" + flagText + ";" + rights + ";;;" + sidText(fields, offset + 8) + ")";
}

std::string aclText(Fields& fields, u64 offset) {
    std::string text;
    const u64 count = fields.number(offset + 4, 2);
    u64 at = offset + 8;
    for (u64 i = 0; i < count && fields.intact(); ++i) {
        const u64 size = fields.number(at + 2, 2);
        if (size < 8) return "(?)";
        // Each entry is read within its own bytes.
        Fields ace(fields.part(at, size));
        const std::string one = aceText(ace, 0);
        text += ace.intact() ? one : "(?)";
        at += size;
    }
    return text;
}

std::string aclFlags(u64 control, u64 protectedBit, u64 autoInheritBit) {
    return std::string(control & protectedBit ? "P" : "") + (control & autoInheritBit ? "AI" : "");
}

}  // namespace

std::string sddlText(std::span<const u8> descriptor) {
    Fields fields(descriptor);
    constexpr u64 DACL_PRESENT = 0x0004, SACL_PRESENT = 0x0010;
    const u64 control = fields.number(2, 2);
    const u64 owner = fields.number(4, 4), group = fields.number(8, 4);
    const u64 audit = fields.number(12, 4), access = fields.number(16, 4);
    std::string text;
    if (owner) text += "O:" + sidText(fields, owner);
    if (group) text += "G:" + sidText(fields, group);
    if (control & DACL_PRESENT)
        text += "D:" + aclFlags(control, 0x1000, 0x0400) +
                (access ? aclText(fields, access) : "NO_ACCESS_CONTROL");
    if (control & SACL_PRESENT && audit)
        text += "S:" + aclFlags(control, 0x2000, 0x0800) + aclText(fields, audit);
    return fields.intact() && fields.byte(0) == 1 ? text : std::string();
}

}  // namespace HiveCtl
