// Objects that callers hold stay true while the keys under them come, go and move.

#include <random>
#include <set>

#include "tests/hive/keyops/freshhive.h"

using namespace HiveTest;

namespace {

constexpr u32 KEY_PARENT = 20;

Ref<KeyObj> create(const Ref<KeyObj>& parent, const char16_t* name) {
    return Platform::refCast<KeyObj>(parent->createKey(text(name)));
}

/// An enumeration under way: what it has given so far.
struct Walk {
    Ref<KeyIterator> iterator;
    std::set<std::string> due;   // there at its start and untouched since
    std::set<std::string> seen;  // given so far

    bool step() {
        const auto key = iterator->next();
        if (!key) return false;
        EXPECT_TRUE(seen.insert(utf8(key->name())).second) << utf8(key->name()) << " was given twice";
        return true;
    }
    void finish() {
        while (step()) continue;
        for (const std::string& name : due) EXPECT_TRUE(seen.count(name)) << name << " was left out";
    }
};

/// One parent with subkeys that never use a name twice, and a second one that keys move to and come from.
struct Crowd {
    explicit Crowd(u32 minor, u32 seed) : hive(minor), random(seed) {
        parent = create(hive.root, u"crowd");
        away = create(hive.root, u"away");
    }
    u32 below(u64 bound) { return static_cast<u32>(random() % bound); }
    Ref<String> freshName() {
        u32 number = below(1000000);
        while (!used.insert(number).second) number = below(1000000);
        return numbered(number);
    }
    Ref<Key> some(const Ref<KeyObj>& key) { return Ref<Key>(key->key(below(key->keys()))); }
    /// What happens to `key` takes it from what the walks must give.
    void touch(const Ref<Key>& key) {
        for (Walk& walk : walks) walk.due.erase(utf8(key->name()));
    }
    void change() {
        const u32 kind = below(10);
        if (kind < 4 || parent->keys() < 3) {
            ASSERT_TRUE(parent->createKey(freshName()));
        } else if (kind == 4 && away->keys() > 0) {
            ASSERT_TRUE(parent->move(some(away), freshName()));
        } else {
            const Ref<Key> key = some(parent);
            touch(key);
            ASSERT_TRUE(kind < 7 ? parent->deleteKey(key)
                                 : (kind == 7 ? away : parent)->move(key, freshName()));
        }
    }
    void start() {
        Walk walk{parent->keyIterator(), {}, {}};
        for (u32 i = 0; i < parent->keys(); ++i) walk.due.insert(utf8(parent->key(i)->name()));
        walks.push_back(std::move(walk));
    }

    FreshHive hive;
    std::mt19937 random;
    Ref<KeyObj> parent, away;
    std::set<u32> used;
    std::vector<Walk> walks;
};

TEST(LiveIterators, NeitherSkipNorRepeatUnderRandomChanges) {
    for (u32 seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        Crowd crowd(seed % 2 ? 3 : 5, seed);
        const u32 size = seed < 2 ? 1300 : 5 + seed;
        while (crowd.parent->keys() < size) crowd.parent->createKey(crowd.freshName());
        for (u32 i = 0; i < 3 * size + 60; ++i) {
            if (i % 40 == 0) crowd.start();
            crowd.change();
            for (u32 steps = crowd.below(3); steps > 0; --steps)
                crowd.walks[crowd.below(crowd.walks.size())].step();
        }
        for (Walk& walk : crowd.walks) {
            EXPECT_EQ(walk.iterator->count(), crowd.parent->keys());
            walk.finish();
        }
    }
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
            create(key, u"not held");
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
TEST(LiveKeys, DeletedAndReleasedObjectsStayGone) {
    for (const u32 minor : {3u, 5u}) {
        FreshHive hive(minor);
        const auto old = create(hive.root, u"key");
        const auto children = old->keyIterator();
        ASSERT_TRUE(hive.root->deleteKey(old));
        auto again = create(hive.root, u"key");
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
        EXPECT_FALSE(old->key(text(u"child")));
        EXPECT_FALSE(old->keyIterator());
        EXPECT_FALSE(children->next());
        EXPECT_FALSE(hive.root->deleteKey(old));
        EXPECT_TRUE(hive.file() == before) << "nothing of this reached the record's new owner";

        Platform::WeakRef<KeyObj> weak(again);
        EXPECT_EQ(weak.lock(), again);
        again.reset();
        EXPECT_FALSE(weak.lock());
        EXPECT_EQ(namesOf(Platform::refCast<KeyObj>(hive.root->key(text(u"key")))), "child ")
            << "built afresh";
        hive.expectSound();
    }
}

}  // namespace
