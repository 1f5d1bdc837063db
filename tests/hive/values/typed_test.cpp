#include "tests/hive/openedhive.h"

using namespace HiveTest;
using namespace std::literals;

namespace {

constexpr u64 NO_NUMBER = ~u64{0};
constexpr u32 ANY = 0xFFFFFFFF;

/// A value of this type and data, in a hive of its own.
Ref<ValueObj> valueOf(u32 type, const std::vector<u8>& data, Storage storage = Storage::automatic) {
    HiveBuilder builder;
    builder.allocate(2000);
    builder.build({.values = {{.type = type, .data = data, .storage = storage}}});
    Platform::Error::set(0);
    return OpenedHive(builder).root()->value(0);
}

std::vector<u8> stored(std::u16string_view units) {
    return utf16Bytes(units);
}

TEST(TypedValue, StringsAndLists) {
    const struct {
        bool list;
        u32 type;
        std::vector<u8> data;
        u32 maxLength;
        std::string expected;  // of a list each string followed by ';'
        u32 error;
    } cases[] = {{false, 1, stored(u"text\0"sv), ANY, "text", 0},
                 {false, 2, stored(u"%A%\0\0\0"sv), ANY, "%A%", 0},
                 {false, 1, stored(u"a\0b\0"sv), ANY, "a\0b"s, 0},
                 {false, 1, {'a', 0, 'b', 0, 'c'}, ANY, "ab", 0},
                 {false, 1, stored(u"\U0001F600\xD800"), ANY, "\U0001F600\uFFFD", 0},
                 {false, 1, stored(u"123456789\0"sv), 10, "123456789", 0},
                 {false, 1, stored(u"1234567890\0"sv), 10, "(null)", 0x1012},
                 {false, 1, {'a'}, ANY, "(null)", 0x1013},
                 {false, 0, stored(u"a"), ANY, "(null)", 0x1011},
                 {true, 7, stored(u"a\0bc\0\0"sv), ANY, "a;bc;", 0},
                 {true, 7, stored(u"a\0\0b\0\0"sv), ANY, "a;", 0},
                 {true, 7, stored(u"a\0b\0"sv), ANY, "a;b;", 0},
                 {true, 7, stored(u"a\0b"sv), ANY, "(null)", 0x1014},
                 {true, 7, stored(u"\0a\0\0"sv), ANY, "", 0},
                 {true, 7, {'a', 0, 0, 0, 'b'}, ANY, "a;", 0},
                 {true, 7, stored(u"a\0\0"sv), 3, "a;", 0},
                 {true, 7, stored(u"a\0\0"sv), 2, "(null)", 0x1012},
                 {true, 1, stored(u"a\0\0"sv), ANY, "(null)", 0x1011}};
    for (const auto& test : cases) {
        const auto value = valueOf(test.type, test.data);
        std::string got;
        if (test.list) {
            const auto list = value->strings(test.maxLength);
            if (!list) got = "(null)";
            for (u64 i = 0; list && i < list->size(); ++i) got += utf8(list->at(i)) + ";";
        } else {
            got = utf8(value->string(test.maxLength));
        }
        EXPECT_EQ(got, test.expected);
        EXPECT_EQ(Platform::Error::get(), test.error) << testing::PrintToString(test.data);
    }
}

TEST(TypedValue, Numbers) {
    const struct {
        u32 type;
        std::vector<u8> data;
        u64 expected;
        u32 error;
    } cases[] = {{4, {4, 3, 2, 0x81}, 0x81020304, 0},
                 {5, {0, 0, 1, 2}, 258, 0},
                 {11, {8, 7, 6, 5, 4, 3, 2, 0x81}, 0x8102030405060708, 0},
                 {11, std::vector<u8>(8, 255), NO_NUMBER, 0},
                 {4, {1, 2, 3}, NO_NUMBER, 0x1015},
                 {11, std::vector<u8>(4), NO_NUMBER, 0x1015},
                 {6, std::vector<u8>(4), NO_NUMBER, 0x1011}};
    for (const auto& test : cases)
        for (const Storage storage : {Storage::automatic, Storage::single}) {
            const auto value = valueOf(test.type, test.data, storage);
            Platform::Error::set(77);
            EXPECT_EQ(value->number(), test.expected) << testing::PrintToString(test.data);
            EXPECT_EQ(Platform::Error::get(), test.error);
        }
}

TEST(TypedValue, UnreadableDataIsReported) {
    constexpr auto text = "3 Hive: Wrong read result when reading string, record =";
    const struct {
        u32 type;
        u32 size;
        const char* logged;
        u32 error;  // 0: whatever the data's cell gives
    } cases[] = {{1, 0x7FFFFFFF, text, 0},
                 {7, 0x7FFFFFFF, text, 0},
                 {1, 200, "\n1 Hive: string length (bytes):c8h (200)\n1 Hive: read result:0h (0)\n", 0},
                 {4, 4, "3 Hive: Wrong read result when reading u32 value, record =", 0x1016},
                 {11, 8, "3 Hive: Wrong read result when reading u64 value, record =", 0x1016}};
    for (const auto& test : cases) {
        HiveBuilder builder;
        builder.build({.values = {{.type = test.type, .data = {1}}}});
        builder.poke32(builder.value(u"", u"").record + 8, test.size);
        builder.poke32(builder.value(u"", u"").record + 12, builder.freeCell(100));
        const OpenedHive opened(builder);
        const auto value = opened.root()->value(0);
        LogCapture logged;
        const MemoryLimit limit;
        EXPECT_FALSE(value->string(ANY) || value->strings(ANY) || value->number() != NO_NUMBER);
        EXPECT_TRUE(!test.error || Platform::Error::get() == test.error);
        EXPECT_TRUE(logged.contains(test.logged)) << logged.text();
    }
}

}  // namespace
