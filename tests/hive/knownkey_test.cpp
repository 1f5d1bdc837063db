// What searches keep of a read-only hive's keys must not show: a hive that was searched again and again
// answers, and complains, as one that was just opened.

#include "hive/keys/knownkey.h"

#include <random>

#include "tests/hive/openedhive.h"
#include "tests/support/hiveshapes.h"

using namespace HiveTest;

namespace {

constexpr u32 MODES[] = {HiveFile::modeReadOnly, HiveFile::modeReadOnly | HiveFile::modeLinearFallback,
                         HiveFile::modeReadOnly | HiveFile::modeUnsafe};

using Path = std::vector<Ref<String>>;

void collect(const Ref<Key>& key, Path& path, std::vector<Path>& paths) {
    const auto subkeys = key->keyIterator();
    while (const Ref<Key> subkey = subkeys->next()) {
        path.push_back(subkey->name());
        paths.push_back(path);
        collect(subkey, path, paths);
        path.back() = path.back()->upper();
        paths.push_back(path);
        path.back() = path.back()->concat(text(u"~"));
        paths.push_back(path);
        path.pop_back();
    }
}

/// The path in library notation; empty where a name cannot be part of one.
std::u16string joined(const Path& path) {
    std::u16string whole;
    for (const Ref<String>& name : path) {
        if (name->isEmpty() || name->view().find_first_of(u"/\\") != std::u16string_view::npos) return {};
        whole += u'/';
        whole += name->view();
    }
    return whole;
}

/// A hive in memory and what a search in it gives: the key's record and name, or the error, and the log.
struct Searched {
    Searched(const std::vector<u8>& file, u32 mode, HiveFile::HiveCodepage codepage)
        : hive(makeRef<RegistryHiveObj>(makeRef<MemoryStripe>(file), mode, codepage, nullptr)) {}

    std::string find(const Path& path, std::vector<Ref<Key>>* held = nullptr) {
        LogCapture logged;
        Error::set(0);
        Ref<Key> key = hive->root();
        if (const std::u16string whole = held ? joined(path) : u""; !whole.empty() && whole.size() % 2) {
            PathNames names(text(whole));
            key = key ? refCast<KeyObj>(key)->findPath(names) : nullptr;
            held->push_back(key);
        } else {
            for (const Ref<String>& name : path) {
                if (held) held->push_back(key);
                if (!key || !(key = key->key(name))) break;
            }
        }
        const Ref<KeyObj> own = refCast<KeyObj>(key);
        return std::to_string(own ? own->recordOfs() : 0) + " " + utf8(own ? own->name() : nullptr) + " " +
               std::to_string(own ? own->keys() : 0) + " " + std::to_string(Error::get()) + "\n" +
               logged.text();
    }

    Ref<RegistryHiveObj> hive;
};

/// Searches at random, now holding what was found and now letting all go, now walking a list in between.
void compare(const std::vector<u8>& file, u32 mode, HiveFile::HiveCodepage codepage,
             const std::vector<Path>& paths, std::mt19937& random, u32 searches) {
    Searched searched(file, mode, codepage);
    std::vector<Ref<Key>> held;
    if (const LogCapture quiet; !searched.hive->root()) return;  // complains once, and the hive is done for
    for (u32 i = 0; i < searches; ++i) {
        const Path& path = paths[random() % paths.size()];
        ASSERT_EQ(searched.find(path, &held), Searched(file, mode, codepage).find(path)) << "search " << i;
        if (random() % 4 == 0 && held.back()) {
            const LogCapture quiet;
            if (const auto subkeys = held.back()->keyIterator())
                for (u32 left = std::min(subkeys->count(), 3U); left; --left) held.push_back(subkeys->next());
        }
        std::erase_if(held, [&](const Ref<Key>&) { return random() % 2 == 0; });
    }
}

TEST(KnownKeys, DoNotShowInSoundAndDamagedHives) {
    std::mt19937 random(17);
    for (const HiveShape& shape : hiveShapes()) {
        std::vector<Path> paths;
        Path start;
        collect(Searched(shape.file, MODES[0], HiveFile::hiveCodepageLatin1).hive->root(), start, paths);
        for (u32 damaged = 0; damaged < 12; ++damaged) {
            std::vector<u8> file = shape.file;
            for (u32 i = 0; i < 4 * damaged; ++i)
                file[4096 + random() % (file.size() - 4096)] ^= static_cast<u8>(1U << random() % 8);
            const u32 mode = MODES[random() % std::size(MODES)];
            const auto codepage = static_cast<HiveFile::HiveCodepage>(random() % 4);
            SCOPED_TRACE(testing::Message() << shape.name << ", damage " << damaged << ", mode " << mode
                                            << ", code page " << codepage);
            ASSERT_NO_FATAL_FAILURE(compare(file, mode, codepage, paths, random, 60));
        }
    }
}

TEST(KnownKeys, AreOneObjectWhileHeldWhateverTheWayToThem) {
    HiveBuilder builder(5);
    KeyPlan plan;
    for (char16_t unit = u'a'; unit < u'k'; ++unit)
        plan.keys.push_back({.name = {unit}, .keys = {{.name = u"x"}}});
    builder.build(plan);
    const OpenedHive opened(builder);
    std::vector<Ref<KeyObj>> held;
    for (u32 i = 0; i < 10; ++i) held.push_back(opened.root->key(i));
    for (u32 i = 0; i < 10; ++i) {
        EXPECT_EQ(opened.root->key(text(std::u16string(1, static_cast<char16_t>(u'A' + i)))), held[i]);
        EXPECT_EQ(opened.root->key(i), held[i]);
        const Ref<Key> below = held[i]->key(text(u"x"));
        const Ref<Key> byPath =
            opened.hive->path(text(std::u16string{static_cast<char16_t>(u'A' + i), u'/', u'X'}));
        EXPECT_TRUE(below && below == byPath);
        EXPECT_EQ(refCast<KeyObj>(below)->parent(), held[i]);
    }
    held.clear();
    for (u32 i = 10; i-- > 0;)
        held.push_back(
            refCast<KeyObj>(opened.root->key(text(std::u16string(1, static_cast<char16_t>(u'a' + i))))));
    for (u32 i = 0; i < 10; ++i) EXPECT_EQ(opened.root->key(9 - i), held[i]);
}

TEST(KnownKeys, FoundByPathHoldAllObjectsAboveWheneverThoseWereMade) {
    HiveBuilder builder(5);
    KeyPlan plan;
    for (char16_t unit = u'a'; unit < u'k'; ++unit)
        plan.keys.push_back(
            {.name = {unit}, .keys = {{.name = u"x", .keys = {{.name = u"y"}, {.name = u"z"}}}}});
    builder.build(plan);
    OpenedHive opened(builder);
    const auto find = [&](std::u16string path) { return refCast<KeyObj>(opened.hive->path(text(path))); };
    for (char16_t unit = u'a'; unit < u'k'; ++unit) EXPECT_TRUE(find({unit, u'/', u'x', u'/', u'z'}));
    const WeakRef<KeyObj> root(opened.root);
    opened.root.reset();
    EXPECT_FALSE(root.lock());
    std::vector<Ref<KeyObj>> held;
    for (char16_t unit = u'a'; unit < u'k'; ++unit) {  // more than may be without the objects above them
        SCOPED_TRACE(static_cast<int>(unit));
        const Ref<KeyObj> low = find({unit, u'/', u'x', u'/', u'y'});
        std::vector<WeakRef<KeyObj>> above;
        above.emplace_back(find({unit}));
        if (unit % 2) above.emplace_back(find({unit, u'/', u'x'}));
        above.emplace_back(low->parent());
        above.emplace_back(opened.hive->rootObj());
        for (const auto& weak : above) EXPECT_TRUE(weak.lock());
        EXPECT_EQ(low->parent(), find({unit, u'/', u'x'}));
        EXPECT_EQ(low->parent()->parent(), above[0].lock());
        EXPECT_EQ(low->parent()->parent()->parent(), above.back().lock());
        EXPECT_EQ(find({unit, u'/', u'X', u'/', u'Y'}), low);
        EXPECT_EQ(above[0].lock()->key(0)->key(0), low);
        held.push_back(low);
    }
    const WeakRef<KeyObj> last(held.back()->parent());
    held.clear();
    EXPECT_FALSE(last.lock());
}

TEST(KnownKeys, AreForgottenAtTheirBoundButForThoseInUse) {
    constexpr u32 many = 1U << 15;
    SubkeyList list;
    Array<SubkeyEntry> entries(many);
    list.append(0, std::move(entries));
    KnownKeys keys;
    const auto add = [&](const Ref<KnownKey>& parent, u32 place) {
        const auto key = makeRef<KnownKey>(hive_record_nk{}, text(u"k"), list, parent, place);
        keys.add(key);
        return key;
    };
    const Ref<KnownKey> root = add(nullptr, 0);
    const Ref<KnownKey> held = add(add(root, 1), 2);
    u32 place = 3;
    for (; root->subkeys()[3].key || place == 3; ++place) {
        ASSERT_LT(place, many);
        add(root, place);
    }
    EXPECT_TRUE(root->subkeys()[place - 1].key) << "the one that came last stays";
    EXPECT_EQ(keys.root(), root);
    EXPECT_EQ(root->subkeys()[1].key, held->parent());
    EXPECT_EQ(held->parent()->subkeys()[2].key, held);
    // What is in use may leave no room; there is again when it goes.
    std::vector<Ref<KnownKey>> inUse;
    for (; keys.hasRoom(); ++place) {
        ASSERT_LT(place, 100U);
        inUse.push_back(add(root, place));
    }
    inUse.clear();
    for (u32 i = 0; i < place && !keys.hasRoom(); ++i) continue;
    EXPECT_TRUE(keys.hasRoom());
}

}  // namespace
