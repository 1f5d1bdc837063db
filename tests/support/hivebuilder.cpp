#include "tests/support/hivebuilder.h"

#include <algorithm>

#include "platform/system/string.h"

namespace HiveTest {

namespace {

constexpr u32 FRAGMENT = 16344;  // data bytes of a db list's fragment

struct StoredName {
    std::vector<u8> bytes;
    bool compressed;
};

StoredName storedName(std::u16string_view name, NameForm form) {
    const bool fits = std::all_of(name.begin(), name.end(), [](char16_t unit) { return unit < 256; });
    if (form == NameForm::utf16 || (form == NameForm::automatic && !fits)) return {utf16Bytes(name), false};
    return {{name.begin(), name.end()}, true};
}

std::u16string upper(std::u16string_view name) {
    std::u16string result(name);
    for (char16_t& unit : result) unit = Platform::String::upperUnit(unit);
    return result;
}

bool isTwoLevel(ListKind kind) {
    return kind == ListKind::riLf || kind == ListKind::riLh || kind == ListKind::riLi;
}

ListKind listKind(const KeyPlan& plan, bool isV13) {
    if (plan.list != ListKind::automatic) return plan.list;
    if (isV13) return plan.keys.size() > 400 ? ListKind::riLi : ListKind::lf;
    return plan.keys.size() > 1200 ? ListKind::riLh : ListKind::lh;
}

}  // namespace

std::u16string digits(u32 number) {
    const std::string text = std::to_string(number);
    return {text.begin(), text.end()};
}

std::vector<u8> numberBytes(u64 number, u32 bytes) {
    std::vector<u8> result;
    for (u32 i = 0; i < bytes; ++i) result.push_back(static_cast<u8>(number >> 8 * i));
    return result;
}

std::vector<u8> utf16Bytes(std::u16string_view units) {
    std::vector<u8> result;
    for (const char16_t unit : units) {
        result.push_back(static_cast<u8>(unit));
        result.push_back(static_cast<u8>(unit >> 8));
    }
    return result;
}

std::vector<u8> patternBytes(u64 count, u32 seed) {
    std::vector<u8> result(count);
    u32 state = seed * 2654435761u + 1;
    for (u8& byte : result) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<u8>(state >> 24);
    }
    return result;
}

u32 nameHash(std::u16string_view name) {
    u32 hash = 0;
    for (const char16_t unit : upper(name)) hash = hash * 37 + unit;
    return hash;
}

u32 nameHint(std::u16string_view name) {
    u32 hint = 0;
    for (u32 i = 0; i < 4 && i < name.size(); ++i)
        if (name[i] < 256) hint |= u32{name[i]} << 8 * i;
    return hint;
}

u32 HiveBuilder::build(const KeyPlan& root) {
    laySecurity();
    const u32 record = layKey(root, NONE, {});
    setRoot(record);
    return record;
}

void HiveBuilder::laySecurity() {
    for (const std::vector<u8>& descriptor : _descriptors) {
        const u32 record = allocate(24 + descriptor.size());
        poke(record + 4, "sk");
        poke32(record + 20, descriptor.size());
        poke(record + 24, descriptor);
        _security.push_back(record);
    }
    const u64 count = _security.size();
    for (u64 i = 0; i < count; ++i) {
        poke32(_security[i] + 8, _security[(i + 1) % count]);
        poke32(_security[i] + 12, _security[(i + count - 1) % count]);
    }
}

u32 HiveBuilder::layKey(const KeyPlan& plan, u32 parent, const std::u16string& path) {
    const StoredName name = storedName(plan.name, plan.nameForm);
    const u32 record = allocate(80 + name.bytes.size());
    LaidKey& laid = _keys[path] = {};  // of two keys with one path the later one is found
    laid.record = record;
    if (!plan.className.empty()) laid.className = allocate(utf16Bytes(plan.className));
    layValues(plan, laid);
    laySubkeys(plan, laid, path);

    const u32 security = _security.at(plan.security);
    poke32(security + 16, peek32(security + 16) + 1);
    poke(record + 4, "nk");
    poke16(record + 6, (name.compressed ? 0x20 : 0) | (parent == NONE ? 0x0C : 0));
    poke32(record + 8, 0x11223344);  // the time stamp
    poke32(record + 12, 0x01D55667);
    poke32(record + 20, parent == NONE ? 0 : parent);
    poke32(record + 24, plan.keys.size());
    poke32(record + 32, laid.list);
    poke32(record + 36, NONE);
    poke32(record + 40, plan.values.size());
    poke32(record + 44, laid.valueList);
    poke32(record + 48, security);
    poke32(record + 52, laid.className);
    poke16(record + 76, name.bytes.size());
    poke16(record + 78, 2 * plan.className.size());
    poke(record + 80, name.bytes);
    return record;
}

void HiveBuilder::layValues(const KeyPlan& plan, LaidKey& laid) {
    if (plan.values.empty()) return;
    laid.valueList = allocate(4 + 4 * plan.values.size());
    u32 at = laid.valueList;
    for (const ValuePlan& value : plan.values) {
        const LaidValue& place = laid.values[value.name] = layValue(value);
        poke32(at += 4, place.record);
    }
}

LaidValue HiveBuilder::layValue(const ValuePlan& plan) {
    const StoredName name = storedName(plan.name, plan.nameForm);
    LaidValue laid;
    laid.record = allocate(24 + name.bytes.size());
    const bool resident =
        plan.storage == Storage::resident || (plan.storage == Storage::automatic && plan.data.size() <= 4);
    poke(laid.record + 4, "vk");
    poke16(laid.record + 6, name.bytes.size());
    poke32(laid.record + 8, plan.data.size() | (resident ? 0x80000000 : 0));
    if (resident) {
        poke32(laid.record + 12, 0xEEEEEEEE);  // bytes behind the data mean nothing
        poke(laid.record + 12, std::span(plan.data).first(std::min<std::size_t>(plan.data.size(), 4)));
    } else {
        poke32(laid.record + 12, laid.data = layData(plan, laid));
    }
    poke32(laid.record + 16, plan.type);
    poke16(laid.record + 20, name.compressed ? 1 : 0);
    poke(laid.record + 24, name.bytes);
    return laid;
}

u32 HiveBuilder::layData(const ValuePlan& plan, LaidValue& laid) {
    const std::span<const u8> data = plan.data;
    const bool split = minor() != 3 && data.size() > FRAGMENT;
    if (plan.storage == Storage::single || (plan.storage == Storage::automatic && !split))
        return allocate(data);

    const u32 record = allocate(12);
    const u64 count = (data.size() + FRAGMENT - 1) / FRAGMENT;
    laid.fragmentList = allocate(4 + 4 * count);
    for (u64 i = 0; i < count; ++i) {
        const u64 length = std::min<u64>(FRAGMENT, data.size() - i * FRAGMENT);
        laid.fragments.push_back(allocate(data.subspan(i * FRAGMENT, length)));
        poke32(laid.fragmentList + 4 + 4 * i, laid.fragments.back());
    }
    poke(record + 4, "db");
    poke16(record + 6, count);
    poke32(record + 8, laid.fragmentList);
    return record;
}

void HiveBuilder::laySubkeys(const KeyPlan& plan, LaidKey& laid, const std::u16string& path) {
    if (plan.keys.empty() && plan.list == ListKind::automatic) return;
    std::vector<std::pair<std::u16string, const KeyPlan*>> named;
    for (const KeyPlan& child : plan.keys) named.emplace_back(upper(child.name), &child);
    std::stable_sort(named.begin(), named.end(), [](auto& a, auto& b) { return a.first < b.first; });
    std::vector<const KeyPlan*> order;
    for (const auto& [_, child] : named) {
        const bool direct = path.empty() && !child->name.empty();
        order.push_back(child);
        laid.keys.push_back(layKey(*child, laid.record, direct ? child->name : path + u'/' + child->name));
    }

    const ListKind kind = listKind(plan, minor() == 3);
    const std::span<const KeyPlan* const> plans = order;
    const std::span<const u32> records = laid.keys;
    if (!isTwoLevel(kind)) {
        laid.list = layList(kind, plans, records);
        return;
    }
    u64 start = 0;
    for (u64 i = 0; i < plan.sublists.size() || start < records.size(); ++i) {
        const u64 left = records.size() - start;
        const u64 wanted = plan.sublists.empty() ? 500 : i < plan.sublists.size() ? plan.sublists[i] : left;
        const u64 taken = std::min(wanted, left);
        laid.sublists.push_back(layList(kind, plans.subspan(start, taken), records.subspan(start, taken)));
        start += taken;
    }
    laid.list = allocate(8 + 4 * laid.sublists.size());
    poke(laid.list + 4, "ri");
    poke16(laid.list + 6, laid.sublists.size());
    for (u64 i = 0; i < laid.sublists.size(); ++i) poke32(laid.list + 8 + 4 * i, laid.sublists[i]);
}

u32 HiveBuilder::layList(ListKind kind, std::span<const KeyPlan* const> plans, std::span<const u32> records) {
    const bool isLi = kind == ListKind::li || kind == ListKind::riLi;
    const bool isLf = kind == ListKind::lf || kind == ListKind::riLf;
    const u64 step = isLi ? 4 : 8;
    const u32 list = allocate(8 + step * records.size());
    poke(list + 4, isLi ? "li" : isLf ? "lf" : "lh");
    poke16(list + 6, records.size());
    for (u64 i = 0; i < records.size(); ++i) {
        poke32(list + 8 + step * i, records[i]);
        if (!isLi) poke32(list + 12 + step * i, isLf ? nameHint(plans[i]->name) : nameHash(plans[i]->name));
    }
    return list;
}

}  // namespace HiveTest
