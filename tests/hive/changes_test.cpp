// Creating, deleting and moving keys: what is refused and with which error, and what the file and the objects
// that callers hold are like afterwards.

#include <functional>

#include "regfile/util.h"
#include "tests/hive/openedhive.h"

using namespace HiveTest;

namespace {

constexpr u32 KEY_STAMP = 8, KEY_SECURITY = 48;
constexpr u32 SK_FLINK = 8, SK_USERS = 16;
constexpr u32 WRITABLE = HiveFile::modeReadWrite;

Ref<KeyObj> create(const Ref<Key>& parent, std::u16string_view name) {
    return refCast<KeyObj>(parent->createKey(text(name)));
}

/// A tree whose every part can be the wrong one: A/B/C with a value in B, D, E whose list is broken, and F
/// with a broken subkey.
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
    const Ref<Key> noKey;
    for (const u32 minor : {3u, 5u}) {
        Tree tree(minor);
        OpenedHive hive(tree, WRITABLE), foreign(tree), readOnly(tree);
        const auto key = [&](const char16_t* path) { return Ref<Key>(hive.key(path)); };
        const auto a = key(u"A"), b = key(u"A/B"), c = key(u"A/B/C"), d = key(u"D"), e = key(u"E"),
                   f = key(u"F"), top = Ref<Key>(hive.root), other = Ref<Key>(foreign.root),
                   fixed = Ref<Key>(readOnly.root);
        const auto gone = d->createKey(text(u"gone"));
        ASSERT_TRUE(d->deleteKey(gone));
        const auto hashless = text(minor == 3 ? u"\u0178" : u"\u00FF");
        const struct {
            const char* what;
            u32 error;
            std::function<bool()> operation;
            const char* logged = "";
        } cases[] = {
            {"create, read-only", 0x1000, [&] { return bool(fixed->createKey(none)); }},
            {"create, no name", 0x8445, [&] { return bool(e->createKey(none)); }},
            {"create, broken list", 0x2007, [&] { return bool(e->createKey(longName)); }},
            {"create, long name", 0x1006, [&] { return bool(f->createKey(longName)); }},
            {"create, broken search", 0x200D, [&] { return bool(f->createKey(name)); }},
            {"create, there already", 0x1005, [&] { return bool(top->createKey(text(u"a"))); }},
            {"create, no bytes for the hash", 0x200A, [&] { return bool(d->createKey(hashless)); }},
            {"delete, read-only", 0x1000, [&] { return fixed->deleteKey(nullptr); }},
            {"delete, no key", 0x8446, [&] { return a->deleteKey(nullptr); }},
            {"delete, has both, of another parent", 0x1010, [&] { return d->deleteKey(b); }},
            {"delete, deleted before", 0x1010, [&] { return d->deleteKey(gone); }},
            {"delete, of another parent", 0x8446, [&] { return a->deleteKey(c); }},
            {"move, read-only", 0x1000, [&] { return fixed->move(noKey, none); }},
            {"move, no key", 0x8446, [&] { return e->move(noKey, name); }},
            {"move, another hive's root", 0x8446, [&] { return e->move(other, name); },
             "3 Hive: Attempt to move a key form a different hive\n"},
            {"move, root", 0x100F, [&] { return e->move(top, name); }, "3 Hive: Attempt to move root key\n"},
            {"move, below itself", 0x100E, [&] { return c->move(a, name); }, "3 Hive: Nested move\n"},
            {"move, into a broken list", 0x100A, [&] { return e->move(a, longName); }},
            {"move, broken search", 0x200E, [&] { return f->move(a, name); }},
            {"move, name taken", 0x100C, [&] { return d->move(c, text(u"B")); }},
            {"rename, only the case", 0x100C, [&] { return a->move(b, text(u"b")); }},
            {"move, long name", 0x1006, [&] { return d->move(a, longName); }},
            {"move, broken key", 0x2007, [&] { return d->move(e, name); }},
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
TEST(SecurityCounts, FollowTheKeys) {
    HiveBuilder builder;
    builder.setDescriptors({patternBytes(20), patternBytes(40)});
    builder.build({.keys = {{.name = u"A"}, {.name = u"B", .security = 1}}});
    const u32 first = builder.security()[0], second = builder.security()[1];
    OpenedHive hive(builder, WRITABLE);
    const auto expectUsers = [&](u32 ofFirst, u32 ofSecond) {
        EXPECT_EQ(hive.peek32(first + SK_USERS), ofFirst);
        EXPECT_EQ(hive.peek32(second + SK_USERS), ofSecond);
        hive.expectSound();
    };
    const auto a = hive.key(u"A"), b = hive.key(u"B"), below = create(b, u"below");
    EXPECT_TRUE(create(below, u"deep"));
    EXPECT_EQ(hive.peek32(below->recordOfs() + KEY_SECURITY), second);
    EXPECT_EQ(hive.peek32(below->recordOfs() + KEY_STAMP), 0u);
    expectUsers(2, 3);
    EXPECT_TRUE(a->move(Ref<Key>(below), text(u"moved")));
    EXPECT_TRUE(create(below, u"inherits from where it came")) << "its record names the second";
    EXPECT_TRUE(hive.root->deleteKey(b));
    expectUsers(2, 3);
    EXPECT_TRUE(Util::recursiveKeyDelete(Ref<Key>(a), Ref<Key>(below)));
    expectUsers(2, 0);
    EXPECT_EQ(hive.peek32(first + SK_FLINK), second) << "a record without users stays in the ring";
}

/// A broken security record leaves a log line and never stops a key from coming or going.
TEST(SecurityCounts, BrokenRecordsOnlyLeaveALogLine) {
    const struct {
        const char* logged;  // when the key comes and when it goes
        u64 lines;
        std::vector<std::pair<u32, u32>> damage;  // of words of the record
        u32 field;                                // of the key's record; 0: as it is
        u32 users;                                // in the file at the end
    } cases[] = {
        {"3 Hive", 0, {{SK_USERS, 0}}, 0, 0},
        {"3 Hive", 0, {{SK_FLINK, 0}}, 0, 1},
        {"3 Hive: invalid type for security record: zk\n", 2, {{4, 'z' | 'k' << 8}}, 0, 1},
        {"3 Hive: too small security record with size: 10h (16)\n",
         2,  // the rest is a cell of its own
         {{0, 0u - 16}, {16, 0u - 16}},
         0,
         0u - 16},
        {"security record not found: 7ffffff8h", 2, {}, 0x7FFFFFF8, 1},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.logged);
        HiveBuilder builder;
        builder.build({});
        for (const auto& [at, word] : test.damage) builder.poke32(builder.security()[0] + at, word);
        if (test.field) builder.poke32(builder.key().record + KEY_SECURITY, test.field);
        OpenedHive hive(builder, WRITABLE);
        LogCapture logged(3);
        const auto key = hive.root->createKey(text(u"k"));
        ASSERT_TRUE(key && hive.root->deleteKey(key));
        EXPECT_EQ(logged.count(test.logged), test.lines) << logged.text();
        EXPECT_EQ(hive.peek32(builder.security()[0] + SK_USERS), test.users);
    }
    HiveBuilder builder;
    builder.build({.keys = {{.name = u"k"}}});
    builder.poke32(builder.security()[0] + SK_USERS, 0);
    for (const u32 cell : {builder.security()[0], 0u, HiveImage::NONE}) {
        builder.poke32(builder.key(u"k").record + KEY_SECURITY, cell);
        OpenedHive hive(builder, WRITABLE);
        LogCapture logged(3);
        EXPECT_TRUE(hive.root->deleteKey(hive.root->key(text(u"k"))));
        EXPECT_EQ(logged.count("security record ref counter is already zero, record: "),
                  cell + 1 > 1 ? 1u : 0u);
        EXPECT_EQ(hive.peek32(builder.security()[0] + SK_USERS), 0u) << "a count of 0 stays 0";
    }
}

/// A key that moves is written anew when its name no longer fits; everything that knew it must go along.
TEST(LiveKeys, MovedKeyTakesAllBelowAlong) {
    for (const u32 length : {1u, 6u, 255u}) {  // shorter, as long, and longer than its cell
        OpenedHive hive(5);
        const auto to = create(hive.root, u"to"), key = create(hive.root, u"moving");
        const auto held = create(key, u"held"), below = create(held, u"below");
        const u32 oldRecord = key->recordOfs();
        const std::u16string name(length, u'n');
        ASSERT_TRUE(to->move(Ref<Key>(key), text(name)));
        EXPECT_EQ(key->recordOfs() != oldRecord, length == 255);
        EXPECT_EQ(key->parent(), to);
        // Each of these writes a whole key record from memory.
        EXPECT_TRUE(key->createValue(text(u"v"), Value::valueString) && create(held, u"new"));
        EXPECT_TRUE(below->createValue(text(u"v"), Value::valueString));
        hive.expectSound();
        EXPECT_EQ(hive.key(u"to/" + name + u"/held/below"), below) << "held keys stay the same objects";
    }
}

/// A deleted key's object never comes back, not even when its name is used again.
TEST(LiveKeys, DeletedObjectsStayGone) {
    OpenedHive hive(5);
    const auto old = create(hive.root, u"key");
    const auto children = old->keyIterator();
    ASSERT_TRUE(hive.root->deleteKey(old));
    const auto again = create(hive.root, u"key");
    EXPECT_NE(again, old);
    EXPECT_EQ(hive.root->key(text(u"key")), again);
    ASSERT_TRUE(create(again, u"child"));
    const std::vector<u8> before = hive.file();
    EXPECT_FALSE(old->valid() || old->name() || old->createKey(text(u"x")) || children->next());
    EXPECT_TRUE(old->readOnly());
    EXPECT_FALSE(old->createValue(text(u"x"), Value::valueString) || old->move(Ref<Key>(again), text(u"x")));
    EXPECT_FALSE(again->move(Ref<Key>(old), text(u"x")) || hive.root->deleteKey(old));
    EXPECT_TRUE(hive.file() == before) << "nothing of this reached the record's new owner";
    const Platform::WeakRef<KeyObj> weak(hive.root);
    EXPECT_EQ(hive.hive->root().get(), hive.root.get());
    hive.root.reset();
    EXPECT_TRUE(weak.lock()) << "kept by the key below it";
}

}  // namespace
