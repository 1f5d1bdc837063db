#include "tests/hive/openedhive.h"

using namespace HiveTest;

namespace {

/// A root with one subkey and one value, all with room for names of 8 bytes. In front of them lie two cells
/// too small for a key, at 32 (but for its name) and 112.
struct SmallHive : HiveBuilder {
    SmallHive() {
        for (const u32 size : {80u, 8u}) poke(allocate(size) + 4, "nk");
        poke16(32 + 76, 1);
        build({.name = u"ROOT", .values = {{.name = u"Value"}}, .keys = {{.name = u"Sub"}}});
    }
};

TEST(KeyObj, BrokenRecordGivesAnInvalidKey) {
    constexpr auto unreadable = "3 Hive: Failed to get hive record for key: ";
    constexpr auto longName = "3 Hive: Name of key exceeds length of record";
    const struct {
        const char16_t* path;
        u32 LaidKey::*cell;
        u32 at;
        std::vector<u8> damage;
        const char* logged;
    } cases[] = {
        {u"", &LaidKey::list, 8, numberBytes(0x7FFFFFF8), "Failed to get hive record for key: 7ffffff8h"},
        {u"", &LaidKey::list, 8, numberBytes(40), unreadable},       // inside a cell
        {u"Sub", &LaidKey::record, 0, numberBytes(88), unreadable},  // free
        {u"Sub", &LaidKey::record, 4, {'v', 'k'}, "3 Hive: Key record is no nk record: vk"},
        {u"Sub", &LaidKey::record, 76, numberBytes(9, 2), longName},
        {u"", &LaidKey::list, 8, numberBytes(32), longName},
        {u"", &LaidKey::list, 8, numberBytes(112), longName},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << test.logged << " " << test.at);
        SmallHive builder;
        builder.poke(u64{builder.key(test.path).*test.cell} + test.at, test.damage);
        const OpenedHive opened(builder);
        const auto root = opened.root();
        LogCapture logged;
        const auto key = root->key(0);
        EXPECT_FALSE(key->valid());
        EXPECT_EQ(Platform::Error::get(), 0x2004u);
        EXPECT_TRUE(logged.contains(test.logged)) << logged.text();
        EXPECT_TRUE(key->readOnly());
        EXPECT_FALSE(key->name() || key->key(0) || key->key(text(u"")) || key->value(text(u"")));
        EXPECT_FALSE(key->keyIterator() || key->valueIterator() || key->keys() || key->values());
    }
}

/// Key and value records store names alike, but for the place of the length.
TEST(KeyObj, NameWithoutTextDoesNoHarmToTheRest) {
    SmallHive builder;
    const u32 nk = builder.key(u"Sub").record, vk = builder.value(u"", u"Value").record;
    builder.poke(nk + 80, "\xE4");
    builder.poke(vk + 24, "\xE4");
    const OpenedHive opened(builder, HiveFile::modeReadOnly, HiveFile::hiveCodepageAscii);
    LogCapture logged;
    const auto key = opened.root()->key(0);
    const auto value = opened.root()->value(0);
    EXPECT_TRUE(key->valid() && value->valid());
    EXPECT_FALSE(key->name() || value->name());
    EXPECT_EQ(key->binaryNameLength(), 3u);
    EXPECT_EQ(value->binaryNameLength(), 5u);
    EXPECT_EQ(logged.count(" could not be converted from codepaged name to Ref<String>. "), 2u);
}

TEST(KeyObj, LiveChildIsGivenAgainAndKeepsAllAboveIt) {
    SmallHive builder;
    Ref<KeyObj> child;
    {
        const OpenedHive opened(builder, HiveFile::modeReadWrite);
        const auto root = opened.root();
        EXPECT_EQ(utf8(root->name()), "") << "nameless, whatever its record says";
        child = root->key(0);
        EXPECT_EQ(root->key(text(u"sUB")), child);
        EXPECT_FALSE(child->readOnly());
    }
    EXPECT_EQ(child->parent()->key(0), child);
    EXPECT_FALSE(child->parent()->parent());
}

TEST(KeyObj, RingOfKeysEndsAtTheDepthLimit) {
    SmallHive builder;
    builder.poke32(builder.key().list + 8, builder.key().record);  // the root is its own subkey
    const OpenedHive opened(builder);
    LogCapture logged;
    Ref<KeyObj> key = opened.root();
    u32 depth = 0;
    for (Ref<KeyObj> below = key->key(0); below && below->valid() && depth < 600; below = key->key(0)) {
        key = below;
        ++depth;
    }
    EXPECT_EQ(depth, 512u);
    EXPECT_TRUE(logged.contains("4 Hive: Key tree is too deep, key: ")) << logged.text();
}

}  // namespace
