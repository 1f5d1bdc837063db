#include "tests/support/hiveshapes.h"

namespace HiveTest {

namespace {

/// Values of every type and storage form; `large` is the length of the biggest.
std::vector<ValuePlan> variedValues(u32 large) {
    using namespace std::string_view_literals;
    return {{.name = u"", .type = 1, .data = utf16Bytes(u"default value")},
            {.name = u"Text", .type = 1, .data = utf16Bytes(u"some text with \"quotes\" and \\")},
            {.name = u"Expand", .type = 2, .data = utf16Bytes(u"%SystemRoot%\\System32")},
            {.name = u"One", .type = 1, .data = {65}},
            {.name = u"Empty", .type = 3},
            {.name = u"Dword", .type = 4, .data = numberBytes(0xDEADBEEF)},
            {.name = u"ShortDword", .type = 4, .data = {1, 2}},
            {.name = u"BigEndian", .type = 5, .data = {1, 2, 3, 4}, .storage = Storage::single},
            {.name = u"List", .type = 7, .data = utf16Bytes(u"first\0second\0\0"sv)},
            {.name = u"Qword", .type = 11, .data = numberBytes(0x1122334455667788, 8)},
            {.name = u"Wide \u0416\u4E2D", .type = 0x8001, .data = patternBytes(9)},
            {.name = u"Large", .type = 3, .data = patternBytes(large, 7)}};
}

KeyPlan deepTree(u32 depth) {
    KeyPlan key{.name = u"Bottom", .values = variedValues(100), .className = u"Deepest", .security = 2};
    for (u32 i = 0; i < depth; ++i)
        key = {.name = u"Level" + digits(1000 + i), .keys = {key}, .security = i % 3};
    return key;
}

struct Shape {
    const char* name;
    u32 minor;
    ListKind list;
    std::vector<u32> sublists;
    u32 large;  // bytes of the largest value
    u32 hbinSize = 4096;
    u32 room = 64;  // bytes before everything else: data further up than its length is read whole
};

/// Taken together the shapes have every kind of list, every storage form of values, both forms of names,
/// class names, security records, free cells and hbins of several sizes.
std::vector<u8> hiveOf(const Shape& shape) {
    KeyPlan folded{.name = u"Folded", .list = shape.list, .sublists = shape.sublists};
    for (u32 i = 0; i < 40; ++i) folded.keys.push_back({.name = u"Key" + digits(1000 + i)});
    const KeyPlan wide{
        .name = u"\u0416\u0443\u043A", .values = variedValues(30), .nameForm = NameForm::utf16};
    HiveBuilder hive(shape.minor);
    hive.setHbinSize(shape.hbinSize);
    hive.setDescriptors({patternBytes(20, 1), patternBytes(48, 2), patternBytes(33, 3)});
    hive.freeCell(shape.room);
    hive.build({.name = u"ROOT",
                .values = variedValues(shape.large),
                .keys = {folded, wide, {.name = u"Leaf", .className = u"Class"}, deepTree(12)}});
    hive.freeCell(200);
    hive.allocate(40);
    return hive.finish();
}

}  // namespace

std::vector<HiveShape> hiveShapes() {
    std::vector<HiveShape> shapes;
    for (const Shape& shape : {Shape{"1.3 lf", 3, ListKind::lf, {}, 5000, 4096, 5000},
                               {"1.3 li", 3, ListKind::li, {}, 700, 8192},
                               {"1.3 ri over li", 3, ListKind::riLi, {1, 16, 23}, 5000},  // lies too low
                               {"1.5 lh", 5, ListKind::lh, {}, 16344, 16384},
                               {"1.5 ri over lh", 5, ListKind::riLh, {20, 19, 1}, 300},
                               {"1.5 db list", 5, ListKind::lh, {}, 17000, 4096, 16400},
                               {"1.5 wrong lists", 5, ListKind::li, {}, 100}})
        shapes.push_back({shape.name, hiveOf(shape)});
    return shapes;
}

}  // namespace HiveTest
