#include "tests/hive/openedhive.h"

using namespace HiveTest;

namespace {

constexpr u32 NO_POSITION = 0xFFFFFFFF;

std::u16string numbered(char16_t letter, u32 number) {
    return {letter, static_cast<char16_t>(u'0' + number / 10), static_cast<char16_t>(u'0' + number % 10)};
}

/// Subkeys "k01", "K03", "k05" and so on.
KeyPlan parentOf(u32 count, ListKind list, std::vector<u32> sublists = {}) {
    KeyPlan root{.list = list, .sublists = std::move(sublists)};
    for (u32 i = 0; i < count; ++i) root.keys.push_back({.name = numbered(i % 2 ? u'K' : u'k', 2 * i + 1)});
    return root;
}

/// Looks up every name, every gap between names, and every index.
void expectAllFound(KeyObj& key, u32 count) {
    ASSERT_EQ(key.keys(), count);
    for (u32 number = 0; number <= 2 * count; ++number) {
        const auto name = text(numbered(u'K', number));
        u32 position = 77;
        Platform::Error::set(0);
        const auto found = key.binaryFindKey(name, &position);
        EXPECT_EQ(position, number / 2);
        ASSERT_EQ(bool(found), number % 2 == 1) << number;
        EXPECT_EQ(Platform::Error::get(), found ? 0 : 0x1003u);
        EXPECT_TRUE(!found || found == key.key(position)) << number;
        EXPECT_EQ(key.linearFindKey(name, &position), found);
        EXPECT_EQ(position, found ? number / 2 : NO_POSITION);
    }
    EXPECT_FALSE(key.key(count));
}

TEST(Subkeys, EachVersionTakesItsOwnKindsOfList) {
    constexpr auto sublist = "3 Hive: Invalid list type for key sub list: l";
    const struct {
        ListKind list;
        const char* refused[2];  // by version 1.3 and by 1.5; null when the list is taken
    } cases[] = {{ListKind::lf, {nullptr, "4 Hive: Lf list is only expected in V1.3 hive"}},
                 {ListKind::lh, {"4 Hive: Lh list is not expected in V1.3 hive", nullptr}},
                 {ListKind::li, {nullptr, "4 Hive: Li list (top level) is only expected in V1.3 hive"}},
                 {ListKind::riLf, {sublist, sublist}},
                 {ListKind::riLh, {sublist, nullptr}},
                 {ListKind::riLi, {nullptr, sublist}}};
    for (const auto& test : cases)
        for (const u32 count : {1u, 2u, 21u})
            for (const u32 minor : {3u, 5u}) {
                SCOPED_TRACE(testing::Message() << minor << " " << int(test.list) << " " << count);
                HiveBuilder builder(minor);
                builder.build(parentOf(count, test.list, {0, 1, 2, 0, 4}));
                const auto root = OpenedHive(builder).root();
                LogCapture logged;
                if (const char* refused = test.refused[minor / 5]) {
                    u32 position = 77;
                    EXPECT_FALSE(root->key(0) || root->binaryFindKey(text(u"k01"), &position));
                    EXPECT_EQ(position, NO_POSITION);
                    EXPECT_EQ(Platform::Error::get(), 0x2007u);
                    EXPECT_EQ(logged.count(refused), 2u) << "each lookup tries again: " << logged.text();
                } else {
                    expectAllFound(*root, count);
                    EXPECT_EQ(logged.text(), "");
                }
            }
}

TEST(Subkeys, BrokenListsAreRefused) {
    constexpr auto lh = ListKind::lh, lf = ListKind::lf, li = ListKind::li;
    constexpr auto riLh = ListKind::riLh, riLi = ListKind::riLi;
    constexpr auto nk = &LaidKey::record, top = &LaidKey::list;
    constexpr auto wrongTotal = "3 Hive: Wrong number of items in sublists of ri list";
    const struct {
        u32 minor;
        ListKind list;  // of four subkeys, two in a sublist
        u32 LaidKey::*cell;
        u32 at;
        std::vector<u8> damage;
        const char* logged;
    } cases[] = {
        {5, lh, nk, 32, numberBytes(NO_POSITION), ""},
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
        {5, riLh, nk, 24, numberBytes(NO_POSITION), wrongTotal},
        {3, riLi, nk, 24, numberBytes(5), wrongTotal},
        {3, riLi, nk, 24, numberBytes(3), "3 Hive: More items in li list than expected"},
        {5, riLh, top, 6, numberBytes(3, 2), "3 Hive: Size of items of ri list exceeds size of record"},
        {5, riLh, top, 12, numberBytes(0x7FFFFFF8), "3 Hive: Failed to load sub list of ri list: 7ffffff8h"},
        {5, riLh, top, 12, numberBytes(64), "3 Hive: Invalid list type for key sub list: nk"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << int(test.list) << " " << test.logged);
        HiveBuilder builder(test.minor);
        builder.build(parentOf(4, test.list, {2, 2}));
        ASSERT_EQ(builder.key().record, 64u);
        builder.poke(u64{builder.key().*test.cell} + test.at, test.damage);
        const OpenedHive opened(builder);
        const auto root = opened.root();
        LogCapture logged;
        const MemoryLimit limit;
        for (u32 index = 0; index < 3; ++index) {
            Platform::Error::set(0);
            EXPECT_FALSE(root->key(index));
            EXPECT_EQ(Platform::Error::get(), 0x2007u);
        }
        EXPECT_FALSE(root->key(text(u"k01")));
        EXPECT_EQ(Platform::Error::get(), 0x2007u);
        EXPECT_FALSE(root->linearFindKey(text(u"k01"), nullptr));
        EXPECT_TRUE(logged.contains(test.logged)) << logged.text();
    }
}

TEST(Subkeys, ListOfAKeyWithoutSubkeysIsNoFailure) {
    HiveBuilder builder;
    builder.build(parentOf(2, ListKind::lh));
    builder.poke32(builder.key().record + 24, 0);
    const auto root = OpenedHive(builder).root();
    LogCapture logged;
    EXPECT_TRUE(root->initSubkeys());
    expectAllFound(*root, 0);
    EXPECT_TRUE(logged.contains("More items in lh list than expected"));
}

TEST(Subkeys, UnreadableSubkeyStopsTheBinarySearchOnly) {
    HiveBuilder builder;
    builder.build(parentOf(5, ListKind::lh));
    builder.poke(builder.key(u"k05").record + 4, "xx");
    const OpenedHive opened(builder, HiveFile::modeReadOnly | HiveFile::modeLinearFallback);
    LogCapture logged;
    u32 position = 77;
    EXPECT_FALSE(opened.root()->binaryFindKey(text(u"k09"), &position));
    EXPECT_EQ(position, NO_POSITION);
    EXPECT_TRUE(logged.contains("3 Hive: Failed to open sub key for binary search. key: 2h"))
        << logged.text();
    EXPECT_TRUE(opened.root()->linearFindKey(text(u"k09"), &position));
    EXPECT_EQ(position, 4u);
    EXPECT_TRUE(logged.contains("3 Hive: Failed to get key with index: 2h")) << logged.text();
}

TEST(Subkeys, NamelessSubkeyMakesTheSearchLinearWhereAllowed) {
    HiveBuilder builder;
    builder.build(parentOf(5, ListKind::lh));
    builder.poke(builder.key(u"k05").record + 80, "\xE4");  // no ASCII
    for (const u32 modeBit : {0u, 0x8u, 0x10u, 0x80u}) {
        SCOPED_TRACE(modeBit);
        const OpenedHive opened(builder, HiveFile::modeReadOnly | modeBit, HiveFile::hiveCodepageAscii);
        LogCapture logged;
        const bool linear = modeBit >= 0x10;
        EXPECT_EQ(bool(opened.root()->key(text(u"K01"))), linear)
            << "lies in front of a name that is too low";
        EXPECT_TRUE(opened.root()->key(text(u"K09")));
        EXPECT_FALSE(opened.root()->key(text(u"k05")));
        EXPECT_EQ(Platform::Error::get(), 0x1003u);
        EXPECT_EQ(logged.contains("Can't get name of other key for binary search, using linear fallback"),
                  linear);
    }
}

/// Hashes are made of the bytes in the hive's code page; what has none there takes leniency.
TEST(Subkeys, HashesFollowTheCodePage) {
    HiveBuilder builder;
    builder.build({});
    SubkeyHash hash{};
    const auto cp1252 = OpenedHive(builder, HiveFile::modeReadOnly, HiveFile::hiveCodepageCp1252).root();
    EXPECT_TRUE(cp1252->makeHash(keyListLH, text(u"\u20ACa"), hash, true, false));
    EXPECT_EQ(hash.hash, 0x80u * 37 + 65);
    const auto latin1 = OpenedHive(builder).root();
    EXPECT_FALSE(latin1->makeHash(keyListLH, text(u"a\u00FF"), hash, true, false)) << "U+0178 in upper case";
    EXPECT_TRUE(latin1->makeHash(keyListLH, text(u"a\u00FF"), hash, true, true));
    EXPECT_EQ(hash.hash, 65u * 37);
}

}  // namespace
