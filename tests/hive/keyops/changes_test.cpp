// Creating, deleting and moving keys: what is refused and with which error, and what the file holds
// afterwards.

#include <functional>

#include "regfile/util.h"
#include "tests/hive/keyops/freshhive.h"

using namespace HiveTest;

namespace {

constexpr u32 KEY_FLAGS = 6, KEY_STAMP = 8, KEY_SECURITY = 48, KEY_NAME_LENGTH = 76;
constexpr u32 SK_FLINK = 8, SK_USERS = 16;

template <typename Operation>
u32 errorOf(Operation operation) {
    Platform::Error::set(0);
    return operation() ? 0 : Platform::Error::get();
}

TEST(CreateKey, NamesOnDisk) {
    const struct {
        std::u16string name;
        u32 bytes, flags;
    } cases[] = {{std::u16string(255, u'x'), 255, 0x20},
                 {std::u16string(255, u'\u042F'), 510, 0},
                 {u"Stra\u00DFe/\\", 8, 0x20}};
    FreshHive hive(5);
    for (const auto& test : cases) {
        const auto key = Platform::refCast<KeyObj>(hive.root->createKey(text(test.name)));
        ASSERT_TRUE(key);
        EXPECT_EQ(hive.peek16(key->recordOfs() + KEY_NAME_LENGTH), test.bytes);
        EXPECT_EQ(hive.peek16(key->recordOfs() + KEY_FLAGS), test.flags);
        EXPECT_EQ(hive.peek32(key->recordOfs() + KEY_STAMP), 0u);
    }
    hive.expectSound();
}

/// A tree whose every part can be the wrong one: A/B/C with a value in B, D, and E whose list is broken.
struct Tree : HiveBuilder {
    explicit Tree(u32 minor) : HiveBuilder(minor) {
        build({.keys = {{.name = u"A",
                         .keys = {{.name = u"B", .values = {{.name = u"v"}}, .keys = {{.name = u"C"}}}}},
                        {.name = u"D", .keys = {{.name = u"b"}}},
                        {.name = u"E", .keys = {{.name = u"x"}}},
                        {.name = u"F", .keys = {{.name = u"m"}}}}});
        poke(key(u"E").list + 4, "zz");
        poke(key(u"F/m").record + 4, "zz");
    }
};

/// Each refusal is asked for in the presence of the reasons that are checked after it, leaves its code, and
/// changes not one byte.
TEST(Changes, RefusalsComeInOrderAndLeaveTheFileAlone) {
    const auto longName = text(std::u16string(256, u'n')), name = text(u"n"), none = Ref<String>();
    for (const u32 minor : {3u, 5u}) {
        Tree tree(minor), other(minor), frozen(minor);
        FreshHive hive(tree), foreign(other);
        const OpenedHive readOnly(frozen);
        const auto key = [&](const char16_t* path) { return hive.key(path); };
        const auto a = key(u"A"), b = key(u"A/B"), c = key(u"A/B/C"), d = key(u"D"), e = key(u"E"),
                   f = key(u"F");
        const auto deleted = Platform::refCast<KeyObj>(d->createKey(text(u"gone")));
        ASSERT_TRUE(d->deleteKey(deleted));
        const struct {
            const char* what;
            u32 error;
            std::function<bool()> operation;
            const char* logged = "";
        } cases[] = {
            {"create, read-only", 0x1000, [&] { return bool(readOnly.root()->createKey(none)); }},
            {"create, no name", 0x8445, [&] { return bool(e->createKey(none)); }},
            {"create, broken list", 0x2007, [&] { return bool(e->createKey(longName)); }},
            {"create, long name", 0x1006, [&] { return bool(f->createKey(longName)); }},
            {"create, broken search", 0x200D, [&] { return bool(f->createKey(name)); }},
            {"create, there already", 0x1005, [&] { return bool(hive.root->createKey(text(u"a"))); }},
            {"create, no bytes for the hash", 0x200A,
             [&] { return bool(d->createKey(text(minor == 3 ? u"\u0178" : u"\u00FF"))); }},
            {"delete, read-only", 0x1000, [&] { return readOnly.root()->deleteKey(nullptr); }},
            {"delete, no key", 0x8446, [&] { return a->deleteKey(nullptr); }},
            {"delete, has both, of another parent", 0x1010, [&] { return d->deleteKey(b); }},
            {"delete, deleted before", 0x1010, [&] { return d->deleteKey(deleted); }},
            {"delete, of another parent", 0x8446, [&] { return a->deleteKey(c); }},
            {"move, read-only", 0x1000, [&] { return readOnly.root()->move(Ref<Key>(), none); }},
            {"move, no key", 0x8446, [&] { return e->move(Ref<Key>(), name); }},
            {"move, another hive's root", 0x8446, [&] { return e->move(Ref<Key>(foreign.root), name); },
             "3 Hive: Attempt to move a key form a different hive\n"},
            {"move, root", 0x100F, [&] { return e->move(Ref<Key>(hive.root), name); },
             "3 Hive: Attempt to move root key\n"},
            {"move, below itself", 0x100E, [&] { return c->move(Ref<Key>(a), name); },
             "3 Hive: Nested move\n"},
            {"move, into a broken list", 0x100A, [&] { return e->move(Ref<Key>(a), longName); }},
            {"move, broken search", 0x200E, [&] { return f->move(Ref<Key>(a), name); }},
            {"move, name taken", 0x100C, [&] { return d->move(Ref<Key>(c), text(u"B")); }},
            {"rename, only the case", 0x100C, [&] { return a->move(Ref<Key>(b), text(u"b")); }},
            {"move, long name", 0x1006, [&] { return d->move(Ref<Key>(a), longName); }},
            {"move, broken key", 0x2007, [&] { return d->move(Ref<Key>(e), name); }},
        };
        const std::vector<u8> before = hive.file();
        for (const auto& test : cases) {
            LogCapture logged(3);
            EXPECT_EQ(errorOf(test.operation), test.error) << test.what;
            EXPECT_TRUE(logged.contains(test.logged)) << logged.text();
            EXPECT_TRUE(hive.file() == before) << test.what;
        }
    }
}

/// Two security records, one used by the root and A, the other by B.
TEST(Security, RecordsCountTheirKeys) {
    for (const u32 minor : {3u, 5u}) {
        HiveBuilder builder(minor);
        builder.setDescriptors({patternBytes(20), patternBytes(40)});
        builder.build({.keys = {{.name = u"A"}, {.name = u"B", .security = 1}}});
        const u32 first = builder.security()[0], second = builder.security()[1];
        FreshHive hive(builder);
        const auto expectUsers = [&](u32 ofFirst, u32 ofSecond) {
            EXPECT_EQ(hive.peek32(first + SK_USERS), ofFirst);
            EXPECT_EQ(hive.peek32(second + SK_USERS), ofSecond);
            hive.expectSound();
        };
        const auto a = hive.key(u"A"), b = hive.key(u"B");
        Ref<KeyObj> below;
        for (u32 i = 0; i < 50; ++i) below = Platform::refCast<KeyObj>(b->createKey(numbered(i)));
        EXPECT_TRUE(below->createKey(text(u"deep")));
        EXPECT_EQ(hive.peek32(below->recordOfs() + KEY_SECURITY), second);
        expectUsers(2, 52);
        EXPECT_TRUE(a->move(Ref<Key>(below), text(u"moved")));
        EXPECT_TRUE(below->createKey(text(u"inherits from where it came"))) << "its record names the second";
        expectUsers(2, 53);
        for (u32 i = 0; i < 49; ++i) EXPECT_TRUE(b->deleteKey(b->key(numbered(i))));
        EXPECT_TRUE(hive.root->deleteKey(b));
        expectUsers(2, 3);
        EXPECT_TRUE(Util::recursiveKeyDelete(Ref<Key>(a), Ref<Key>(below)));
        expectUsers(2, 0);
        EXPECT_EQ(hive.peek32(first + SK_FLINK), second) << "a record without users stays in the ring";
    }
}

/// A broken security record leaves a log line and never stops a key from coming or going.
TEST(Security, BrokenRecordsOnlyLeaveALogLine) {
    const auto number = [](u32 offset, u32 value) {
        return [=](HiveBuilder& builder) { builder.poke32(builder.security()[0] + offset, value); };
    };
    const struct {
        const char* logged;  // twice: when the key comes and when it goes
        std::function<void(HiveBuilder&)> damage;
        u32 users;  // in the file at the end
    } cases[] = {
        {"", number(SK_USERS, 0), 0},
        {"", number(SK_FLINK, 0), 1},
        {"3 Hive: invalid type for security record: zk\n",
         [](HiveBuilder& builder) { builder.poke(builder.security()[0] + 4, "z"); }, 1},
        {"3 Hive: too small security record with size: 10h (16)\n",
         [&](HiveBuilder& builder) {
             number(0, 0u - 16)(builder);
             number(16, 0u - 16)(builder);  // the rest of the cell is one of its own
         },
         0u - 16},
        {"security record not found: 7ffffff8h",
         [](HiveBuilder& builder) { builder.poke32(builder.key().record + KEY_SECURITY, 0x7FFFFFF8); }, 1},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.logged);
        HiveBuilder builder;
        builder.build({});
        test.damage(builder);
        FreshHive hive(builder);
        LogCapture logged(3);
        const auto key = hive.root->createKey(text(u"k"));
        ASSERT_TRUE(key && hive.root->deleteKey(key));
        if (*test.logged)
            EXPECT_EQ(logged.count(test.logged), 2u) << logged.text();
        else
            EXPECT_EQ(logged.text(), "");
        EXPECT_EQ(hive.peek32(builder.security()[0] + SK_USERS), test.users);
    }
    HiveBuilder builder;
    builder.build({.keys = {{.name = u"k"}}});
    builder.poke32(builder.security()[0] + SK_USERS, 0);
    for (const u32 cell : {builder.security()[0], 0u, HiveImage::NONE}) {
        builder.poke32(builder.key(u"k").record + KEY_SECURITY, cell);
        FreshHive hive(builder);
        LogCapture logged(3);
        EXPECT_TRUE(hive.root->deleteKey(hive.root->key(text(u"k"))));
        EXPECT_EQ(logged.count("security record ref counter is already zero, record: "),
                  cell + 1 > 1 ? 1u : 0u);
        EXPECT_EQ(hive.peek32(builder.security()[0] + SK_USERS), 0u) << "a count of 0 stays 0";
    }
}

}  // namespace
