// Objects that callers hold stay true while the keys under them come, go and move.

#include "tests/hive/keyops/freshhive.h"

using namespace HiveTest;

namespace {

constexpr u32 KEY_PARENT = 20;

Ref<KeyObj> create(const Ref<KeyObj>& parent, const char16_t* name) {
    return Platform::refCast<KeyObj>(parent->createKey(text(name)));
}

/// A moved key is written anew when its name no longer fits; everything that knew it must go along.
TEST(LiveKeys, MovedKeyServesItsNewNameAndParent) {
    for (const u32 minor : {3u, 5u})
        for (const u32 length : {1u, 6u, 255u}) {  // shorter, as long, and longer than its cell
            SCOPED_TRACE(testing::Message() << "1." << minor << " " << length);
            FreshHive hive(minor);
            const auto from = create(hive.root, u"from"), to = create(hive.root, u"to");
            const auto key = create(from, u"moving");
            create(from, u"next to it in the file");
            const auto held = create(key, u"held"), below = create(held, u"below");
            const u32 oldRecord = key->recordOfs();
            const std::u16string name(length, u'n');
            ASSERT_TRUE(to->move(Ref<Key>(key), text(name)));
            EXPECT_EQ(key->recordOfs() != oldRecord, length == 255);
            EXPECT_EQ(utf8(key->name()), utf8(text(name)));
            EXPECT_EQ(key->parent(), to);
            EXPECT_EQ(to->key(text(name)), key);
            EXPECT_FALSE(from->key(text(u"moving")));
            EXPECT_EQ(held->parent(), key);
            EXPECT_EQ(key->key(text(u"held")), held) << "children that are held stay the same objects";
            // Each of these writes a whole key record from memory.
            EXPECT_TRUE(key->createValue(text(u"v"), Value::valueString));
            EXPECT_TRUE(create(held, u"new"));
            EXPECT_TRUE(below->createValue(text(u"v"), Value::valueString));
            EXPECT_EQ(hive.peek32(held->recordOfs() + KEY_PARENT), key->recordOfs());
            hive.expectSound();
            ASSERT_TRUE(from->move(Ref<Key>(key), text(u"back")));
            EXPECT_EQ(hive.key(u"from/back/held/below"), below);
            hive.expectSound();
        }
}

/// A deleted key's object never comes back, not even when its name is used again.
TEST(LiveKeys, RootIsOneObjectWhileAnybodyHoldsIt) {
    FreshHive hive(3);
    Platform::WeakRef<KeyObj> weak(hive.root);
    EXPECT_EQ(hive.hive->root().get(), hive.root.get());
    hive.root.reset();
    EXPECT_FALSE(weak.lock());
    EXPECT_TRUE(hive.hive->root());
}

TEST(LiveKeys, DeletedObjectsStayGone) {
    for (const u32 minor : {3u, 5u}) {
        FreshHive hive(minor);
        const auto old = create(hive.root, u"key");
        const auto children = old->keyIterator();
        ASSERT_TRUE(hive.root->deleteKey(old));
        const auto again = create(hive.root, u"key");
        EXPECT_NE(again, old);
        EXPECT_EQ(hive.root->key(text(u"key")), again);
        ASSERT_TRUE(create(again, u"child"));
        const std::vector<u8> before = hive.file();
        EXPECT_FALSE(old->valid());
        EXPECT_TRUE(old->readOnly());
        EXPECT_FALSE(old->name());
        EXPECT_FALSE(old->createKey(text(u"x")));
        EXPECT_FALSE(old->createValue(text(u"x"), Value::valueString));
        EXPECT_FALSE(old->move(Ref<Key>(again), text(u"x")));
        EXPECT_FALSE(again->move(Ref<Key>(old), text(u"x")));
        EXPECT_FALSE(children->next());
        EXPECT_FALSE(hive.root->deleteKey(old));
        EXPECT_TRUE(hive.file() == before) << "nothing of this reached the record's new owner";
        hive.expectSound();
    }
}

}  // namespace
