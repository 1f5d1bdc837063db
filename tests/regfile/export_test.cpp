
#include "tests/hive/openedhive.h"
#include "tests/support/failingstripe.h"
#include "tests/support/regtext.h"

using namespace HiveTest;
using namespace std::literals;

namespace {

const std::string HEAD = "\uFEFFWindows Registry Editor Version 5.00\r\n\r\n";

bool exportTo(const Ref<Interfaces::Stripe>& target, const Ref<Key>& key, const char16_t* prefix = u"",
              u32 options = 0, const Ref<Platform::CharPrinter>& errors = nullptr) {
    return RegFileUtil::exportRegFile(key, target, text(prefix),
                                      static_cast<RegFileUtil::ExportOptions>(options), errors, false);
}

struct Result {
    bool done;
    std::string text;
    std::string errors;  // what the error printer or, without one, the log got
};

Result exportKey(const Ref<Key>& key, bool printErrors = false) {
    const auto target = makeRef<MemoryStripe>();
    const auto errors = makeRef<MemoryStripe>();
    LogCapture logged;
    const auto printer = printerTo(errors);
    const bool done = exportTo(target, key, u"", 0, printErrors ? printer : nullptr);
    printer->flush();
    return {done, utf16ToUtf8(target->text()), printErrors ? errors->text() : logged.text()};
}

TEST(Export, SmallTreeInEachModeAndWithPrefixes) {
    const KeyPlan tree{.name = u"A",
                       .values = {{u"Text", 1, utf16Bytes(u"a \"b\"\\\u20AC\0"sv)},
                                  {u"", 1},
                                  {u"q\"\\", 4, numberBytes(0x1A)},
                                  {u"max", 4, numberBytes(0xFFFFFFFF)},
                                  {u"bin", 3, {0, 10, 255}},
                                  {u"none", 3},
                                  {u"exp", 2, utf16Bytes(u"x")},
                                  {u"qword", 11, numberBytes(258, 8)},
                                  {u"odd", 0xFFFFFFFF, {1}}},
                       .keys = {{.name = u"B", .keys = {{.name = u"c/d"}}}, {.name = u"E"}}};
    const std::string readable =
        "\"Text\"=\"a \"b\"\\\u20AC\"\r\n@=\"\"\r\n\"q\"\\\"=dword:0000001a\r\n\"max\"=dword:ffffffff\r\n"
        "\"bin\"=hex:00,0a,ff\r\n\"none\"=hex:\r\n";
    const std::string binary =
        "\"Text\"=hex(1):61,00,20,00,22,00,62,00,22,00,5c,00,ac,20,00,00\r\n@=hex(1):\r\n"
        "\"q\"\\\"=hex(4):1a,00,00,00\r\n\"max\"=hex(4):ff,ff,ff,ff\r\n"
        "\"bin\"=hex(3):00,0a,ff\r\n\"none\"=hex(3):\r\n";
    const std::string rest =
        "\"exp\"=hex(2):78,00\r\n\"qword\"=hex(b):02,01,00,00,00,00,00,00\r\n\"odd\"=hex(ffffffff):"
        "01\r\n\r\n";
    const struct {
        const char16_t* path;
        const char16_t* prefix;
        u32 options;
        std::string head;
        std::string top;  // as it stands in section lines
    } cases[] = {
        {u"A", u"", 0, HEAD, "\\A"},
        {u"A", u"/HKLM//x\\/y/", 2, HEAD, "HKLM\\x/y\\A"},
        {u"", u"p", 0, HEAD + "[p\\]\r\n\r\n", "p\\\\A"},
        {u"A", u"p", 1, "old", "p\\A"},  // appended
        {u"A", u"p", 3, "old", "p\\A"},
    };
    HiveBuilder builder;
    builder.build({.keys = {tree}});
    const OpenedHive opened(builder);
    for (const auto& test : cases) {
        const auto target = makeRef<MemoryStripe>(utf16Bytes(u"old"));
        EXPECT_TRUE(exportTo(target, opened.key(test.path), test.prefix, test.options));
        std::string expected =
            test.head + "[" + test.top + "]\r\n" + (test.options & 2 ? binary : readable) + rest;
        for (const char* below : {"\\B", "\\B\\c/d", "\\E"}) expected += "[" + test.top + below + "]\r\n\r\n";
        EXPECT_EQ(utf16ToUtf8(target->text()), expected);
    }
}

TEST(Export, BinaryLinesWrapByByteCount) {
    for (const u32 bytes : {1u, 25u, 26u, 50u, 51u, 40000u, 70000u}) {
        HiveBuilder builder(3);
        builder.allocate(100000);
        const auto data = patternBytes(bytes);
        builder.build({.values = {{.data = data}}});
        std::string line = "@=hex:";
        for (u32 i = 0; i < bytes; ++i) {
            line += i == 0 ? "" : i % 25 ? "," : ",\\\r\n  ";
            for (const int digit : {data[i] >> 4, data[i] & 15}) line += "0123456789abcdef"[digit];
        }
        EXPECT_EQ(exportKey(OpenedHive(builder).root).text, HEAD + "[\\]\r\n" + line + "\r\n\r\n") << bytes;
    }
}

/// A hive that cannot change is read in another way than one that can.
TEST(Export, ReadOnlyAndChangeableHivesGiveTheSame) {
    const std::u16string longest(256, u'n'), tooLong(257, u'n');
    std::vector<ValuePlan> values;
    for (const u32 size : {0u, 1u, 2u, 4u, 5u, 24u, 25u, 100u, 16344u, 16345u, 40000u})
        for (const u32 type : {1u, 3u, 4u})
            values.push_back({.name = {u'v', static_cast<char16_t>(0x3B1 + values.size())},
                              .type = type,
                              .data = patternBytes(size, type)});
    for (const NameForm form : {NameForm::compressed, NameForm::utf16})
        for (const std::u16string& name :
             {std::u16string(), std::u16string(u"\u00E9\u0080"), longest, tooLong})
            values.push_back({.name = name, .type = 1, .data = utf16Bytes(u"\0a\0\0"sv), .nameForm = form});
    for (const u32 minor : {3u, 5u})
        for (const u32 before : {0u, 60000u})  // data near the start of the hive does not come whole
            for (const auto page :
                 {HiveFile::hiveCodepageAscii, HiveFile::hiveCodepageLatin1, HiveFile::hiveCodepageCp1250}) {
                SCOPED_TRACE(testing::Message() << minor << " " << before << " " << page);
                HiveBuilder builder(minor);
                if (before) builder.allocate(before);
                builder.build({.keys = {{.name = u"A", .values = values}, {.name = u"B", .values = values}}});
                const OpenedHive fixed(builder, HiveFile::modeReadOnly, page);
                const OpenedHive open(builder, HiveFile::modeReadWrite, page);
                for (const char16_t* path : {u"", u"B"}) {
                    const Result first = exportKey(fixed.key(path)), second = exportKey(open.key(path));
                    EXPECT_EQ(first.done, second.done);
                    EXPECT_EQ(first.text, second.text);
                    EXPECT_EQ(first.errors, second.errors);
                    EXPECT_EQ(first.done, (before || *path) && page != HiveFile::hiveCodepageAscii)
                        << first.errors;
                }
            }
}

TEST(Export, UnreadableTextFallsBackToBinary) {
    HiveBuilder builder;
    builder.build({.values = {{u"s", 1, {7}}, {u"", 4, {1, 2}}, {u"d", 4, numberBytes(2)}}});
    for (const bool printErrors : {false, true}) {
        const Result result = exportKey(OpenedHive(builder).root, printErrors);
        EXPECT_TRUE(result.done);
        EXPECT_EQ(result.text,
                  HEAD + "[\\]\r\n\"s\"=hex(1):07\r\n@=hex(4):01,02\r\n\"d\"=dword:00000002\r\n\r\n");
        EXPECT_EQ(result.errors,
                  printErrors ? "Invalid string value: \\/s\nUsing binary fallback\n"
                                "Invalid dword value: \\/\nUsing binary fallback\n"
                              : "2 HiveRegExporter: Invalid string value, using binary fallback: \\/s\n"
                                "2 HiveRegExporter: Invalid dword value, using binary fallback: \\/\n");
    }
}

TEST(Export, FirstFailureEndsItWithAMessage) {
    const auto badKey = "Invalid name of a subkey, parent:"s, badValue = "Invalid name of a value. "s;
    const auto badData = "Failed to read binary data of: \\/v"s, keys = "Failed to read the subkeys of: \\"s;
    const auto values = "Failed to read the values of: \\"s,
               tooMuch = "More data than the hive can hold: \\/v"s;
    const auto fallback = "Invalid string value: \\/v\nUsing binary fallback\n"s;
    const auto bad = numberBytes(0x7FFFFFF8);
    enum Cell { root, list, key, value };
    const struct {
        Cell cell;
        u32 at;
        std::vector<u8> damage;
        u32 type;  // of the first value, of 10 bytes in a cell
        std::string printed;
        std::string logged;
    } cases[] = {
        {key, 4, {'x', 'x'}, 3, badKey + "\\\\", badKey + " \\\\"},
        {key, 80, {0xE4}, 3, badKey + "\\\\", badKey + " \\\\"},  // a name without text
        {list, 4, {'x', 'x'}, 3, keys, keys},
        {value, 4, {'x', 'x'}, 3, badValue + "key: \\", badValue + "parent: \\"},
        {value, 24, {0xE4}, 3, badValue + "key: \\", badValue + "parent: \\"},
        {root, 44, bad, 3, values, values},
        {root, 40, numberBytes(0xFFFFFFFF), 3, values, values},
        {root, 24, numberBytes(0xFFFFFFFF), 3, keys, keys},
        {value, 12, bad, 3, badData, badData},
        {value, 12, bad, 1, fallback + badData, badData},
        {value, 8, numberBytes(0x7FFFFFFF), 3, tooMuch, tooMuch},
        {value, 8, numberBytes(0x7FFFFFFF), 1, fallback + tooMuch, tooMuch},
    };
    for (const auto& test : cases)
        for (const bool printErrors : {false, true}) {
            SCOPED_TRACE(testing::Message() << test.cell << " " << test.at << " " << printErrors);
            HiveBuilder builder;
            builder.allocate(20000);
            builder.build(
                {.values = {{u"v", test.type, patternBytes(10)}, {u"w"}}, .keys = {{u"B"}, {u"C"}}});
            const u32 cells[] = {builder.key().record, builder.key().list, builder.key(u"B").record,
                                 builder.value(u"", u"v").record};
            builder.poke(u64{cells[test.cell]} + test.at, test.damage);
            const auto start = OpenedHive(builder, HiveFile::modeReadOnly, HiveFile::hiveCodepageAscii).root;
            const MemoryLimit limit;
            const Result result = exportKey(start, printErrors);
            EXPECT_FALSE(result.done);
            if (printErrors)
                EXPECT_EQ(result.errors, test.printed + "\n");
            else
                EXPECT_TRUE(result.errors.ends_with("3 HiveRegExporter: " + test.logged + "\n"))
                    << result.errors;
            const bool inKeys = test.cell == key || test.printed == keys;
            EXPECT_EQ(result.text.find("\"w\"=") != std::string::npos, inKeys);
            EXPECT_EQ(result.text.find("C]"), std::string::npos);
        }
}

/// Each operation of the target fails in turn; no failure may be taken for a whole export or stay unreported.
TEST(Export, TargetThatFailsMakesItFail) {
    HiveBuilder builder;
    builder.allocate(20000);
    builder.build({.values = {{.data = patternBytes(15000)}}, .keys = {{.name = u"B"}}});
    const OpenedHive opened(builder);
    for (const u32 options : {0u, 1u})
        for (const u32 kinds : {u32{FailingStripe::allWhole}, u32{FailingStripe::shortWrites}})
            for (u64 failing = 0, done = 0; !done; ++failing) {
                const auto store = makeRef<MemoryStripe>(std::vector<u8>(100));
                const auto target = makeRef<FailingStripe>(store);
                target->failAt(failing, kinds);
                LogCapture logged;
                done = exportTo(target, opened.root, u"", options);
                EXPECT_EQ(done, target->failures() == 0) << options << " " << kinds << " " << failing;
                EXPECT_EQ(logged.count("3 HiveRegUtil: Failed to "), done ? 0u : 1u) << logged.text();
            }
}

// Regression: with a count taken at the start, a key created during the walk pushed the last one out.
TEST(Export, GivesEveryKeyAndValueThatIsThereAllTheTime) {
    for (const bool create : {true, false}) {
        HiveBuilder builder;
        KeyPlan tree{.keys = {{.name = u"a"}, {.name = u"b"}, {.name = u"m"}, {.name = u"z"}}};
        tree.keys[0].values = {{u"1", 3, patternBytes(15000)}, {u"2"}, {u"3"}};
        builder.allocate(20000);
        builder.build(tree);
        const OpenedHive opened(builder, HiveFile::modeReadWrite);
        const Ref<Key> first = opened.root->key(0);
        const auto target = makeRef<MemoryStripe>();
        target->interrupt = [&] {
            if (create) {
                EXPECT_TRUE(opened.root->createKey(text(u"n")) &&
                            first->createValue(text(u"4"), Value::valueBinary));
            } else {
                EXPECT_TRUE(opened.root->deleteKey(opened.root->key(text(u"m"))) &&
                            first->deleteValue(first->value(text(u"2"))));
            }
        };
        EXPECT_TRUE(exportTo(target, opened.root));
        std::string names;
        const std::string all = utf16ToUtf8(target->text());
        for (const char* name : {"\"1\"", "\"2\"", "\"3\"", "\"4\"", "\\b]", "\\m]", "\\n]", "\\z]"})
            if (all.find(name) != std::string::npos) names += name;
        EXPECT_EQ(names, create ? "\"1\"\"2\"\"3\"\"4\"\\b]\\m]\\n]\\z]" : "\"1\"\"3\"\\b]\\z]");
    }
}

/// Lists that name the same records again and again, so that a walk doubles at each level or never ends; but
/// the fullest of sound hives is not too much.
TEST(Export, DamagedTreesThatGrowWithoutEndAreLeftSoon) {
    KeyPlan full{.values = std::vector<ValuePlan>(900)};  // the least that a record can be
    full.values.push_back({.data = patternBytes(500000)});
    HiveBuilder fullest;
    fullest.build(full);
    EXPECT_TRUE(exportKey(OpenedHive(fullest).root).done);
    enum Damage { doubling, ring, sameData };
    const std::pair<Damage, const char*> cases[] = {
        {doubling, "3 HiveRegExporter: More keys and values than the hive can hold: "},
        {ring, "3 HiveRegExporter: Invalid name of a subkey, parent: "},
        {sameData, "3 HiveRegExporter: More data than the hive can hold: "},
    };
    for (const auto& [damage, message] : cases) {
        SCOPED_TRACE(damage);
        KeyPlan tree{.keys = {{}}};
        for (u32 i = 0; i < 60 && damage == doubling; ++i)
            tree = {.name = u"d", .keys = {std::move(tree), {.name = u"t"}}};
        for (u32 i = 0; i < 100 && damage == sameData; ++i)
            tree.values.push_back({.data = patternBytes(i ? 10 : 2000)});
        HiveBuilder builder;
        builder.allocate(4000);
        builder.build(tree);
        std::u16string path;
        for (u32 i = 0; i < 60 && damage == doubling; ++i, path += i == 1 ? u"d" : u"/d") {
            const LaidKey& key = builder.key(path);
            builder.poke32(key.list + 16, builder.peek32(key.list + 8));
            builder.poke16(key.record + 76, 0);  // without names the text grows but little
        }
        const LaidKey& root = builder.key();
        if (damage == ring) builder.poke32(root.list + 8, root.record);
        for (u32 i = 1; i < 100 && damage == sameData; ++i)
            builder.poke32(root.valueList + 4 + 4 * i, builder.peek32(root.valueList + 4));
        const Result result = exportKey(OpenedHive(builder).root);
        EXPECT_FALSE(result.done);
        EXPECT_NE(result.errors.find(message), std::string::npos) << result.errors.substr(0, 2000);
        EXPECT_LT(result.text.size(), 1u << 24);
    }
}

}  // namespace
