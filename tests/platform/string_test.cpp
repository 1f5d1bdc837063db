#include "platform/system/string.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <vector>

#include "platform/iochar/stringutil.h"

using namespace Platform;

namespace {

using Units = std::u16string;

TEST(String, EveryUnitIsUppercasedAsTheCharacterDatabaseSays) {
    std::ifstream data("/usr/share/unicode/UnicodeData.txt");
    if (!data) GTEST_SKIP() << "the character database is not installed";
    std::vector<u32> upper(0x110000), lower(0x110000);
    for (std::string line; std::getline(data, line);) {
        std::vector<std::string> fields;
        std::istringstream parts(line);
        for (std::string field; std::getline(parts, field, ';');) fields.push_back(field);
        fields.resize(15);
        const u64 code = std::stoul(fields[0], nullptr, 16);
        if (!fields[12].empty()) upper[code] = static_cast<u32>(std::stoul(fields[12], nullptr, 16));
        if (!fields[13].empty()) lower[code] = static_cast<u32>(std::stoul(fields[13], nullptr, 16));
    }
    u32 mapped = 0;
    for (u32 unit = 0; unit <= 0xFFFF; ++unit) {
        const bool pair = upper[unit] != 0 && upper[unit] <= 0xFFFF && lower[upper[unit]] == unit;
        mapped += pair;
        ASSERT_EQ(u32{String::upperUnit(static_cast<char16_t>(unit))}, pair ? upper[unit] : unit)
            << std::hex << unit;
    }
    EXPECT_GT(mapped, 1000u);
}

TEST(String, UppercaseComparisonGoesByUpperUnits) {
    struct {
        Units left, right;
        int order;
    } const cases[] = {
        {u"", u"", 0},
        {u"abc", u"ABC", 0},
        {u"\u00E4\u00FF", u"\u00C4\u0178", 0},
        {u"\u00DF", u"SS", 1},
        {u"\u0131", u"I", 1},
        {u"\u017F", u"S", 1},
        {u"\u00B5", u"\u039C", -1},
        {u"a_", u"AB", 1},  // '_' lies between the upper-case and the lower-case letters
        {u"a", u"Ab", -1},
        {u"B", u"ab", 1},
        {u"\xD800", u"\xE000", -1},
        {Units(u"a\0b", 3), Units(u"A\0C", 3), -1},
    };
    for (const auto& c : cases) {
        const auto left = String::create(c.left), right = String::create(c.right);
        SCOPED_TRACE(left->toUtf8() + " : " + right->toUtf8());
        const auto sign = [](int value) { return (value > 0) - (value < 0); };
        EXPECT_EQ(left->compareUpper(right), c.order);
        EXPECT_EQ(right->compareUpper(left), -c.order);
        EXPECT_EQ(sign(left->upper()->compare(right->upper())), c.order);
        EXPECT_EQ(left->equalUpper(right), c.order == 0);
    }
}

TEST(String, Utf8IsDecodedWithOneReplacementPerMalformedSequence) {
    struct {
        std::string utf8;
        Units units;
    } const cases[] = {
        {"", u""},
        {"a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", u"a\u00E4\u20AC\U0001F600"},
        {"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF", u"\u007F\u0080\u07FF\u0800\uFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", u"\U00010000\U0010FFFF"},
        {"\x80z", u"\uFFFDz"},
        {"\xC0\xAF", u"\uFFFD\uFFFD"},                      // overlong: C0 never begins a sequence
        {"\xE0\x80\x80", u"\uFFFD\uFFFD\uFFFD"},            // overlong
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},            // a surrogate
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // above U+10FFFF
        {"\xF0\x9F\x98z", u"\uFFFDz"},                      // cut short: the head is one sequence
        {"\xE2\x82\xC3\xA4", u"\uFFFD\u00E4"},
        {"\xE2\x82", u"\uFFFD"},
    };
    for (const auto& c : cases) EXPECT_EQ(String::fromUtf8(c.utf8)->view(), c.units) << c.utf8;
}

TEST(String, ConversionsKeepWhatTheTargetCanHold) {
    const auto lone = String::create(u"\xDC00x\xD83D\xDE00\xD83D");
    EXPECT_EQ(lone->toUtf8(), "\xEF\xBF\xBDx\xF0\x9F\x98\x80\xEF\xBF\xBD");
    EXPECT_EQ(lone->to32(), std::u32string({0xDC00, U'x', 0x1F600, 0xD83D}));
    EXPECT_TRUE(String::from32(lone->to32())->equal(lone));
    EXPECT_EQ(String::from32(std::u32string({0x10FFFF, 0x110000}))->view(), u"\U0010FFFF\uFFFD");
    EXPECT_EQ(String::from8("a\xE4")->view(), u"a\u00E4");
    EXPECT_EQ(String::create(u"\u00FF\u0100")->to8(), "\xFF?");
    EXPECT_EQ(String::create(u"abc")->sub(1)->view(), u"bc");
    EXPECT_EQ(String::create(u"abc")->sub(1, 1)->view(), u"b");
    EXPECT_EQ(String::create(u"abc")->sub(4)->view(), u"");
    EXPECT_EQ(String::create(u"abc")->charAt(3), u'\0');
}

TEST(StringUtil, SplitLeavesOutEmptyPieces) {
    struct {
        Units text;
        std::vector<Units> pieces;
    } const cases[] = {
        {u"", {}},
        {u"\\", {}},
        {u"\\\\\\", {}},
        {u"a", {u"a"}},
        {u"a\\b", {u"a", u"b"}},
        {u"\\a\\\\b c\\", {u"a", u"b c"}},
    };
    for (const auto& c : cases) {
        const auto pieces = StringUtil::split(String::create(c.text), u'\\');
        std::vector<Units> seen;
        for (const auto& piece : *pieces) seen.emplace_back(piece->view());
        EXPECT_EQ(seen, c.pieces);
    }
}

TEST(StrConv, NumbersAreReadStrictlyAndWrittenInLowerCase) {
    constexpr u64 refused = 0xDEAD;
    struct {
        Units text;
        u32 base;
        u64 number;
    } const cases[] = {
        {u"0", 10, 0},
        {u"18446744073709551615", 10, ~u64{0}},
        {u"18446744073709551616", 10, refused},
        {u"99999999999999999999", 10, refused},
        {u"ffffffffffffffff", 16, ~u64{0}},
        {u"10000000000000000", 16, refused},
        {u"zz", 36, 1295},
        {u"", 10, refused},
        {u"+1", 10, refused},
        {u"-1", 10, refused},
        {u" 1", 10, refused},
        {u"0x1", 16, refused},
        {u"2", 2, refused},
        {u"g", 16, refused},
        {u"\uFF11", 10, refused},
        {u"1", 1, refused},
        {u"1", 37, refused},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(String::create(c.text)->toUtf8());
        u64 number = refused;
        EXPECT_EQ(StrConv::num(c.text, number, c.base), c.number != refused);
        EXPECT_EQ(number, c.number);
        if (c.number == refused) continue;
        EXPECT_TRUE(StrConv::str(number, c.base)->equal(c.text));
    }
    u64 number = 0;
    EXPECT_TRUE(StrConv::num(u"00aBcD", number, 16));
    EXPECT_EQ(number, 0xABCDu);
    EXPECT_EQ(StrConv::str(~u64{0}, 2)->length(), 64u);
}

}  // namespace
