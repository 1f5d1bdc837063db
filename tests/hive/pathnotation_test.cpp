#include "hive/pathnotation.h"

#include <gtest/gtest.h>

using namespace Platform;
using namespace Libraries::Files::Hive;

namespace {

enum Direction { toWindows, fromWindows, both };

TEST(PathNotation, ConvertsAndDropsSurplusSeparators) {
    struct {
        std::u16string library, windows;
        Direction direction;
    } const cases[] = {
        {u"", u"", both},
        {u"SOFTWARE/Vendor", u"SOFTWARE\\Vendor", both},
        {u"a\\/b/c", u"a/b\\c", both},
        {u"a/\\/", u"a\\/", both},
        {u"\\/\\/a/b\\/", u"//a\\b/", both},
        {u"\u20AC/\xD83D\xDE00/ ", u"\u20AC\\\xD83D\xDE00\\ ", both},
        {u"/SOFTWARE//Vendor/", u"SOFTWARE\\Vendor", toWindows},
        {u"///", u"", toWindows},
        {u"a\\\\b", u"ab", toWindows},  // a name cannot hold a backslash
        {u"a\\bc/d\\", u"abc\\d", toWindows},
        {u"a\\\\/b", u"a/b", toWindows},
        {u"a/b", u"\\a\\\\b\\", fromWindows},
        {u"", u"\\\\", fromWindows},
        {u"\\/", u"\\/\\", fromWindows},
    };
    for (const auto& c : cases) {
        const auto library = String::create(c.library), windows = String::create(c.windows);
        const auto there = pathToWindowsStyle(library)->toUtf8();
        const auto back = pathFromWindowsStyle(windows)->toUtf8();
        EXPECT_EQ(there == windows->toUtf8(), c.direction != fromWindows) << there;
        EXPECT_EQ(back == library->toUtf8(), c.direction != toWindows) << back;
    }
}

}  // namespace
