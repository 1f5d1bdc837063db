#include "regfile/util.h"

#include "regfile/valueedit.h"
#include "tests/hive/openedhive.h"

using namespace HiveTest;

namespace {

TEST(PathHelpers, Notations) {
    const struct {
        const char16_t* path;
        const char* toWindows;
        const char* fromWindows;
    } cases[] = {
        {u"", "", ""},
        {u"///", "", "\\/\\/\\/"},
        {u"\\\\", "", ""},
        {u"/SOFTWARE//Vendor/", "SOFTWARE\\Vendor", "\\/SOFTWARE\\/\\/Vendor\\/"},
        {u"a\\/b/c", "a/b\\c", "a/\\/b\\/c"},
        {u"SOFTWARE\\a/b\\c", "SOFTWAREa\\bc", "SOFTWARE/a\\/b/c"},
        {u"\\\\a\\\\b\\\\", "ab", "a/b"},
        {u"a\\\\/b", "a/b", "a/\\/b"},  // the second backslash escapes no less than the first
        {u"a/\\/", "a\\/", "a\\//\\/"},
        {u"\\/\\//x", "//\\x", "\\//\\/\\/x"},
        {u"\U0001F600/\u00E9", "\U0001F600\\\u00E9", "\U0001F600\\/\u00E9"},
    };
    for (const auto& test : cases) {
        const auto path = text(test.path);
        EXPECT_EQ(utf8(Util::regPathToWindowsStyle(path)), test.toWindows) << utf8(path);
        EXPECT_EQ(utf8(Util::regPathFromWindowsStyle(path)), test.fromWindows) << utf8(path);
        const auto back =
            Util::regPathToWindowsStyle(Util::regPathFromWindowsStyle(Util::regPathToWindowsStyle(path)));
        EXPECT_EQ(utf8(back), test.toWindows) << utf8(path);
    }
}

/// A last name behind '+' may be created with its missing parents.
TEST(PathHelpers, OpenAndCreatePaths) {
    const std::string tooLong(256, 'x');
    const struct {
        std::string path;
        const char* name;  // of the key found
        u32 error;
        const char* logged = "";
        const char* left = "/";  // a path that is there afterwards
    } cases[] = {
        {"/", "", 0},
        {"///", "", 0},
        {"\\", "", 0},
        {"a//b/", "B", 0},
        {"/A/B", "B", 0},
        {"A/c\\/D", "c/d", 0},
        {"", "(null)", 0x8446},
        {"B", "(null)", 0x1003},
        {"A/B/C", "(null)", 0x1003},
        {"A/c/d", "(null)", 0x1003},
        {"Broken/B", "(null)", 0x1003},
        {"+N/b/c", "c", 0, "", "N/b/c"},
        {"+//n//B/", "b", 0},
        {"+", "(null)", 0x8446},
        {"+N/b/n/" + tooLong, "(null)", 0x8443, " in key n\n", "N/b/n"},
        {"+p/q/r/" + tooLong, "(null)", 0x8443, "Failed to remove key q of key p for cleanup\n", "p/q/r"},
        {"+Broken/x", "(null)", 0x8443},
    };
    HiveBuilder builder;
    builder.build({.keys = {{.name = u"A", .keys = {{.name = u"B"}, {.name = u"c/d"}}},
                            {.name = u"Broken", .keys = {{.name = u"B"}}}}});
    builder.poke(builder.key(u"Broken").list + 4, "xx");
    const Ref<Key> root(OpenedHive(builder, HiveFile::modeReadWrite).root);
    for (const auto& test : cases) {
        SCOPED_TRACE(test.path.substr(0, 20));
        LogCapture logged(4);
        const bool creates = test.path.starts_with("+");
        const auto path = String::from8(test.path.substr(creates));
        Ref<Key> key;
        EXPECT_EQ(
            errorOf([&] {
                return bool(key = creates ? Util::openOrCreatePath(root, path) : Util::openPath(root, path));
            }),
            test.error);
        EXPECT_EQ(utf8(key ? key->name() : nullptr), test.name);
        EXPECT_TRUE(logged.contains(test.logged)) << logged.text();
        EXPECT_TRUE(Util::openPath(root, String::from8(test.left)));
    }
    EXPECT_EQ(errorOf([&] { return bool(Util::openPath(nullptr, text(u""))); }), 0x8445u);
    EXPECT_EQ(errorOf([&] { return bool(Util::openPath(root, nullptr)); }), 0x8445u);
    EXPECT_EQ(errorOf([&] { return bool(Util::openOrCreatePath(root, nullptr)); }), 0x8445u);
}

/// In a new hive the cell lies so near the start that only part of data of this length is covered.
TEST(ValueEdits, ListsOfTextsNearTheStartOfTheHiveAreWrittenElsewhere) {
    OpenedHive hive(u32{3});
    Ref<Value> value = hive.root->createValue(text(u"v"), Value::valueStrings);
    const auto texts = makeRef<TVector<Ref<String>>>();
    for (const char16_t letter : {u'a', u'b', u'c'}) texts->append(text(std::u16string(9000, letter)));
    ASSERT_FALSE(value->setStrings(texts)) << "nothing to do for the edit";
    ASSERT_TRUE(ValueEdit::setStrings(hive.root, value, texts));
    value.reset();  // which kept the hive open
    hive.reopen();
    EXPECT_EQ(hive.root->valueIterator()->count(), 1u);
    const auto read = hive.root->value(text(u"v"))->strings(60000);
    ASSERT_TRUE(read && read->size() == 3);
    for (u32 i = 0; i < 3; ++i) EXPECT_TRUE(read->at(i)->equal(texts->at(i)->view())) << i;
    hive.expectSound();
}

}  // namespace
