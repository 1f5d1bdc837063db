#include "platform/system/string.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <vector>

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
    // '_' lies between the upper-case and the lower-case letters.
    const Units ascending[] = {Units(u"A\0b", 3), Units(u"a\0C", 3), u"AB",     u"a_",    u"SS",
                               u"\u00DF",         u"\u017F",         u"\xD800", u"\xE000"};
    for (u64 i = 1; i < std::size(ascending); ++i) {
        const auto left = String::create(ascending[i - 1]), right = String::create(ascending[i]);
        EXPECT_EQ(left->compareUpper(right), -1) << i;
        EXPECT_EQ(right->compareUpper(left), 1) << i;
        EXPECT_FALSE(left->equalUpper(right)) << i;
    }
    const auto lower = String::create(u"abc\u00E4\u00FF"), upper = String::create(u"ABC\u00C4\u0178");
    EXPECT_EQ(lower->compareUpper(upper), 0);
    EXPECT_TRUE(lower->equalUpper(upper));
}

TEST(String, Utf8IsDecodedWithOneReplacementPerMalformedSequence) {
    struct {
        std::string utf8;
        Units units;
    } const cases[] = {
        {"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF", u"\u007F\u0080\u07FF\u0800\uFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", u"\U00010000\U0010FFFF"},
        {"\x80z", u"\uFFFDz"},
        {"\xC0\xAF", u"\uFFFD\uFFFD"},                      // overlong: C0 never begins a sequence
        {"\xE0\x80\x80", u"\uFFFD\uFFFD\uFFFD"},            // overlong
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},            // a surrogate
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // above U+10FFFF
        {"\xF0\x9F\x98z", u"\uFFFDz"},                      // cut short: the head is one sequence
        {"\xE2\x82\xC3\xA4", u"\uFFFD\u00E4"},
    };
    for (const auto& c : cases) EXPECT_EQ(String::fromUtf8(c.utf8)->view(), c.units) << c.utf8;
}

TEST(String, ConversionsKeepWhatTheTargetCanHold) {
    const auto lone = String::create(u"\xDC00x\xD83D\xDE00\xD83D");
    EXPECT_EQ(lone->toUtf8(), "\xEF\xBF\xBDx\xF0\x9F\x98\x80\xEF\xBF\xBD");
    EXPECT_EQ(lone->to32(), std::u32string({0xDC00, U'x', 0x1F600, 0xD83D}));
    EXPECT_EQ(String::from32(std::u32string({0x10FFFF, 0x110000}))->view(), u"\U0010FFFF\uFFFD");
    EXPECT_EQ(String::create(u"\u00FF\u0100")->to8(), "\xFF?");
}

}  // namespace
