// Whole branches: deep ones deleted, paths created, and the new hive they begin in.

#include <pthread.h>

#include <functional>

#include "regfile/util.h"
#include "tests/hive/keyops/freshhive.h"
#include "tests/support/failingstripe.h"

using namespace HiveTest;

namespace {

TEST(Trees, GoNoDeeperThanTheyCanBeReadBack) {
    for (const u32 minor : {3u, 5u}) {
        FreshHive hive(minor);
        Ref<Key> key(hive.root);
        for (u32 depth = 1; depth <= KeyObj::MAX_KEY_DEPTH; ++depth) {
            key = key->createKey(numbered(depth));
            ASSERT_TRUE(key) << depth;
        }
        const std::vector<u8> before = hive.file();
        Platform::Error::set(0);
        EXPECT_FALSE(key->createKey(text(u"513")));
        EXPECT_EQ(Platform::Error::get(), 0x1018u);
        key.reset();
        hive.reopen();
        const auto top = hive.root->key(numbered(1));
        EXPECT_EQ(hiveFaults(before), std::vector<std::string>());
        u64 deleted = 0;
        EXPECT_TRUE(Util::recursiveKeyDelete(Ref<Key>(hive.root), top, &deleted));
        EXPECT_EQ(deleted, 512u);
        EXPECT_EQ(hive.root->keys(), 0u);
        hive.expectSound();
    }
}

/// A branch that would reach below the deepest level stays where it is: nobody could read its lower part.
/// On a small stack: deleting goes down levels, never along subkeys.
TEST(Trees, WideKeyIsDeletedInBoundedStack) {
    FreshHive hive(5);
    const auto wide = hive.root->createKey(text(u"wide"));
    for (u32 i = 0; i < 100000; ++i) ASSERT_TRUE(wide->createKey(numbered(i)));
    u64 deleted = 0;
    std::function<void()> work = [&] { Util::recursiveKeyDelete(Ref<Key>(hive.root), wide, &deleted); };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 2 << 20);
    pthread_t thread;
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(deleted, 100001u);
    hive.expectSound();
}

TEST(Trees, BranchesMoveOnlyWhereTheyFit) {
    FreshHive hive(5);
    Ref<Key> deep(hive.root);
    for (u32 depth = 1; depth < KeyObj::MAX_KEY_DEPTH - 1; ++depth) deep = deep->createKey(numbered(depth));
    const auto branch = hive.root->createKey(text(u"branch")), child = branch->createKey(text(u"child"));
    const auto grandchild = child->createKey(text(u"grandchild"));
    const std::vector<u8> before = hive.file();
    Platform::Error::set(0);
    EXPECT_FALSE(deep->move(branch, text(u"moved")));
    EXPECT_EQ(Platform::Error::get(), 0x1018u);
    EXPECT_TRUE(hive.file() == before);
    EXPECT_TRUE(deep->move(child, text(u"moved"))) << "two levels fit";
    EXPECT_FALSE(grandchild->createKey(text(u"too deep"))) << "it lies at the deepest level now";
}

TEST(Trees, PathsAreCreatedAsFarAsTheyCan) {
    const std::u16string tooLong(256, u'x');
    const struct {
        std::u16string path;
        const char16_t* last;  // name of the key given; null when it fails
        u32 error;
        const char16_t* left;  // a path that is there afterwards
        const char* logged;
    } cases[] = {
        {u"a/b/c", u"c", 0, u"a/b/c", ""},
        {u"//A//b/", u"b", 0, u"a/b", ""},
        {u"", nullptr, 0x8446, u"a", ""},
        {u"a/b/n/" + tooLong, nullptr, 0x8443, u"a/b/n", " in key n\n"},
        {u"p/q/r/" + tooLong, nullptr, 0x8443, u"p/q/r", "Failed to remove key q of key p for cleanup\n"},
        {u"broken/x", nullptr, 0x8443, u"broken", ""},
    };
    HiveBuilder builder;
    builder.build({.keys = {{.name = u"broken", .keys = {{.name = u"x"}}}}});
    builder.poke(builder.key(u"broken").list + 4, "zz");
    FreshHive hive(builder);
    const Ref<Key> root(hive.root);
    for (const auto& test : cases) {
        SCOPED_TRACE(utf8(text(test.path)).substr(0, 20));
        LogCapture logged(4);
        Platform::Error::set(0);
        const auto key = Util::openOrCreatePath(root, text(test.path));
        ASSERT_EQ(bool(key), test.last != nullptr);
        EXPECT_EQ(utf8(key ? key->name() : nullptr), test.last ? utf8(text(test.last)) : "(null)");
        EXPECT_TRUE(key || Platform::Error::get() == test.error) << Platform::Error::get();
        EXPECT_TRUE(logged.contains(test.logged)) << logged.text();
        EXPECT_TRUE(Util::openPath(root, text(test.left)));
    }
    EXPECT_FALSE(Util::openOrCreatePath(root, nullptr));
    EXPECT_EQ(Platform::Error::get(), 0x8445u);
}

TEST(Trees, RecursiveDeleteStopsAtTheFirstFailure) {
    HiveBuilder builder;
    builder.build(
        {.keys = {{.name = u"k",
                   .values = {{.name = u"v"}},
                   .keys = {{.name = u"a"}, {.name = u"b", .keys = {{.name = u"x"}}}, {.name = u"c"}}}}});
    builder.poke(builder.key(u"k/b").list + 4, "zz");
    FreshHive hive(builder);
    const auto key = hive.key(u"k");
    LogCapture logged(1);
    u64 deleted = 0;
    EXPECT_FALSE(Util::recursiveKeyDelete(Ref<Key>(hive.root), Ref<Key>(key), &deleted));
    EXPECT_EQ(deleted, 1u);
    EXPECT_EQ(namesOf(key), "b c ");
    EXPECT_TRUE(key->value(text(u"v")));
    EXPECT_TRUE(logged.contains("3 HiveUtil: Failed to delete key: b\n1 HiveUtil: Error: 1010h"))
        << logged.text();
    EXPECT_TRUE(logged.contains("1 HiveUtil: Failed to recursive delete key: b of parent: k\n"));
}

TEST(CreateHive, IsEmptyAndSoundInBothVersions) {
    const std::u16string path = u"/a/path/that/is/longer/than/the/field/system.hive";
    for (const u32 minor : {3u, 5u})
        for (const auto& name : {text(path), text(u"short"), text(u""), Ref<String>()}) {
            const auto store = Platform::makeRef<MemoryStripe>();
            const auto hive = HiveFile::create(Ref<Interfaces::Stripe>(store), minor, 0,
                                               HiveFile::hiveCodepageLatin1, name);
            ASSERT_TRUE(hive);
            EXPECT_EQ(hiveFaults(store->bytes()), std::vector<std::string>()) << "written before any flush";
            const auto header = hive->header();
            EXPECT_EQ(header.majorVersion, 1u);
            EXPECT_EQ(header.minorVersion, minor);
            EXPECT_EQ(header.primarySequence, header.secondarySequence);
            EXPECT_GT(header.lastWritten, u64{0x01D00000} << 32) << "the stamp is not of this century";
            const u64 tail = name && name->length() > 31 ? name->length() - 31 : 0;
            EXPECT_EQ(utf8(header.fileName), name ? utf8(name->sub(tail)) : "");
            const auto walk = hive->securityDescriptorIterator();
            EXPECT_EQ(walk->next()->users(), 1u);
            EXPECT_FALSE(walk->next());
            EXPECT_EQ(hive->root()->keyIterator()->count() + hive->root()->valueIterator()->count(), 0u);
        }
}

TEST(CreateHive, Refusals) {
    const struct {
        const char* what;
        Ref<MemoryStripe> store;
        u32 minor, mode, error;
    } cases[] = {
        {"no store", nullptr, 4, HiveFile::modeReadOnly, 0x8445},
        {"wide elements", Platform::makeRef<MemoryStripe>(std::vector<u8>(), 2u), 4, 1, 0x10002},
        {"version 1.4", Platform::makeRef<MemoryStripe>(), 4, 0, 0x8446},
        {"not empty", Platform::makeRef<MemoryStripe>(std::vector<u8>(1)), 5, 0, 0x8446},
        {"read-only", Platform::makeRef<MemoryStripe>(), 5, HiveFile::modeReadOnly, 0x8446},
        {"unsafe", Platform::makeRef<MemoryStripe>(), 5, HiveFile::modeUnsafe, 0x8446},
    };
    const auto create = [](const Ref<Interfaces::Stripe>& store, u32 minor, u32 mode) {
        return HiveFile::create(store, minor, mode, HiveFile::hiveCodepageLatin1, nullptr);
    };
    for (const auto& test : cases) {
        EXPECT_FALSE(create(Ref<Interfaces::Stripe>(test.store), test.minor, test.mode)) << test.what;
        EXPECT_EQ(Platform::Error::get(), test.error) << test.what;
        EXPECT_TRUE(!test.store || test.store->bytes().size() < 2) << test.what << " was written to";
    }
    const auto full = Platform::makeRef<MemoryStripe>();
    full->setMaxElementCount(8000);
    EXPECT_FALSE(create(Ref<Interfaces::Stripe>(full), 5, 0));
    EXPECT_EQ(Platform::Error::get(), 0x1002u);
    for (const u32 kind : {FailingStripe::seeks, FailingStripe::writes, FailingStripe::shortWrites}) {
        const auto failing =
            Platform::makeRef<FailingStripe>(Ref<Interfaces::Stripe>(Platform::makeRef<MemoryStripe>()));
        failing->failAt(0, kind);
        EXPECT_FALSE(create(Ref<Interfaces::Stripe>(failing), 5, 0)) << kind;
    }
}

}  // namespace
