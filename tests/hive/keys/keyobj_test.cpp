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
        {u"", &LaidKey::list, 8, numberBytes(0xFFFFFFFF), unreadable},
        {u"", &LaidKey::list, 8, numberBytes(40), unreadable},       // inside a cell
        {u"Sub", &LaidKey::record, 0, numberBytes(88), unreadable},  // free
        {u"Sub", &LaidKey::record, 4, {'v', 'k'}, "3 Hive: Key record is no nk record: vk"},
        {u"Sub", &LaidKey::record, 76, numberBytes(9, 2), longName},
        {u"Sub", &LaidKey::record, 76, numberBytes(0xFFFF, 2), longName},
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

/// Key and value records store names alike, but for the place of the length and the meaning of the flag bits.
TEST(KeyObj, NamesOfKeysAndValuesAreDecodedByFlagAndCodePage) {
    constexpr auto ascii = HiveFile::hiveCodepageAscii;
    constexpr auto cp1250 = HiveFile::hiveCodepageCp1250;
    const struct {
        std::string stored;
        bool compressed;
        HiveFile::HiveCodepage codepage;
        const char* expected;
    } cases[] = {{"", true, ascii, ""},
                 {"12345678", true, ascii, "12345678"},
                 {"a\xE4", true, ascii, "(null)"},
                 {"\xE4\x80", true, HiveFile::hiveCodepageLatin1, "\u00E4\u0080"},
                 {"\x80\xE3", true, cp1250, "\u20AC\u0103"},
                 {"\x81", true, cp1250, "(null)"},
                 {{"\xE4\0\xAC\x20", 4}, false, ascii, "\u00E4\u20AC"},
                 {{"A\0B\0C", 5}, false, ascii, "AB"}};
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::PrintToString(test.stored));
        SmallHive builder;
        const u32 nk = builder.key(u"Sub").record;
        builder.poke16(nk + 6, test.compressed ? 0x20 : 0);
        builder.poke16(nk + 76, test.stored.size());
        builder.poke(nk + 80, test.stored);
        const u32 vk = builder.value(u"", u"Value").record;
        builder.poke16(vk + 6, test.stored.size());
        builder.poke16(vk + 20, test.compressed ? 1 : 0xFFFE);
        builder.poke(vk + 24, test.stored);
        const OpenedHive opened(builder, HiveFile::modeReadOnly, test.codepage);
        LogCapture logged;
        const auto key = opened.root()->key(0);
        const auto value = opened.root()->value(0);
        EXPECT_TRUE(key->valid() && value->valid()) << "a name without text does no harm to the rest";
        EXPECT_EQ(utf8(key->name()), test.expected);
        EXPECT_EQ(utf8(value->name()), test.expected);
        EXPECT_EQ(key->binaryNameLength(), test.stored.size());
        EXPECT_EQ(value->binaryNameLength(), test.stored.size());
        EXPECT_EQ(logged.count(" could not be converted from codepaged name to Ref<String>. "),
                  key->name() ? 0u : 2u);
    }
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
