#include "regfile/util.h"

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

TEST(PathHelpers, OpenPath) {
    HiveBuilder builder;
    builder.build({.keys = {{.name = u"A", .keys = {{.name = u"B"}, {.name = u"c/d"}}},
                            {.name = u"Broken", .keys = {{.name = u"B"}}}}});
    builder.poke(builder.key(u"Broken").list + 4, "xx");
    const Ref<Key> root = OpenedHive(builder).root;
    const struct {
        const char16_t* path;
        const char* name;  // of the key found
        u32 error;
    } cases[] = {{u"/", "", 0},
                 {u"///", "", 0},
                 {u"\\", "", 0},
                 {u"A", "A", 0},
                 {u"a//b/", "B", 0},
                 {u"/A/B", "B", 0},
                 {u"A/c\\/D", "c/d", 0},
                 {u"", "(null)", 0x8446},
                 {u"B", "(null)", 0x1003},
                 {u"A/B/C", "(null)", 0x1003},
                 {u"A/c/d", "(null)", 0x1003},
                 {u"Broken/B", "(null)", 0x1003}};
    for (const auto& test : cases) {
        Platform::Error::set(0);
        const auto found = Util::openPath(root, text(test.path));
        EXPECT_EQ(found ? utf8(found->name()) : "(null)", test.name) << utf8(text(test.path));
        EXPECT_EQ(Platform::Error::get(), test.error) << utf8(text(test.path));
    }
    EXPECT_FALSE(Util::openPath(nullptr, text(u"")));
    EXPECT_EQ(Platform::Error::get(), 0x8445u);
    Platform::Error::set(0);
    EXPECT_FALSE(Util::openPath(root, nullptr));
    EXPECT_EQ(Platform::Error::get(), 0x8445u);
}

TEST(PathHelpers, OpenOrCreatePathCreatesAsFarAsItCan) {
    const std::u16string tooLong(256, u'x');
    const struct {
        std::u16string path;
        const char* last;  // name of the key given
        u32 error;
        const char16_t* left;  // a path that is there afterwards
        const char* logged;
    } cases[] = {
        {u"a/b/c", "c", 0, u"a/b/c", ""},
        {u"//A//b/", "b", 0, u"a/b", ""},
        {u"", "(null)", 0x8446, u"a", ""},
        {u"a/b/n/" + tooLong, "(null)", 0x8443, u"a/b/n", " in key n\n"},
        {u"p/q/r/" + tooLong, "(null)", 0x8443, u"p/q/r", "Failed to remove key q of key p for cleanup\n"},
        {u"broken/x", "(null)", 0x8443, u"broken", ""},
    };
    HiveBuilder builder;
    builder.build({.keys = {{.name = u"broken", .keys = {{.name = u"x"}}}}});
    builder.poke(builder.key(u"broken").list + 4, "zz");
    const Ref<Key> root(OpenedHive(builder, HiveFile::modeReadWrite).root);
    for (const auto& test : cases) {
        SCOPED_TRACE(utf8(text(test.path)).substr(0, 20));
        LogCapture logged(4);
        Ref<Key> key;
        EXPECT_EQ(errorOf([&] { return bool(key = Util::openOrCreatePath(root, text(test.path))); }),
                  test.error);
        EXPECT_EQ(utf8(key ? key->name() : nullptr), test.last);
        EXPECT_TRUE(logged.contains(test.logged)) << logged.text();
        EXPECT_TRUE(Util::openPath(root, text(test.left)));
    }
    EXPECT_EQ(errorOf([&] { return bool(Util::openOrCreatePath(root, nullptr)); }), 0x8445u);
}

}  // namespace
