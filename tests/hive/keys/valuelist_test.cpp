#include "tests/hive/openedhive.h"

using namespace HiveTest;

namespace {

/// "A" to "E", each a dword that is its index.
KeyPlan fiveValues() {
    KeyPlan root;
    for (u32 i = 0; i < 5; ++i)
        root.values.push_back({{static_cast<char16_t>(u'A' + i)}, 4, numberBytes(i), Storage::automatic});
    return root;
}

TEST(ValueList, BrokenListIsRefused) {
    constexpr auto tooSmall = "3 Hive: Value list record is too small, key: ";
    const struct {
        u32 at;  // in the key's record
        u32 field;
        u32 error;
        const char* logged;
    } cases[] = {
        {40, 6, 0x2008, tooSmall},
        {40, 0x40000000, 0x2008, tooSmall},  // four times as many bytes are none in 32 bits
        {44, 0x7FFFFFF8, 0, ""},
        {44, 36, 0x2006, "Attempt to access record with invalid alignment"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << test.at << " " << test.field);
        HiveBuilder builder;
        builder.build(fiveValues());
        builder.poke32(builder.key().record + test.at, test.field);
        const OpenedHive opened(builder);
        const auto root = opened.root();
        LogCapture logged;
        const MemoryLimit limit;
        Platform::Error::set(0);
        EXPECT_FALSE(root->value(4) || root->value(text(u"A")) || root->valueIterator()->next());
        EXPECT_EQ(Platform::Error::get(), test.error);
        EXPECT_TRUE(logged.contains(test.logged)) << logged.text();
        EXPECT_LT(logged.count("\n"), 20u) << "not one line for each value it claims";
    }
}

TEST(ValueList, FirstValueOfTheNameIsFoundInAnyCase) {
    HiveBuilder builder;
    builder.build({.values = {{u"NAME"}, {u"Name"}, {u"\u00E9\u20AC"}, {u""}}});
    const auto root = OpenedHive(builder).root();
    EXPECT_EQ(root->value(text(u"Name")), root->value(0)) << "a live value is given again";
    EXPECT_EQ(root->value(text(u"\u00C9\u20AC")), root->value(2));
    EXPECT_EQ(root->value(text(u"")), root->value(3));
}

TEST(ValueList, UnreadableValuesAreSkipped) {
    HiveBuilder builder;
    builder.build(fiveValues());
    builder.poke(builder.value(u"", u"A").record + 4, "kv");
    builder.poke32(builder.key().valueList + 8, 0x7FFFFFF8);     // B
    builder.poke(builder.value(u"", u"C").record + 24, "\xE4");  // a name without text
    const OpenedHive opened(builder, HiveFile::modeReadOnly, HiveFile::hiveCodepageAscii);
    const auto root = opened.root();
    LogCapture logged;
    EXPECT_EQ(root->value(text(u"d"))->number(), 3u);
    EXPECT_EQ(logged.count("3 Hive: Failed to get value with index: "), 2u) << logged.text();
    for (const char16_t* missing : {u"A", u"B", u"C", u""}) EXPECT_FALSE(root->value(text(missing)));
    EXPECT_EQ(Platform::Error::get(), 0x1004u);
    for (u32 i = 0; i < 5; ++i) EXPECT_EQ(root->value(i)->valid(), i >= 2) << i;
}

}  // namespace
