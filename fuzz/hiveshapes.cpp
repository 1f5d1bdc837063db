#include "fuzz/hiveshapes.h"

#include "tests/support/hivebuilder.h"

namespace HiveFuzz {

using namespace HiveTest;  // NOLINT: a file made of the builder's words

namespace {

std::u16string numbered(const char16_t* head, u32 number) {
    const std::string digits = std::to_string(1000 + number);
    return head + std::u16string(digits.begin(), digits.end());
}

/// Values of every type and storage form; `large` is the length of the biggest.
std::vector<ValuePlan> variedValues(u32 large) {
    std::vector<u8> list = utf16Bytes(u"first\0second\0third\0");
    list.resize(list.size() + 2);
    return {
        {.name = u"", .type = 1, .data = utf16Bytes(u"default value")},
        {.name = u"Text", .type = 1, .data = utf16Bytes(u"some text with \"quotes\" and \\")},
        {.name = u"Expand", .type = 2, .data = utf16Bytes(u"%SystemRoot%\\System32")},
        {.name = u"One", .type = 1, .data = {65}},
        {.name = u"Bytes", .type = 3, .data = patternBytes(61)},
        {.name = u"Empty", .type = 3},
        {.name = u"Dword", .type = 4, .data = numberBytes(0xDEADBEEF)},
        {.name = u"ShortDword", .type = 4, .data = {1, 2}},
        {.name = u"BigEndian", .type = 5, .data = {1, 2, 3, 4}, .storage = Storage::single},
        {.name = u"List", .type = 7, .data = list},
        {.name = u"Qword", .type = 11, .data = numberBytes(0x1122334455667788, 8)},
        {.name = u"Wide \u0416\u4E2D", .type = 0x8001, .data = patternBytes(9)},
        {.name = u"Caf\u00E9", .type = 3, .data = patternBytes(3)},
        {.name = u"Large", .type = 3, .data = patternBytes(large, 7)},
    };
}

std::vector<KeyPlan> manyKeys(u32 count, const char16_t* head = u"Key") {
    std::vector<KeyPlan> keys;
    for (u32 i = 0; i < count; ++i) {
        keys.push_back({.name = numbered(head, i)});
        if (i % 8 == 0) keys.back().values = {{.name = u"Number", .type = 4, .data = numberBytes(i)}};
    }
    return keys;
}

/// `room` bytes stand before everything else: data cells further up than their length are read whole.
HiveShape shape(const char* name, u32 minor, KeyPlan root, u32 hbinSize = 4096, u32 room = 64) {
    HiveBuilder hive(minor);
    hive.setHbinSize(hbinSize);
    hive.setDescriptors({patternBytes(20, 1), patternBytes(48, 2), patternBytes(33, 3)});
    hive.freeCell(room);
    hive.build(root);
    hive.freeCell(200);
    hive.allocate(40);
    return {name, hive.finish()};
}

KeyPlan deepTree(u32 depth) {
    KeyPlan key{.name = u"Bottom", .values = variedValues(100), .className = u"Deepest", .security = 2};
    for (u32 i = 0; i < depth; ++i) key = {.name = numbered(u"Level", i), .keys = {key}, .security = i % 3};
    return key;
}

/// Three levels whose middle keys have the given kind of list.
KeyPlan tree(ListKind kind, std::vector<u32> sublists, u32 large) {
    KeyPlan folded{.name = u"Folded", .keys = manyKeys(40), .list = kind, .sublists = std::move(sublists)};
    KeyPlan wide{.name = u"\u0416\u0443\u043A", .values = variedValues(30), .nameForm = NameForm::utf16};
    return {.name = u"ROOT",
            .values = variedValues(large),
            .keys = {folded, wide, {.name = u"Leaf", .className = u"Class"}, deepTree(12)}};
}

}  // namespace

std::vector<HiveShape> hiveShapes() {
    return {
        shape("1.3 lf", 3, tree(ListKind::lf, {}, 20000), 4096, 20000),
        shape("1.3 li", 3, tree(ListKind::li, {}, 700), 8192),
        shape("1.3 ri over li", 3, tree(ListKind::riLi, {1, 16, 23}, 5000)),  // lies too low
        shape("1.5 lh", 5, tree(ListKind::lh, {}, 16344), 16384),
        shape("1.5 ri over lh", 5, tree(ListKind::riLh, {20, 19, 1}, 17000), 4096, 16400),
        shape("1.5 db list", 5, tree(ListKind::lh, {}, 40000), 4096, 16400),
        shape("1.5 wrong lists", 5, tree(ListKind::li, {}, 100)),
        shape("1.5 tiny", 5, {.name = u"R", .values = variedValues(8)}),
    };
}

}  // namespace HiveFuzz
