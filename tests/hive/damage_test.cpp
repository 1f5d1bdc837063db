// Records that a damaged file gets wrong: what is refused, with which error, and what the log says.

#include <functional>

#include "hive/security/securitydescriptoriteratorobj.h"
#include "tests/hive/openedhive.h"

using namespace HiveTest;

namespace {

constexpr u32 FRAGMENT = 16344;
constexpr u32 NOWHERE = 0x7FFFFFF8;

/// Bytes put into a record, and what is logged about them.
struct Damage {
    u64 at;  // a cell's offset and the place in it
    std::vector<u8> bytes;
    std::string logged;
    u32 error;
};

/// `look` asks for what the damage hides, and must be refused every time with the same reason.
void expectRefused(HiveBuilder builder, const Damage& damage, const std::function<bool(KeyObj&)>& look,
                   HiveFile::HiveCodepage codepage = HiveFile::hiveCodepageLatin1) {
    SCOPED_TRACE(testing::Message() << damage.at << " " << damage.logged);
    builder.poke(damage.at, damage.bytes);
    const OpenedHive opened(builder, HiveFile::modeReadOnly, codepage);
    const MemoryLimit limit;
    for (int again = 0; again < 2; ++again) {
        LogCapture logged;
        Error::set(0);
        EXPECT_FALSE(look(*opened.root));
        EXPECT_EQ(Error::get(), damage.error);
        EXPECT_TRUE(logged.contains(damage.logged)) << logged.text();
        EXPECT_LT(logged.count("\n"), 30u) << "not one line for each of what is claimed";
    }
}

/// A root with one subkey and one value. In front of them lie two cells too small for a key, at 32 (but for
/// its name) and 112.
HiveBuilder smallHive() {
    HiveBuilder builder;
    for (const u32 size : {80u, 8u}) builder.poke(builder.allocate(size) + 4, "nk");
    builder.poke16(32 + 76, 1);
    builder.build({.name = u"ROOT",
                   .values = {{.name = u"Value", .data = {1, 2, 3}}},
                   .keys = {{.name = u"Sub", .keys = {{.name = u"x"}}}}});
    return builder;
}

TEST(Damage, BrokenKeyAndValueRecordsGiveInvalidObjects) {
    const HiveBuilder builder = smallHive();
    const u64 list = builder.key().list, key = builder.key(u"Sub").record,
              value = builder.value(u"", u"Value").record;
    const std::string noKey = "3 Hive: Failed to get hive record for key: ",
                      longKey = "3 Hive: Name of key exceeds length of record",
                      longValue = "4 Hive: Name of value exceeds length of record\n1 Hive: Record: ";
    const Damage keys[] = {
        {list + 8, numberBytes(NOWHERE), noKey + "7ffffff8h", 0x1001},
        {list + 8, numberBytes(40), noKey, 0x1001},  // inside a cell
        {key, numberBytes(88), noKey, 0x1001},       // free
        {key + 4, {'v', 'k'}, "3 Hive: Key record is no nk record: vk", 0x1001},
        {key + 76, numberBytes(9, 2), longKey, 0x1001},
        {list + 8, numberBytes(32), longKey, 0x1001},
        {list + 8, numberBytes(112), longKey, 0x1001},
    };
    for (const Damage& damage : keys) {
        expectRefused(builder, {damage.at, damage.bytes, damage.logged, 0x2004},
                      [](KeyObj& root) { return root.key(0)->valid(); });
        expectRefused(builder, {damage.at, damage.bytes, "", 0x2004}, [](KeyObj& root) {
            const auto sub = root.key(0);
            EXPECT_TRUE(sub->readOnly());
            return sub->name() || sub->key(0) || sub->key(text(u"")) || sub->value(text(u"")) ||
                   sub->keyIterator() || sub->valueIterator() || sub->keys() || sub->values();
        });
    }
    const Damage values[] = {
        {value, numberBytes(32), "3 Hive: Failed to get hive record for value: ", 0},  // free
        {value + 4, {'n', 'k'}, "4 Hive: Value record is no vk record: ", 0},
        {value + 6, numberBytes(9, 2), longValue, 0},
        {value, numberBytes(0u - 8), longValue, 0},
        {value + 8, numberBytes(0x80000005),
         "4 Hive: Invalid length of data! Data is resident, size is: ", 0x200C},
    };
    for (const Damage& damage : values) {
        expectRefused(builder, damage, [](KeyObj& root) { return root.value(0)->valid(); });
        expectRefused(builder, {damage.at, damage.bytes, "", 0x1001}, [](KeyObj& root) {
            const auto broken = root.value(0);
            u8 byte = 0xCC;
            EXPECT_TRUE(broken->readOnly() && broken->read(&byte, 0, 1) == 0 && byte == 0xCC);
            return broken->name() || broken->size() || broken->string(9) || broken->strings(9) ||
                   broken->binary() || broken->number() != ~u64{0};
        });
    }
}

TEST(Damage, RingOfKeysEndsAtTheDepthLimit) {
    HiveBuilder builder = smallHive();
    builder.poke32(builder.key().list + 8, builder.key().record);  // the root is its own subkey
    LogCapture logged;
    Ref<KeyObj> key = OpenedHive(builder).root;
    u32 depth = 0;
    for (Ref<KeyObj> below = key->key(0); below && below->valid() && depth < 600;
         below = key->key(0), ++depth)
        key = below;
    EXPECT_EQ(depth, 512u);
    EXPECT_TRUE(logged.contains("4 Hive: Key tree is too deep, key: ")) << logged.text();
}

// Regression: a key whose removal from its old list failed stood in two lists, and lists could name each
// other.
TEST(Damage, MovesThatFailHalfwayLeaveNoRing) {
    HiveBuilder builder;
    builder.build({.keys = {{.name = u"A", .keys = {{.name = u"C"}}},
                            {.name = u"B", .keys = {{.name = u"C"}}},
                            {.name = u"X"},
                            {.name = u"Y"}}});
    builder.poke32(builder.key(u"B").record + 32, builder.key(u"A").list);
    const OpenedHive opened(builder, HiveFile::modeReadWrite);
    const auto at = [&](u32 index) { return opened.root->key(index); };
    const Ref<KeyObj> a = at(0), b = at(1), x = at(2), y = at(3), ofA = a->key(0), ofB = b->key(0);
    EXPECT_TRUE(x->move(Ref<Key>(ofA), text(u"C")));
    EXPECT_FALSE(y->move(Ref<Key>(ofB), text(u"C2")));
    EXPECT_FALSE(ofB->move(Ref<Key>(y), text(u"Y")) && y->move(Ref<Key>(ofB), text(u"Z")));
}

// Regression: a move to a deeper level asked for each of the subkeys that an unreadable list claims to have.
TEST(Damage, AMoveMeasuresNoMoreThanListsHold) {
    HiveBuilder builder;
    builder.build({.keys = {{.name = u"a", .keys = {{.name = u"x", .keys = {{}}}}}, {.name = u"b"}}});
    builder.poke32(builder.key(u"a/x").record + 24, 0xFFFFFFF0);
    const OpenedHive opened(builder, HiveFile::modeReadWrite);
    LogCapture logged;
    EXPECT_TRUE(opened.root->key(1)->move(Ref<Key>(opened.root->key(0)), text(u"n")));
    EXPECT_LT(logged.count("\n"), 30u);
}

TEST(Damage, BrokenSubkeyListsAreRefused) {
    constexpr auto lh = ListKind::lh, lf = ListKind::lf, li = ListKind::li;
    constexpr auto riLh = ListKind::riLh, riLi = ListKind::riLi;
    constexpr auto nk = &LaidKey::record, top = &LaidKey::list;
    constexpr u32 none = HiveImage::NONE;
    const std::string wrongTotal = "3 Hive: Wrong number of items in sublists of ri list";
    const struct {
        u32 minor;
        ListKind list;  // of four subkeys, two in a sublist
        u32 LaidKey::*cell;
        u32 at;
        std::vector<u8> bytes;
        std::string logged;
    } cases[] = {
        {5, lh, nk, 32, numberBytes(none), ""},
        {5, lh, top, 0, numberBytes(40), "Attempt to access an unused record"},
        {5, lh, top, 4, {'x', 'y'}, "3 Hive: Invalid list type for key list: 7978h"},
        {5, lh, nk, 24, numberBytes(5), "3 Hive: Failed to load lh key list, list: "},
        {3, li, nk, 24, numberBytes(5), "3 Hive: Failed to load li (top level) key list:"},
        {5, lh, nk, 24, numberBytes(3), "3 Hive: More items in lh list than expected"},
        {3, lf, nk, 24, numberBytes(3), "3 Hive: More items in lf list than expected"},
        {5, lh, top, 6, numberBytes(5, 2), "3 Hive: Size of items of lh list exceeds size of record"},
        {3, lf, top, 6, numberBytes(5, 2), "3 Hive: Size of items of lf list exceeds size of record"},
        {3, li, top, 6, numberBytes(5, 2), "3 Hive: Size of items of li list exceeds size of record"},
        {3, lf, nk, 24, numberBytes(65540), "3 Hive: Failed to load lf key list"},  // 4 in its low 16 bits
        {5, riLh, nk, 24, numberBytes(none), wrongTotal},
        {3, riLi, nk, 24, numberBytes(5), wrongTotal},
        {3, riLi, nk, 24, numberBytes(3), "3 Hive: More items in li list than expected"},
        {5, riLh, top, 6, numberBytes(3, 2), "3 Hive: Size of items of ri list exceeds size of record"},
        {5, riLh, top, 12, numberBytes(NOWHERE), "3 Hive: Failed to load sub list of ri list: 7ffffff8h"},
        {5, riLh, top, 12, numberBytes(64), "3 Hive: Invalid list type for key sub list: nk"},
        // Each version takes its own kinds.
        {5, lf, nk, 0, {}, "4 Hive: Lf list is only expected in V1.3 hive"},
        {3, lh, nk, 0, {}, "4 Hive: Lh list is not expected in V1.3 hive"},
        {5, li, nk, 0, {}, "4 Hive: Li list (top level) is only expected in V1.3 hive"},
        {3, ListKind::riLf, nk, 0, {}, "3 Hive: Invalid list type for key sub list: lf"},
        {5, ListKind::riLf, nk, 0, {}, "3 Hive: Invalid list type for key sub list: lf"},
        {3, riLh, nk, 0, {}, "3 Hive: Invalid list type for key sub list: lh"},
        {5, riLi, nk, 0, {}, "3 Hive: Invalid list type for key sub list: li"},
    };
    for (const auto& test : cases) {
        HiveBuilder builder(test.minor);
        builder.build({.keys = {{.name = u"a"}, {.name = u"b"}, {.name = u"c"}, {.name = u"d"}},
                       .list = test.list,
                       .sublists = {2, 2}});
        ASSERT_EQ(builder.key().record, 64u);
        const Damage damage{u64{builder.key().*test.cell} + test.at, test.bytes, test.logged, 0x2007};
        expectRefused(builder, damage, [](KeyObj& root) { return bool(root.key(2)); });
        expectRefused(builder, damage, [](KeyObj& root) { return bool(root.key(text(u"a"))); });
        expectRefused(builder, {damage.at, damage.bytes, damage.logged, 0x1003},
                      [](KeyObj& root) { return bool(root.linearFindKey(u"a", nullptr)); });
    }
}

TEST(Damage, BrokenValueListsAreRefused) {
    constexpr auto tooSmall = "3 Hive: Value list record is too small, key: ";
    HiveBuilder builder;
    builder.build({.values = {{u"A"}, {u"B"}, {u"C"}, {u"D"}, {u"E"}}});
    const u64 key = builder.key().record;
    const Damage cases[] = {
        {key + 40, numberBytes(6), tooSmall, 0x2008},
        {key + 40, numberBytes(0x40000000), tooSmall, 0x2008},  // four times as many bytes: none in 32 bits
        {key + 44, numberBytes(NOWHERE), "", 0},
        {key + 44, numberBytes(36), "Attempt to access record with invalid alignment", 0x2006},
    };
    for (const Damage& damage : cases)
        expectRefused(builder, damage, [](KeyObj& root) {
            return root.value(4) || root.value(text(u"A")) || root.valueIterator()->next();
        });
}

/// A hive of one value, "Value", far enough from the start that no offset bounds a read; the first cell, at
/// 32, is an sk record of 32 bytes.
HiveBuilder valueHive(u32 type, std::vector<u8> data) {
    HiveBuilder builder;
    builder.build({.values = {{.name = u"Value", .type = type, .data = std::move(data)}},
                   .className = std::u16string(40000, u'c')});
    return builder;
}

TEST(Damage, BrokenDataIsRefused) {
    constexpr auto vk = &LaidValue::record, cell = &LaidValue::data, list = &LaidValue::fragmentList;
    const std::string tooFew = "4 Hive: Size of all fragments smaller than length of data",
                      badFragment = "4 Hive: Invalid size for non-last fragment: ";
    const u32 large = valueHive(3, {}).key().className;
    const struct {
        u32 size;
        u32 LaidValue::*cell;
        u32 at;
        std::vector<u8> bytes;
        std::string logged;
        u32 error;
    } cases[] = {
        {100, vk, 12, numberBytes(NOWHERE), "", 0},
        {100, vk, 12, numberBytes(36), "", 0x2006},
        {100, cell, 0, numberBytes(104), "Attempt to access an unused record", 0},
        {100, vk, 8, numberBytes(101),
         "size value in vk recordsize in vk: 65h (101)size of data element: 68h", 0x200C},
        {16344, cell, 0, numberBytes(0u - 16344), "4 Hive: Size of data element is smaller than size value",
         0x200C},
        {40000, cell, 4, {'b', 'd'}, "4 Hive: Invalid record type: Expected db, is: bd", 0x200C},
        {40000, cell, 0, numberBytes(0u - 8), "4 Hive: Size too small for db record: 8h (8)", 0x200C},
        {40000, vk, 8, numberBytes(3 * FRAGMENT + 1), tooFew, 0x200C},
        {2 * FRAGMENT + 1, cell, 6, numberBytes(2, 2), tooFew, 0x200C},
        {40000, cell, 6, numberBytes(4, 2), "4 Hive: Size of fragment list is smaller than size of expec",
         0x200C},
        {40000, cell, 8, numberBytes(0xFFFFFFF8), "", 0},
        {40000, list, 12, numberBytes(NOWHERE), "", 0},
        {40000, list, 8, numberBytes(32), badFragment, 0},
        {2 * FRAGMENT, list, 4, numberBytes(32), badFragment, 0},
        {40000, list, 4, numberBytes(large), badFragment, 0},
    };
    for (const auto& test : cases) {
        const HiveBuilder builder = valueHive(3, patternBytes(test.size));
        const u64 at = u64{builder.value(u"", u"Value").*test.cell} + test.at;
        expectRefused(builder, {at, test.bytes, test.logged, test.error},
                      [](KeyObj& root) { return !dataOf(*root.value(0)).empty(); });
    }
    const std::string noText = "3 Hive: Wrong read result when reading string, record =";
    const struct {
        u32 type, size;
        std::string logged;
    } typed[] = {
        {1, 0x7FFFFFFF, noText},
        {7, 0x7FFFFFFF, noText},
        {1, 200, "\n1 Hive: string length (bytes):c8h (200)\n1 Hive: read result:0h (0)\n"},
        {4, 4, "3 Hive: Wrong read result when reading u32 value, record ="},
        {11, 8, "3 Hive: Wrong read result when reading u64 value, record ="},
    };
    {  // Regression: a text longer than the hive was refused without its reason.
        HiveBuilder builder = valueHive(1, patternBytes(100));
        builder.poke32(builder.value(u"", u"Value").record + 8, 0x1000000);
        const auto value = OpenedHive(builder).root->value(0);
        u8 byte = 0;
        const u32 reason = errorOf([&] { return value->read(&byte, 0, 1) != 0; });
        EXPECT_EQ(errorOf([&] { return bool(value->string(HiveImage::NONE)); }), reason);
        EXPECT_NE(reason, 0u);
    }
    for (const auto& test : typed) {
        HiveBuilder builder = valueHive(test.type, {1});
        builder.poke32(builder.value(u"", u"Value").record + 8, test.size);
        const Damage damage{u64{builder.value(u"", u"Value").record} + 12, numberBytes(builder.freeCell(100)),
                            test.logged, test.size < 9 ? 0x1016u : 0};
        expectRefused(builder, damage, [&](KeyObj& root) {
            const auto value = root.value(0);
            return test.type == 1   ? bool(value->string(HiveImage::NONE))
                   : test.type == 7 ? bool(value->strings(HiveImage::NONE))
                                    : value->number() != ~u64{0};
        });
    }
}

/// Names without text do no harm to the rest; neither do unreadable entries of a list.
TEST(Damage, WhatIsUnreadableIsSkipped) {
    HiveBuilder builder;
    builder.build(
        {.values = {{u"A"}, {u"B"}, {u"C"}, {u"D"}}, .keys = {{u"k1"}, {u"k3"}, {u"k5"}, {u"k7"}, {u"k9"}}});
    builder.poke(builder.value(u"", u"A").record + 4, "kv");
    builder.poke32(builder.key().valueList + 8, NOWHERE);        // B
    builder.poke(builder.value(u"", u"C").record + 24, "\xE4");  // no ASCII
    {
        const auto root = OpenedHive(builder, HiveFile::modeReadOnly, HiveFile::hiveCodepageAscii).root;
        LogCapture logged;
        EXPECT_TRUE(root->value(text(u"d")) && root->value(text(u"d")) == root->value(3));
        EXPECT_EQ(logged.count("3 Hive: Failed to get value with index: "), 4u) << logged.text();
        for (const char16_t* missing : {u"A", u"B", u"C", u""})
            EXPECT_EQ(errorOf([&] { return bool(root->value(text(missing))); }), 0x1004u);
        logged.clear();
        EXPECT_TRUE(root->value(2)->valid() && !root->value(2)->name());
        EXPECT_EQ(root->value(2)->binaryNameLength(), 1u);
        EXPECT_TRUE(
            logged.contains("Name of value could not be converted from codepaged name to Ref<String>. "));
    }
    HiveBuilder nameless = builder;
    nameless.poke(builder.key(u"k5").record + 80, "\xE4");
    for (const u32 modeBit : {0u, 0x8u, 0x10u, 0x80u}) {
        SCOPED_TRACE(modeBit);
        const OpenedHive opened(nameless, HiveFile::modeReadOnly | modeBit, HiveFile::hiveCodepageAscii);
        LogCapture logged;
        const bool linear = modeBit >= 0x10;
        EXPECT_EQ(bool(opened.root->key(text(u"K1"))), linear) << "in front of a name that is too low";
        EXPECT_EQ(logged.count("Name of key could not be converted"), 1u) << logged.text();
        EXPECT_TRUE(opened.root->key(text(u"K9")));
        EXPECT_TRUE(opened.root->key(2)->valid() && !opened.root->key(2)->name());
        EXPECT_EQ(errorOf([&] { return bool(opened.root->key(text(u"k5"))); }), 0x1003u);
        EXPECT_EQ(logged.contains("Can't get name of other key for binary search, using linear fallback"),
                  linear);
    }
    builder.poke(builder.key(u"k5").record + 4, "xx");
    const OpenedHive opened(builder, HiveFile::modeReadOnly | HiveFile::modeLinearFallback);
    LogCapture logged;
    u32 position = 77;
    EXPECT_FALSE(opened.root->binaryFindKey(u"k9", &position));
    EXPECT_EQ(position, HiveImage::NONE);
    EXPECT_TRUE(logged.contains("3 Hive: Failed to open sub key for binary search. key: 2h"));
    EXPECT_TRUE(opened.root->linearFindKey(u"k9", &position) && position == 4);
    EXPECT_TRUE(logged.contains("3 Hive: Failed to get key with index: 2h")) << logged.text();
}

/// Three security records; the root uses the second one. The cell at 32 is too short for one.
struct SecurityHive : HiveBuilder {
    SecurityHive() {
        poke(allocate(16) + 4, "sk");
        setDescriptors({patternBytes(4, 1), patternBytes(20, 2), patternBytes(37, 3)});
        build({.keys = {{.name = u"A"}, {.name = u"B", .security = 1}}, .security = 1});
    }
};

/// The records a walk yields, by index; no more than twenty.
std::string walk(const SecurityHive& builder, SecurityDescriptorIterator& iterator) {
    std::string order;
    for (auto next = iterator.next(); next && order.size() < 20; next = iterator.next())
        for (u32 i = 0; i < 3; ++i)
            if (next->recordOfs() == builder.security()[i]) order += static_cast<char>('0' + i);
    return order;
}

TEST(Security, RingsAreWalkedOnceFromTheRootsRecordAndBrokenOnesEnd) {
    constexpr auto invalid = "3 HIVE SD Iterator: Invalid offset in sk at ";
    constexpr auto endless = "3 HIVE SD Iterator: Ring of sk records does not return to its start, record: ";
    const SecurityHive whole;
    const auto links = [&](u32 to) { return numberBytes(whole.security()[to]); };
    const struct {
        u32 record, at;
        std::vector<u8> bytes;
        std::string visited;  // the head of it, for an endless ring
        std::string logged = {};
    } cases[] = {
        {0, 0, {}, "120"},
        {1, 8, links(1), "1"},
        {1, 8, numberBytes(HiveImage::NONE), "1", invalid},
        {2, 8, numberBytes(whole.key().record), "12"},
        {2, 0, numberBytes(64), "1"},  // free
        {1, 8, numberBytes(32), "1"},
        {1, 4, {'k', 's'}, ""},
        {0, 8, links(2), "120", endless},
        {2, 8, links(2), "12", endless},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << test.record << " " << test.at << " " << test.logged);
        SecurityHive builder;
        builder.poke(builder.security()[test.record] + test.at, test.bytes);
        const auto iterator = OpenedHive(builder).hive->securityDescriptorIterator();
        iterator->next();
        iterator->rewind();
        LogCapture logged;
        const std::string visited = walk(builder, *iterator);
        EXPECT_EQ(visited.substr(0, test.logged == endless ? test.visited.size() : 20), test.visited);
        EXPECT_LT(visited.size(), 10u);
        EXPECT_FALSE(iterator->next());
        EXPECT_EQ(logged.count("HIVE SD Iterator"), test.logged.empty() ? 0u : 1u);
        EXPECT_TRUE(logged.contains(test.logged)) << logged.text();
    }
}

/// Also of a record that breaks while its object lives. Log filters know the line numbers; those of `set` are
/// 18 up.
TEST(Security, DescriptorIsReplacedByOneOfItsLengthOnly) {
    const struct {
        u32 newSize;  // of the cell; 0 frees it
        u32 at;
        std::vector<u8> bytes;
        u32 length;  // for `set`
        u32 line = 0;
    } cases[] = {
        {44, 20, numberBytes(20), 20},
        {44, 20, numberBytes(20), 19},
        {44, 20, numberBytes(20), 21},
        {44, 20, numberBytes(0), 20},
        {44, 20, numberBytes(25), 25},  // room for 24
        {44, 20, numberBytes(0xFFFFFFF0), 0xFFFFFFF0},
        {0, 0, {}, 20, 76},
        {44, 4, {'k', 's'}, 20, 77},
        {16, 4, {'s', 'k'}, 20, 78},
    };
    SecurityHive builder;
    const u32 record = builder.security()[1];
    const auto fresh = patternBytes(64, 9);
    EXPECT_FALSE(OpenedHive(builder).hive->securityDescriptorIterator()->next()->set(fresh.data(), 20));
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << test.length << " " << test.line);
        const OpenedHive opened(builder, HiveFile::modeReadWrite);
        const auto descriptor = opened.hive->securityDescriptorIterator()->next();
        EXPECT_EQ(opened.hive->resizeRecord(record, test.newSize, true, nullptr, false),
                  test.newSize ? record : 0);
        if (test.newSize)
            opened.hive->writeRecord(record, test.bytes.data(), test.at, u32(test.bytes.size()));
        LogCapture logged(4);
        const bool sound = test.bytes == numberBytes(20), set = sound && test.length == 20;
        EXPECT_EQ(descriptor->set(fresh.data(), test.length), set);
        const auto got = descriptor->get();
        ASSERT_EQ(bool(got), sound);
        const auto wanted = patternBytes(20, set ? 9 : 2);
        EXPECT_TRUE(!got || std::equal(wanted.begin(), wanted.end(), got->begin(), got->end()));
        const auto message = [&](u32 line, const std::string& method) {
            return " FAILED IN LINE " + std::to_string(line) +
                   ", FUNCTION Libraries::Files::Hive::SecurityDescriptorObj::" + method + "\n";
        };
        EXPECT_EQ(logged.count("\n"), test.line ? 2u : 0u) << logged.text();
        EXPECT_EQ(logged.contains(message(test.line + 18, "set")), test.line != 0) << logged.text();
        EXPECT_EQ(logged.contains(message(test.line, "get")), test.line != 0) << logged.text();
    }
}

}  // namespace
