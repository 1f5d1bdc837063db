// Whole lists and branches: the shapes of long lists, deep branches, paths, and the new hive they begin in.

#include <pthread.h>

#include <functional>

#include "hive/security/securitydescriptoriteratorobj.h"
#include "regfile/util.h"
#include "tests/hive/openedhive.h"
#include "tests/support/failingstripe.h"

using namespace HiveTest;

namespace {

/// One list record as the file has it: "lh3", or "ri lh600 lh601"; "" for none.
std::string shapeAt(OpenedHive& hive, u32 list) {
    if (list == 0 || list == HiveImage::NONE) return "";
    const u32 head = hive.peek32(list + 4), count = head >> 16;
    std::string shape{static_cast<char>(head), static_cast<char>(head >> 8)};
    if (shape != "ri") return shape + std::to_string(count);
    for (u32 i = 0; i < count; ++i) shape.append(" ").append(shapeAt(hive, hive.peek32(list + 8 + 4 * i)));
    return shape;
}

/// That the right keys are in the list, and in order, is checked by the soundness of the file.
TEST(ListShapes, GrowSplitAndShrink) {
    constexpr u32 root = 32, keyCount = root + 24, listField = root + 32;  // of a new hive
    struct Step {
        bool come;
        int from, to, by;        // keys of these numbers come or go
        std::vector<int> lists;  // entries of each list record afterwards
    };
    for (const auto& [minor, kind, most] : {std::tuple(3u, "li", 900), {5u, "lh", 1200}}) {
        const int half = most / 2;
        const std::vector<Step> cases[] = {
            {{true, 0, 400, 1, {400}},
             {true, 400, 401, 1, {401}},
             {false, 0, 401, 1, {}},
             {true, 3, 4, 1, {1}}},
            // At the end; then the list in the middle goes, the last and the first.
            {{true, 0, most, 1, {most}},
             {true, most, most + 1, 1, {half, half + 1}},
             {true, most + 1, 3 * half, 1, {half, most}},
             {true, 3 * half, 3 * half + 1, 1, {half, half, half + 1}},
             {false, half, most - 1, 1, {half, 1, half + 1}},
             {false, most - 1, most, 1, {half, half + 1}},
             {false, 3 * half, most, -1, {half, 1}},
             {false, most, most - 1, -1, {half}},
             {false, 0, half, 1, {}}},
            // At the front; then the first list goes.
            {{true, 5000, 5000 - most, -1, {most}},
             {true, 5000 - most, 4999 - most, -1, {half + 1, half}},
             {true, 4999 - most, 5000 - 3 * half, -1, {most, half}},
             {true, 5000 - 3 * half, 4999 - 3 * half, -1, {half + 1, half, half}},
             {false, 5000 - 3 * half, 5001 - most, 1, {half, half}}},
            // An entry for the border between two sublists goes to the end of the first, also right after a
            // split.
            {{true, 0, 10 * most, 10, {most}},
             {true, 10 * half - 5, 10 * half - 4, 1, {half + 1, half}},
             {true, 10 * half - 4, 10 * half - 3, 1, {half + 2, half}},
             {true, 10 * half + 1, 10 * half + 2, 1, {half + 2, half + 1}},
             {true, 3, 10 * half - 17, 10, {most, half + 1}},
             {true, 10 * half - 6, 10 * half - 5, 1, {half, half + 1, half + 1}}},
        };
        for (const auto& steps : cases)
            for (const bool reopened : {false, true}) {
                OpenedHive hive(minor);
                u32 count = 0;
                for (const Step& step : steps) {
                    SCOPED_TRACE(testing::Message() << "1." << minor << " " << step.from << " " << step.to);
                    for (int i = step.from; i != step.to; i += step.by, count += step.come ? 1 : 0u - 1) {
                        const auto name = numbered(static_cast<u32>(i));
                        ASSERT_TRUE(step.come ? bool(hive.root->createKey(name))
                                              : hive.root->deleteKey(hive.root->key(name)));
                    }
                    const bool hints = minor == 3 && step.lists.size() == 1 && step.lists[0] <= 400;
                    std::string shape = step.lists.size() > 1 ? "ri" : "";
                    for (const int entries : step.lists)
                        shape += (shape.empty() ? "" : " ") + std::string(hints ? "lf" : kind) +
                                 std::to_string(entries);
                    EXPECT_EQ(shapeAt(hive, hive.peek32(listField)), shape);
                    EXPECT_EQ(hive.peek32(keyCount), count);
                    EXPECT_TRUE(count || hive.peek32(listField) == 0);
                    hive.expectSound();
                    if (reopened) hive.reopen();
                }
            }
    }
}

TEST(Trees, GoNoDeeperThanTheyCanBeReadBack) {
    OpenedHive hive(5);
    std::vector<Ref<Key>> keys{Ref<Key>(hive.root)};
    for (u32 depth = 1; depth <= KeyObj::MAX_KEY_DEPTH; ++depth)
        keys.push_back(keys.back()->createKey(numbered(depth)));
    ASSERT_TRUE(keys.back());
    EXPECT_EQ(errorOf([&] { return bool(keys.back()->createKey(text(u"513"))); }), 0x1018u);
    // A branch that would reach below the deepest level stays where it is.
    const auto branch = keys[0]->createKey(text(u"branch")), child = branch->createKey(text(u"child"));
    const auto grandchild = child->createKey(text(u"grandchild"));
    const std::vector<u8> before = hive.file();
    EXPECT_EQ(errorOf([&] { return keys[510]->move(branch, text(u"moved")); }), 0x1018u);
    EXPECT_TRUE(hive.file() == before);
    EXPECT_TRUE(keys[510]->move(child, text(u"moved"))) << "two levels fit";
    EXPECT_FALSE(grandchild->createKey(text(u"too deep"))) << "it lies at the deepest level now";
    hive.expectSound();
}

/// On a small stack: deleting goes down levels, never along subkeys.
TEST(Trees, WideAndDeepBranchesAreDeletedInBoundedStack) {
    OpenedHive hive(5);
    const auto wide = hive.root->createKey(text(u"wide"));
    for (u32 i = 0; i < 100000; ++i) ASSERT_TRUE(wide->createKey(numbered(i)));
    Ref<Key> deep = wide;
    for (u32 depth = 2; depth <= KeyObj::MAX_KEY_DEPTH; ++depth) deep = deep->createKey(text(u"z"));
    ASSERT_TRUE(deep);
    deep.reset();
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
    EXPECT_EQ(deleted, 100000u + 512);
    EXPECT_EQ(hive.root->keys(), 0u);
    hive.expectSound();
}

TEST(Trees, RecursiveDeleteStopsAtTheFirstFailure) {
    HiveBuilder builder;
    builder.build(
        {.keys = {{.name = u"k",
                   .values = {{.name = u"v"}},
                   .keys = {{.name = u"a"}, {.name = u"b", .keys = {{.name = u"x"}}}, {.name = u"c"}}}}});
    builder.poke(builder.key(u"k/b").list + 4, "zz");
    OpenedHive hive(builder, HiveFile::modeReadWrite);
    const auto key = hive.key(u"k");
    LogCapture logged(1);
    u64 deleted = 0;
    EXPECT_FALSE(Util::recursiveKeyDelete(Ref<Key>(hive.root), Ref<Key>(key), &deleted));
    EXPECT_EQ(deleted, 1u);
    EXPECT_TRUE(key->keys() == 2 && utf8(key->key(0)->name()) == "b" && key->value(text(u"v")));
    EXPECT_TRUE(logged.contains("3 HiveUtil: Failed to delete key: b\n1 HiveUtil: Error: 1010h"))
        << logged.text();
    EXPECT_TRUE(logged.contains("1 HiveUtil: Failed to recursive delete key: b of parent: k\n"));
}

TEST(CreateHive, IsEmptyAndSoundInBothVersions) {
    const std::u16string path = u"/a/path/that/is/longer/than/the/field/system.hive";
    for (const u32 minor : {3u, 5u})
        for (const auto& name : {text(path), text(u"short"), text(u""), Ref<String>()}) {
            const auto store = makeRef<MemoryStripe>();
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
            EXPECT_EQ(hive->securityDescriptorIterator()->next()->users(), 1u);
            EXPECT_EQ(hive->root()->keyIterator()->count() + hive->root()->valueIterator()->count(), 0u);
        }
}

TEST(CreateHive, Refusals) {
    const auto full = makeRef<MemoryStripe>();
    full->setMaxElementCount(8000);
    const struct {
        const char* what;
        Ref<MemoryStripe> store;
        u32 minor, mode, error;
    } cases[] = {
        {"no store", nullptr, 4, HiveFile::modeReadOnly, 0x8445},
        {"wide elements", makeRef<MemoryStripe>(std::vector<u8>(), 2u), 4, 1, 0x10002},
        {"version 1.4", makeRef<MemoryStripe>(), 4, 0, 0x8446},
        {"not empty", makeRef<MemoryStripe>(std::vector<u8>(1)), 5, 0, 0x8446},
        {"read-only", makeRef<MemoryStripe>(), 5, HiveFile::modeReadOnly, 0x8446},
        {"unsafe", makeRef<MemoryStripe>(), 5, HiveFile::modeUnsafe, 0x8446},
        {"full", full, 5, 0, 0x1002},
    };
    const auto create = [](const Ref<Interfaces::Stripe>& store, u32 minor, u32 mode) {
        return HiveFile::create(store, minor, mode, HiveFile::hiveCodepageLatin1, nullptr);
    };
    for (const auto& test : cases) {
        EXPECT_FALSE(create(Ref<Interfaces::Stripe>(test.store), test.minor, test.mode)) << test.what;
        EXPECT_EQ(Error::get(), test.error) << test.what;
        EXPECT_TRUE(test.store == full || !test.store || test.store->bytes().size() < 2) << test.what;
    }
    for (const u32 kind : {FailingStripe::seeks, FailingStripe::writes, FailingStripe::shortWrites}) {
        const auto failing = makeRef<FailingStripe>(makeRef<MemoryStripe>());
        failing->failAt(0, kind);
        EXPECT_FALSE(create(Ref<Interfaces::Stripe>(failing), 5, 0)) << kind;
    }
}

}  // namespace
