// What sound hives give: keys and values by name and index, data in its forms and types, and iterators.

#include <functional>

#include "tests/hive/openedhive.h"

using namespace HiveTest;
using namespace std::literals;

namespace {

constexpr u32 FRAGMENT = 16344;
constexpr u32 ANY = 0xFFFFFFFF;
constexpr u64 NO_NUMBER = ~u64{0};

TEST(Subkeys, EveryNameGapAndIndexIsFoundInEachKindOfList) {
    const std::pair<u32, ListKind> kinds[] = {{3, ListKind::lf},   {3, ListKind::li},   {5, ListKind::lh},
                                              {3, ListKind::riLi}, {5, ListKind::riLh}, {5, ListKind::lh}};
    for (const auto& [minor, list] : kinds)
        for (const u32 count : {0u, 1u, 2u, 21u}) {
            SCOPED_TRACE(testing::Message() << minor << " " << int(list) << " " << count);
            KeyPlan plan{.list = list, .sublists = {0, 1, 2, 0, 4}};
            for (u32 i = 0; i < count; ++i) {
                plan.keys.push_back({.name = std::u16string(numbered(2 * i + 1)->view())});
                if (i % 2) plan.keys[i].name[0] = u'K';
            }
            HiveBuilder builder(minor);
            builder.build(plan);
            const auto root = OpenedHive(builder).root;
            LogCapture logged;
            ASSERT_EQ(root->keys(), count);
            for (u32 number = 0; number <= 2 * count; ++number) {
                const auto name = numbered(number);
                u32 position = 77;
                Ref<KeyObj> found;
                EXPECT_EQ(
                    errorOf([&] {
                        return bool(found = refCast<KeyObj>(root->binaryFindKey(name->view(), &position)));
                    }),
                    number % 2 ? 0 : 0x1003u);
                EXPECT_EQ(position, number / 2);
                EXPECT_TRUE(!found || found == root->key(position)) << number;
                EXPECT_EQ(root->linearFindKey(name->view(), &position), found);
                EXPECT_EQ(position, found ? number / 2 : ANY);
            }
            EXPECT_FALSE(root->key(count));
            EXPECT_EQ(logged.text(), "");
        }
}

TEST(Subkeys, ListOfAKeyWithoutSubkeysIsNoFailure) {
    HiveBuilder builder;
    builder.build({.keys = {{.name = u"a"}}});
    builder.poke32(builder.key().record + 24, 0);
    const auto root = OpenedHive(builder).root;
    LogCapture logged;
    EXPECT_TRUE(root->initSubkeys() && !root->key(0));
    EXPECT_TRUE(logged.contains("More items in lh list than expected"));
}

/// Hashes are made of the bytes in the hive's code page; what has none there takes leniency.
TEST(Subkeys, HashesFollowTheCodePage) {
    HiveBuilder builder;
    builder.build({});
    SubkeyHash hash{};
    const auto cp1252 = OpenedHive(builder, HiveFile::modeReadOnly, HiveFile::hiveCodepageCp1252).root;
    EXPECT_TRUE(cp1252->makeHash(keyListLH, text(u"\u20ACa"), hash, true, false));
    EXPECT_EQ(hash.hash, 0x80u * 37 + 65);
    const auto latin1 = OpenedHive(builder).root;
    EXPECT_FALSE(latin1->makeHash(keyListLH, text(u"a\u00FF"), hash, true, false)) << "U+0178 in upper case";
    EXPECT_TRUE(latin1->makeHash(keyListLH, text(u"a\u00FF"), hash, true, true));
    EXPECT_EQ(hash.hash, 65u * 37);
}

TEST(Objects, LiveOnesAreGivenAgainAndKeepAllAboveThem) {
    HiveBuilder builder;
    builder.build({.name = u"ROOT",
                   .values = {{u"NAME"}, {u"Name"}, {u"\u00E9\u20AC"}, {u""}},
                   .keys = {{.name = u"Sub"}}});
    Ref<KeyObj> child;
    {
        const OpenedHive opened(builder, HiveFile::modeReadWrite);
        const auto root = opened.root;
        EXPECT_EQ(utf8(root->name()), "") << "nameless, whatever its record says";
        child = root->key(0);
        EXPECT_EQ(root->key(text(u"sUB")), child);
        EXPECT_FALSE(child->readOnly());
        EXPECT_EQ(root->value(text(u"Name")), root->value(0)) << "the first of the name";
        EXPECT_EQ(root->value(text(u"\u00C9\u20AC")), root->value(2));
        EXPECT_EQ(root->value(text(u"")), root->value(3));
    }
    EXPECT_EQ(child->parent()->key(0), child);
    EXPECT_FALSE(child->parent()->parent());
}

template <typename Iterator>
std::string rest(const Ref<Iterator>& iterator) {
    std::string names;
    for (auto entry = iterator->next(); entry; entry = iterator->next()) names += utf8(entry->name());
    return names;
}

/// Iterators that die leave their place to later ones; the key must tell each living one once.
TEST(Iterators, EachLivingOneIsToldOnceOfAChange) {
    HiveBuilder builder;
    builder.build({.values = {{u"b"}, {u"d"}, {u"f"}}, .keys = {{u"b"}, {u"d"}, {u"f"}}});
    const OpenedHive opened(builder, HiveFile::modeReadWrite);
    const auto& root = opened.root;
    Ref<KeyIterator> iterators[] = {root->keyIterator(), root->keyIterator(), root->keyIterator()};
    iterators[1] = root->keyIterator();
    iterators[0] = root->keyIterator();
    const std::pair<std::function<bool()>, std::array<std::string, 3>> steps[] = {
        {[&] { return true; }, {"bdf", "bdf", "bdf"}},
        {[&] { return bool(root->createKey(text(u"c"))); }, {"bcdf", "df", "f"}},
        {[&] { return bool(root->createKey(text(u"a"))); }, {"bcdf", "cdf", "df"}},
        {[&] { return root->deleteKey(root->key(text(u"b"))); }, {"acdf", "cdf", "cdf"}},
        {[&] { return root->move(root->key(text(u"f")), text(u"B")); }, {"aBcd", "cd", "d"}},
        {[&] { return root->key(text(u"c"))->move(root->key(text(u"a")), text(u"away")); },
         {"Bcd", "Bcd", "cd"}},
    };
    for (const auto& [change, rests] : steps) {
        ASSERT_TRUE(change());
        for (u32 i = 0; i < 3; ++i) {
            EXPECT_EQ(rest(iterators[i]), rests[i]);
            iterators[i]->seek(i);
        }
    }
    const auto values = root->valueIterator();
    values->seek(2);
    ASSERT_TRUE(root->deleteValue(root->value(text(u"b"))));
    ASSERT_TRUE(root->createValue(text(u"z"), Value::valueBinary));
    EXPECT_EQ(rest(values), "fz");
    EXPECT_EQ(values->seek(0xFFFFFFFF), 3u);
    EXPECT_FALSE(values->next());
}

/// What readers are promised: the extents' capacities laid end to end, each bounded by its cell's offset less
/// 4, and of that the bytes from `offset` on, as many as wanted but no more than the value's length.
/// So cells near the start are bounded by their offset, those far from it by the version's extent.
TEST(Data, IsReadAtAnyOffsetAndCount) {
    for (const u32 minor : {3u, 5u})
        for (const u32 front : {8u, 0x1000u, 0x3FC0u, 1100000u})
            for (const u32 size : {5u, FRAGMENT, FRAGMENT + 1, 3 * FRAGMENT}) {
                SCOPED_TRACE(testing::Message() << minor << " " << size << " behind " << front);
                HiveBuilder builder(minor);
                builder.setHbinSize(3 << 20);  // all in one hbin, so that the file shows what lies behind
                builder.allocate(front);
                builder.build({.values = {{.name = u"Value", .data = patternBytes(size)}}});
                builder.allocate(patternBytes(1100000));  // to be run into
                const LaidValue& laid = builder.value(u"", u"Value");
                std::vector<u8> all;
                for (const u32 cell : laid.fragments.empty() ? std::vector{laid.data} : laid.fragments) {
                    const auto first = builder.bytes().begin() + 4096 + cell + 4;
                    all.insert(all.end(), first, first + std::min(minor == 3 ? 1048572 : FRAGMENT, cell - 4));
                }
                const auto value = OpenedHive(builder).root->value(0);
                const u32 bound = static_cast<u32>(laid.data ? std::min(laid.data - 4, 0xFFFFu) : 0);
                for (const u32 offset : {0u, 1u, bound - 1, bound, bound + 1, FRAGMENT - 1, FRAGMENT,
                                         2 * FRAGMENT + 1, size - 1, size, size + 1, 0xFFFFFFFFu})
                    for (const u32 count : {0u, 1u, 1000u, FRAGMENT, size - 1, size, size + 1, 0xFFFFFFFFu}) {
                        const u64 start = std::min<u64>(offset, all.size());
                        const u64 wanted = std::min<u64>(std::min(count, size), all.size() - start);
                        std::vector<u8> got(size + 8, 0xCC), expected(got);
                        std::copy_n(all.data() + start, wanted, expected.begin());
                        ASSERT_EQ(value->read(got.data(), offset, count), wanted) << offset << " " << count;
                        ASSERT_TRUE(got == expected) << offset << " " << count;
                    }
            }
}

TEST(Data, IsReadFromItsStartWhenResidentAndAsZerosBehindTheCache) {
    HiveBuilder builder;
    builder.build({.values = {{.name = u"small", .data = {1, 2, 3}}, {.name = u"large"}}});
    // The cache is filled to its end by an hbin whose last cell is the value's; behind it lies no memory.
    const auto data = patternBytes(10004);
    builder.addHbin(1 << 20);
    builder.allocate((1 << 20) - 32 - 10008);
    builder.poke32(builder.value(u"", u"large").record + 8, 10000);
    builder.poke32(builder.value(u"", u"large").record + 12, builder.allocate(data));
    const auto root = OpenedHive(builder).root;
    for (const u32 offset : {0u, 2u, 100u, 0xFFFFFFFFu}) {
        std::vector<u8> got(4, 0xCC);
        EXPECT_EQ(root->value(0)->read(got.data(), offset, offset ? 100 : 2), offset ? 3u : 2u);
        EXPECT_EQ(got, (std::vector<u8>{1, 2, offset ? u8{3} : u8{0xCC}, 0xCC}));
    }
    std::vector<u8> got(10000, 0xCC), expected(data.begin() + 9000, data.end());
    ASSERT_EQ(root->value(1)->read(got.data(), 9000, 10000), FRAGMENT - 9000);
    expected.resize(FRAGMENT - 9000);
    expected.resize(10000, 0xCC);
    EXPECT_EQ(got, expected);
}

TEST(Data, StripesReadPastItAndResizeBinaryValuesOnly) {
    const struct {
        u32 type, mode;
        u64 resized;  // asked for 50
    } cases[] = {{3, 0, 50}, {1, 0, 6}, {1, HiveFile::modeResizeAll, 50}};
    for (const auto& test : cases) {
        HiveBuilder builder;
        builder.allocate(20000);
        builder.build({.values = {{.name = u"Value", .type = test.type, .data = {1, 2, 3, 4, 5, 6}}}});
        builder.poke(builder.value(u"", u"Value").data + 10, std::vector<u8>{7, 8});
        const OpenedHive opened(builder, test.mode);
        const auto stripe = opened.root->value(0)->binary();
        std::vector<u8> got(8);
        EXPECT_EQ(stripe->read(got.data(), 4) + stripe->read(got.data() + 4, 4), 8u);
        EXPECT_EQ(got, (std::vector<u8>{1, 2, 3, 4, 5, 6, 7, 8}));
        for (const u64 position : {u64{2}, u64{7}, u64{1} << 32})
            EXPECT_EQ(stripe->seek(position), std::min<u64>(position, 6));
        EXPECT_EQ(stripe->minElementCount(), test.resized == 50 ? 0u : 6u);
        EXPECT_EQ(stripe->maxElementCount(), test.resized == 50 ? 1048572u : 6u);
        EXPECT_EQ(errorOf([&] { return stripe->trim(1) + stripe->clear(1); }), 0x10002u);
        EXPECT_EQ(errorOf([&] { return stripe->read(got.data(), u64{1} << 32); }), 0x8446u);
        EXPECT_EQ(errorOf([&] { return stripe->write(got.data(), u64{1} << 32); }), 0x8446u);
        EXPECT_EQ(errorOf([&] { return stripe->setElementCount(u64{1} << 32); }), 0x8446u);
        EXPECT_EQ(stripe->setElementCount(50), test.resized);
    }
}

TEST(TypedValues, AreReadAsTheirDataAllows) {
    const auto units = [](std::u16string_view text) { return utf16Bytes(text); };
    const struct {
        u32 type;
        std::vector<u8> data;
        u32 maxLength;
        std::string text;  // of a list each string followed by ';', or a number
        u32 error;
    } cases[] = {
        {1, units(u"text\0"sv), ANY, "text", 0},
        {2, units(u"%A%\0\0\0"sv), ANY, "%A%", 0},
        {1, units(u"a\0b\0"sv), ANY, "a\0b"s, 0},
        {1, {'a', 0, 'b', 0, 'c'}, ANY, "ab", 0},
        {1, units(u"\U0001F600\xD800"), ANY, "\U0001F600\uFFFD", 0},
        {1, units(u"123456789\0"sv), 10, "123456789", 0},
        {1, units(u"1234567890\0"sv), 10, "(null)", 0x1012},
        {1, {'a'}, ANY, "(null)", 0x1013},
        {7, units(u"a\0bc\0\0"sv), ANY, "a;bc;", 0},
        {7, units(u"a\0\0b\0\0"sv), ANY, "a;", 0},
        {7, units(u"a\0b\0"sv), ANY, "a;b;", 0},
        {7, units(u"a\0b"sv), ANY, "(null)", 0x1014},
        {7, units(u"\0a\0\0"sv), ANY, "", 0},
        {7, {'a', 0, 0, 0, 'b'}, ANY, "a;", 0},
        {7, units(u"a\0\0"sv), 3, "a;", 0},
        {7, units(u"a\0\0"sv), 2, "(null)", 0x1012},
        {4, {4, 3, 2, 0x81}, ANY, "2164392708", 0},
        {5, {0, 0, 1, 2}, ANY, "258", 0},
        {11, {8, 7, 6, 5, 4, 3, 2, 0x81}, ANY, "9295995896645158664", 0},
        {11, std::vector<u8>(8, 255), ANY, std::to_string(NO_NUMBER), 0},
        {4, {1, 2, 3}, ANY, std::to_string(NO_NUMBER), 0x1015},
        {11, std::vector<u8>(4), ANY, std::to_string(NO_NUMBER), 0x1015},
    };
    for (const auto& test : cases)
        for (const Storage storage : {Storage::automatic, Storage::single}) {
            HiveBuilder builder;
            builder.allocate(2000);
            builder.build({.values = {{.type = test.type, .data = test.data, .storage = storage}}});
            const auto value = OpenedHive(builder).root->value(0);
            const bool isText = test.type < 3, isList = test.type == 7;
            std::string got;
            Error::set(0);
            if (isList) {
                const auto list = value->strings(test.maxLength);
                if (!list) got = "(null)";
                for (u64 i = 0; list && i < list->size(); ++i) got += utf8(list->at(i)) + ";";
            } else {
                got = isText ? utf8(value->string(test.maxLength)) : std::to_string(value->number());
            }
            EXPECT_EQ(got, test.text);
            EXPECT_EQ(Error::get(), test.error) << testing::PrintToString(test.data);
            EXPECT_TRUE(isText || errorOf([&] { return bool(value->string(ANY)); }) == 0x1011);
            EXPECT_TRUE(isList || errorOf([&] { return bool(value->strings(ANY)); }) == 0x1011);
            EXPECT_TRUE((!isText && !isList) || errorOf([&] { return ~value->number(); }) == 0x1011);
        }
}

TEST(TypedValues, AreWrittenAsTheirTypeAllows) {
    const u64 wide = 0x1122334455667788;
    using Set = std::function<bool(ValueObj&)>;
    const auto list = [](std::initializer_list<std::u16string_view> texts) {
        auto result = makeRef<TVector<Ref<String>>>();
        for (const auto& one : texts) result->append(text(one));
        return result;
    };
    const Set cut = [](ValueObj& v) { return v.setString(text(u"ab\0c"sv)); };
    const Set two = [&](ValueObj& v) { return v.setStrings(list({u"a", u"\xD83D\xDE00"})); };
    const Set nothing = [&](ValueObj& v) { return v.setStrings(list({})); };
    const Set number = [](ValueObj& v) { return v.setNumber(0x01020304); };
    const Set wideNumber = [](ValueObj& v) { return v.setNumber(wide); };
    const struct {
        u32 type;
        Set set;
        u32 error;
        std::vector<u8> data;  // afterwards
    } cases[] = {
        {1, cut, 0, utf16Bytes(u"ab\0"sv)},
        {7, nothing, 0, {0, 0}},
        {7, two, 0, utf16Bytes(u"a\0\xD83D\xDE00\0\0"sv)},
        {4, number, 0, {4, 3, 2, 1}},
        {5, number, 0, {1, 2, 3, 4}},
        {11, number, 0, {4, 3, 2, 1, 0, 0, 0, 0}},
        {11, wideNumber, 0, numberBytes(wide, 8)},
        {4, wideNumber, ErrorCode::numberTooLarge, {0, 0, 0, 0}},
        {7, cut, ErrorCode::wrongType, {}},
        {1, two, ErrorCode::wrongType, {}},
        {3, number, ErrorCode::wrongType, {}},
        {1, [](ValueObj& v) { return v.setString(nullptr); }, ErrorCode::nullArgument, {}},
        {7, [](ValueObj& v) { return v.setStrings(nullptr); }, ErrorCode::nullArgument, {}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << "type " << test.type << " case " << &test - cases);
        OpenedHive hive(5);
        const auto value =
            refCast<ValueObj>(hive.root->createValue(text(u"v"), static_cast<Value::ValueType>(test.type)));
        EXPECT_EQ(errorOf([&] { return test.set(*value); }), test.error);
        EXPECT_EQ(dataOf(*value), test.data);
        if (test.error) continue;
        if (test.type == 4 || test.type == 11) {
            EXPECT_EQ(value->size(5), 5u);
            EXPECT_EQ(errorOf([&] { return test.set(*value); }), ErrorCode::wrongNumberLength);
        }
        ASSERT_TRUE(hive.root->deleteValue(value));
        EXPECT_EQ(errorOf([&] { return test.set(*value); }), ErrorCode::invalidObject);
        EXPECT_FALSE(value->setType(Value::valueBinary));
    }
}

TEST(Values, LengthsAndNamesThatCannotBeStoredAreRefused) {
    for (const u32 minor : {3u, 5u})
        for (const u32 size : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, minor == 3 ? 0x7FFFFFF5u : 1071104041u})
            for (const u32 start : {3u, 40000u}) {
                HiveBuilder builder(minor);
                builder.build(
                    {.values = {{.data = patternBytes(start)}}, .className = std::u16string(32000, u'c')});
                OpenedHive hive(builder, HiveFile::modeReadWrite);
                const auto value = hive.root->value(0);
                EXPECT_EQ(errorOf([&] { return value->size(size) != start; }), ErrorCode::allocationFailed);
                EXPECT_TRUE(hive.file() == builder.bytes()) << size << " from " << start;
                EXPECT_TRUE(dataOf(*value) == patternBytes(start));
            }
    const std::tuple<std::u16string, u32, u32> names[] = {
        {u"", 0, 1}, {u"Gr\u00F6\u00DFe", 5, 1}, {std::u16string(16383, u'\u0416'), 32766, 0}};
    for (const auto& [name, bytes, compressed] : names)
        for (const bool rename : {false, true}) {
            OpenedHive hive(5);
            const auto value =
                refCast<ValueObj>(hive.root->createValue(text(rename ? u"old" : name), Value::valueString));
            // Not the last of the list: renaming that one leaves a trace in the list.
            EXPECT_TRUE(!rename || hive.root->createValue(text(u"last"), Value::valueString));
            ASSERT_TRUE(!rename || hive.root->move(Ref<Value>(value), text(name)));
            EXPECT_TRUE(value->setType(static_cast<Value::ValueType>(0x12345)));
            const u32 vk = value->recordOfs();
            EXPECT_EQ(hive.peek32(vk + 4), u32{'v'} | u32{'k'} << 8 | bytes << 16);
            EXPECT_EQ(hive.peek32(vk + 16), 0x12345u);
            EXPECT_EQ(hive.peek32(vk + 20), compressed);
            // A renamed record asks for two bytes more.
            EXPECT_EQ(0 - hive.peek32(vk), (24 + bytes + 2 * rename + 7) / 8 * 8);
            hive.expectSound();
        }
    OpenedHive hive(5);
    const auto tooLong = text(std::u16string(16384, u'n'));
    EXPECT_EQ(errorOf([&] { return bool(hive.root->createValue(tooLong, Value::valueString)); }),
              ErrorCode::valueNameTooLong);
}

TEST(Values, AValueWithoutAReadableNameIsToldOfByEachSearch) {
    HiveBuilder builder(5);
    builder.build(KeyPlan{.values = {{.name = u"\u00E9"}}});
    std::string said[2];
    for (const bool searched : {false, true}) {
        const OpenedHive opened(builder, HiveFile::modeReadWrite, HiveFile::hiveCodepageAscii);
        LogCapture logged;
        EXPECT_FALSE(opened.root->value(text(u"x")));
        EXPECT_TRUE(searched ? opened.root->createMissingValue(text(u"x"), Value::valueBinary)
                             : opened.root->createValue(text(u"x"), Value::valueBinary));
        said[searched] = logged.text();
    }
    EXPECT_NE(said[0], "");
    EXPECT_EQ(said[0], said[1]);
}

}  // namespace
