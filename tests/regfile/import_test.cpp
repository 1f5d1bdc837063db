#include <algorithm>
#include <sstream>

#include "regfile/util.h"
#include "tests/hive/openedhive.h"
#include "tests/support/failingstripe.h"
#include "tests/support/regtext.h"

using namespace HiveTest;
using namespace std::literals;

namespace {

struct Outcome {
    bool done = false;
    std::string errors;  // what the error printer or, without one, the log got
    ImportCounts counts = {};
};

Outcome importFrom(const Ref<RegistryHive>& hive, const Ref<Interfaces::Stripe>& source, bool print = true,
                   const char16_t* prefix = u"") {
    const auto errors = makeRef<MemoryStripe>();
    const auto printer = printerTo(errors);
    LogCapture logged;
    Outcome outcome;
    outcome.done = RegFileUtil::importRegFile(hive, source, text(prefix), print ? printer : nullptr, true,
                                              &outcome.counts);
    printer->flush();
    outcome.errors = errors->text();
    std::istringstream lines(logged.text());
    for (std::string line; !print && std::getline(lines, line);)
        if (line.find("HiveReg") != std::string::npos) outcome.errors += line + "\n";
    return outcome;
}

Outcome importText(const Ref<RegistryHive>& hive, const std::string& body, bool print = true,
                   const char16_t* prefix = u"") {
    const auto source = makeRef<MemoryStripe>("\xEF\xBB\xBFv\n" + body);
    return importFrom(hive, source, print, prefix);
}

/// What lies below the root, as export text without its head, with "\n" for line ends and no separators in
/// front of sections.
std::string treeOf(const OpenedHive& hive) {
    const std::string whole = utf16ToUtf8(exportText(hive.root));
    std::string tree = "\n";
    for (const char byte : whole.substr(whole.find("[\\]") + 7))
        if (byte != '\r' && (byte != '\\' || !tree.ends_with("\n["))) tree += byte;
    return tree.substr(1);
}

std::string countsOf(const ImportCounts& counts) {
    std::ostringstream out;
    out << "+" << counts.keysCreated << " -" << counts.keysDeleted << " =" << counts.valuesSet << " -"
        << counts.valuesDeleted;
    return out.str();
}

enum Target { writable, readOnly, rootless, fullDisk };

/// A key A with values of each type, in a hive that can be changed or cannot.
Ref<RegistryHive> targetHive(Target target) {
    HiveBuilder builder;
    builder.freeCell(2000);
    builder.build({.keys = {{.name = u"A",
                             .values = {{u"s", 1, utf16Bytes(u"x\0"sv)},
                                        {u"b", 3, patternBytes(5)},
                                        {u"d", 4, {1, 2}},
                                        {u"n", 4, numberBytes(3)}}}}});
    if (target == rootless) builder.poke(builder.key().record + 4, "xx");
    const auto store = makeRef<MemoryStripe>(builder.finish());
    const auto failing = makeRef<FailingStripe>(store);
    if (target == fullDisk) failing->failAt(0, FailingStripe::writes, true);
    return HiveFile::open(failing,
                          target == readOnly   ? HiveFile::modeReadOnly
                          : target == fullDisk ? HiveFile::modeWriteThrough
                                               : HiveFile::modeReadWrite,
                          HiveFile::hiveCodepageLatin1);
}

struct Failure {
    Target target;
    std::string body;  // from line 2 on
    int line;
    std::string message;
    std::vector<std::string> details = {};
    u32 result = 1;
};

std::vector<Failure> failures() {
    const auto noValue = "Line is neither a section nor a name and data"s;
    const auto createFailed = "Failed to create key: "s, deleteFailed = "Failed to delete key: "s;
    const std::string longName(256, 'k');
    std::vector<Failure> cases = {
        {writable, "second\n", 2, "Unexpected value: second"},
        {rootless, "[A]", 2, "Failed to get root key"},
        {rootless, "[-A]", 2, "Failed to get root key"},
        {readOnly, "[A\\B]", 2, createFailed, {"Path: A\\B", "Error: 0x1000"}},
        {writable, "[A\\" + longName + "]", 2, createFailed, {"Path: A\\" + longName, "Error: 0x1006"}},
        {writable, "[A\0x]"s, 2, createFailed, {"Path: A\0x"s, "Error: 0x1006"}},
        {writable, "[A]\n\"s\0x\"=\"y\""s, 3, "Failed to craete value: s\0x of type: 0x1"s},
        {readOnly, "[-A]", 2, deleteFailed, {"Path: A", "Error: 0x1000"}},
        {writable, "[-\\]", 2, deleteFailed, {"Path: \\", "Error: 0x8445"}},
        {writable, "[A]\nx=\"y\"", 3, "Unexpected value: x", {"data: \"y\""}},
        {writable, "[A]\n\"\"=\"y\"", 3, "Unexpected value: \"\"", {"data: \"y\""}},
        {writable, "[A]\n\"s\"=\"y\"\n\n[-A]\n;\n@=-", 7, "Invalid regfile, first value before first key"},
        {writable, "[-C]\n\"s\"=\"y\"", 3, "Invalid regfile, first value before first key"},
        {writable, "[A]\n@=", 3, "Found empty value in regfile, name = "},
        {writable, "[A]\n\"n\"=", 3, "Found empty value in regfile, name = n"},
        {readOnly, "[A]\n\"s\"=\"y\"", 3, "Failed to set string value: s"},
        {writable, "[A]\n\"d\"=dword:1", 3, "Failed to set dword value: d"},
        {readOnly, "[A]\n\"n\"=dword:1", 3, "Failed to set dword value: n"},
        {writable, "[A]\n\"q\"=dword:100000000", 3, "Failed to set dword value: q"},
        {readOnly, "[A]\n\"b\"=hex:01", 3, "Failed to resize value: b"},
        {fullDisk, "[A]\n\"b\"=hex:01,\\\n  02,03,04,05\n", 3, "Failed to write data of value: b"},
        {readOnly, "[A]\n\"s\"=dword:1", 3, "Failed to remove old value: s"},
        {readOnly, "[A]\n\"b\"=hex(1f):01", 3, "Failed to remove old value: b"},
        {readOnly, "[A]\n@=\"y\"", 3, "Failed to craete value:  of type: 0x1"},
        {readOnly, "[A]\n\"new\"=hex(1a):", 3, "Failed to craete value: new of type: 0x1a"},
        {writable, "[A]\nx", 3, noValue, {}, 3},
        {writable, "[A]\n\"b\"=hex:01,\\\n", 3, noValue, {}, 3},
    };
    const std::pair<const char*, std::vector<const char*>> badData[] = {
        {"Invalid value: n", {"x", "--", "- ", "Dword:1", "he:00", " \"x\""}},
        {"Invalid string value: n", {"\"", "\"x", "\"x\" ", "\"x\"y"}},
        {"Invalid dword value: n",
         {"dword:", "dword:1g", "dword:-1", "dword:0x1", "dword:10000000000000000"}},
        {"Invalid hex value: n",
         {"hex",      "hex=",    "hex3:00",  "hex(",      "hex(3",      "hex(3)",
          "hex(3)00", "hex()",   "hex():00", "hex(g):00", "hex(-1):00", "hex(100000000):00",
          "hex:1",    "hex:001", "hex:00,1", "hex:0g",    "hex: 00",    "hex:00, 01",
          "hex:+1",   "hex:00;"}},
    };
    for (const auto& [message, texts] : badData)
        for (const char* data : texts)
            cases.push_back({writable, "[A]\n\"n\"="s + data, 3, message, {"data: "s + data}});
    return cases;
}

/// Numbers and NULs as the log writes them.
std::string forLog(std::string text) {
    if (const auto nul = text.find('\0'); nul != std::string::npos) text.replace(nul, 1, "\uFFFD");
    const auto at = text.find("0x");
    if (at == std::string::npos || text.starts_with("data: ")) return text;
    const std::string number = std::to_string(std::stoul(text.substr(at + 2), nullptr, 16));
    return text.substr(0, at) + text.substr(at + 2) + "h (" + number + ")";
}

TEST(Import, FailureNamesLineAndReason) {
    for (const Failure& test : failures()) {
        const std::string line = "line " + std::to_string(test.line) + ": ";
        std::string printed = line + test.message;
        std::string logged = "3 HiveRegImporter: " + line + forLog(test.message) + "\n";
        for (const std::string& detail : test.details) {
            printed += (printed.ends_with(" ") && detail == test.details.front() ? "" : " ") + detail;
            logged += "1 HiveRegImporter: " + forLog(detail) + "\n";
        }
        const std::string result = std::to_string(test.result);
        printed += "\nRegfile import failed: " + result + "\n";
        logged += "3 HiveRegUtil: Regfile import failed: " + forLog("0x" + result) + "\n";
        const Outcome toPrinter = importText(targetHive(test.target), test.body);
        EXPECT_FALSE(toPrinter.done) << test.body;
        EXPECT_EQ(toPrinter.errors, printed) << test.body;
        const Outcome toLog = importText(targetHive(test.target), test.body, false);
        EXPECT_FALSE(toLog.done) << test.body;
        EXPECT_TRUE(toLog.errors.ends_with(logged)) << test.body << "\n" << toLog.errors << logged;
    }
}

TEST(Import, FailureAtTheHead) {
    const auto hive = targetHive(writable);
    const auto headless = [] { return makeRef<MemoryStripe>("[A]"s); };
    const std::string first = "line 1: Invalid regfile, section before version string\n";
    EXPECT_EQ(importFrom(hive, headless()).errors, first + "Regfile import failed: 1\n");
    EXPECT_EQ(importFrom(hive, headless(), false).errors,
              "3 HiveRegImporter: " + first + "3 HiveRegUtil: Regfile import failed: 1h (1)\n");
    for (const char* name : {"X\\A", "P", "p\\A", ""}) {
        const std::string body = "["s + name + "]";
        EXPECT_EQ(importText(hive, body, true, u"P").errors,
                  "line 2: Prefix mismatch while importing reg file Key: "s + name +
                      " Prefix: P\\\nRegfile import failed: 1\n");
        EXPECT_EQ(importText(hive, "[-" + body.substr(1), false, u"P").errors,
                  "1 HiveRegImporter: Reg file version: v\n1 HiveRegImporter: Key: "s + name +
                      "\n1 HiveRegImporter: Prefix: P\\\n3 HiveRegImporter: line 2: Prefix mismatch\n"
                      "3 HiveRegUtil: Regfile import failed: 1h (1)\n");
    }
    EXPECT_EQ(importText(hive, "[A]\n[A\\N\\M]", false).errors,
              "1 HiveRegImporter: Reg file version: v\n1 HiveRegImporter: Create new key: A\\N\\M\n"
              "1 HiveRegImporter: Create new key: A\\N\\M\n");
    // Texts that cannot be read, and sources that cannot be opened.
    const auto failing = makeRef<FailingStripe>(headless());
    failing->failAt(0, FailingStripe::reads, true);
    const Outcome unread = importFrom(hive, failing);
    EXPECT_FALSE(unread.done);
    EXPECT_EQ(unread.errors, "Failed to read the text\nRegfile import failed: 2\n");
    const Outcome wide = importFrom(hive, makeRef<MemoryStripe>(std::vector<u8>{'v', 0}, 2U));
    EXPECT_FALSE(wide.done);
    EXPECT_EQ(wide.errors, "");
}

TEST(Import, NeedsAllItsArgumentsAsTheExportDoes) {
    const OpenedHive opened(5);
    const Ref<Key> root(opened.root);
    const Ref<RegistryHive> hive(opened.hive);
    const auto none = RegFileUtil::exportDefault;
    const auto path = text(u"/missing/file"), prefix = text(u"");
    const Ref<String> noText;
    const Ref<Interfaces::Stripe> stripe(makeRef<MemoryStripe>()), noStripe,
        wide(makeRef<MemoryStripe>(std::vector<u8>(), 2U));
    const auto writeTo = [&](const Ref<Key>& key, const auto& target, const Ref<String>& head) {
        return errorOf([&] { return RegFileUtil::exportRegFile(key, target, head, none, nullptr, false); });
    };
    const auto readFrom = [&](const Ref<RegistryHive>& into, const auto& source, const Ref<String>& head) {
        return errorOf([&] { return RegFileUtil::importRegFile(into, source, head, nullptr, false); });
    };
    for (const u32 error : {writeTo(nullptr, path, prefix), writeTo(root, noStripe, prefix),
                            readFrom(hive, noText, prefix), readFrom(hive, stripe, noText)})
        EXPECT_EQ(error, 0x8445u);
    constexpr u32 missing = 0x20000 + ENOENT;
    EXPECT_EQ(writeTo(root, path, prefix), missing);
    EXPECT_EQ(readFrom(hive, path, prefix), missing);
    EXPECT_EQ(writeTo(root, wide, prefix), 0x10002u);
    EXPECT_EQ(readFrom(hive, wide, prefix), 0x10002u);
}

TEST(Import, AppliesSectionsAndValues) {
    const std::string base = "[A]\n\"s\"=\"x\"\n\"b\"=hex:01,02\n[A\\B\\C]\n@=\"deep\"\n";
    const std::string a = "[A]\n\"s\"=\"x\"\n\"b\"=hex:01,02\n\n", b = "[A\\B]\n\n",
                      c = "[A\\B\\C]\n@=\"deep\"\n\n";
    const struct {
        std::string body;
        std::string tree;
        const char* counts;
        const char16_t* prefix = u"";
    } cases[] = {
        {"", a + b + c, "+0 -0 =0 -0"},
        {base, a + b + c, "+0 -0 =3 -0"},
        {"[\\X\\\\Y\\]\n[x/y]", a + b + c + "[X]\n\n[X\\Y]\n\n[x/y]\n\n", "+3 -0 =0 -0"},
        {"[H\\S\\a\\N]\n@=-\n[-H\\S\\A\\B]", a + "[A\\N]\n\n", "+1 -2 =0 -0", u"H/S"},
        {"[-A\\b]", a, "+0 -2 =0 -0"},
        {"[-A\\missing\\B]\n[-B]", a + b + c, "+0 -0 =0 -0"},
        {"[-A]\n[A]\n@=\"again\"", "[A]\n@=\"again\"\n\n", "+1 -3 =1 -0"},
        {"[A\\B\\N]\n[a\\b\\C]\n@=\"c\"\n[A\\B\\N\\M]\n@=\"m\"\n[A]\n@=\"a\"",
         "[A]\n\"s\"=\"x\"\n\"b\"=hex:01,02\n@=\"a\"\n\n" + b + "[A\\B\\C]\n@=\"c\"\n\n[A\\B\\N]\n\n" +
             "[A\\B\\N\\M]\n@=\"m\"\n\n",
         "+2 -0 =3 -0"},
        {"[A\\B\\C]\n[-A\\B]\n[A\\B\\C]\n@=\"new\"", a + b + "[A\\B\\C]\n@=\"new\"\n\n", "+2 -2 =1 -0"},
        {"[A]\n\"S\"=-\n\"none\"=-\n[A\\B\\C]\n@=-", "[A]\n\"b\"=hex:01,02\n\n" + b + "[A\\B\\C]\n\n",
         "+0 -0 =0 -2"},
        {"[A]\n\"S\"=\"yy\"\n\"B\"=hex(3):03", "[A]\n\"s\"=\"yy\"\n\"b\"=hex:03\n\n" + b + c, "+0 -0 =2 -0"},
        {"[A]\n\"s\"=dword:1F\n\"b\"=\"t\"", "[A]\n\"s\"=dword:0000001f\n\"b\"=\"t\"\n\n" + b + c,
         "+0 -0 =2 -0"},
        {"[A]\n\"s\"=-\n\"b\"=-\n@x=hex(7):41,00,00,00\n\"1\"=hex:,01,,fF,\n\"2\"=hex:\n\"3\"=hex(2):\n"
         "\"4\"=hex(FFFFFFFF):00\n\"5\"=dword:FFFFFFFF\n\"6\"=\"\"",
         "[A]\n@=hex(7):41,00,00,00\n\"1\"=hex:01,ff\n\"2\"=hex:\n\"3\"=hex(2):\n\"4\"=hex(ffffffff):00\n"
         "\"5\"=dword:ffffffff\n\"6\"=\"\"\n\n" +
             b + c,
         "+0 -0 =7 -2"},
        {"[-A]\n[Z]\n\"q\\\"q\"=\"a\"b\\\"c\\\\\"\n\"=\"=\"\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80\"",
         "[Z]\n\"q\\\"q\"=\"a\"b\\\"c\\\\\"\n\"=\"=\"\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80\"\n\n",
         "+1 -3 =2 -0"},
    };
    for (const u32 minor : {3u, 5u})
        for (const auto& test : cases) {
            OpenedHive hive(minor);
            EXPECT_EQ(countsOf(importText(hive.hive, base).counts), "+3 -0 =3 -0");
            const Outcome outcome = importText(hive.hive, test.body, true, test.prefix);
            EXPECT_TRUE(outcome.done) << outcome.errors;
            EXPECT_EQ(countsOf(outcome.counts), test.counts) << test.body;
            EXPECT_EQ(treeOf(hive), test.tree);
            hive.reopen();
            EXPECT_EQ(treeOf(hive), test.tree);
            hive.expectSound();
        }
}

TEST(Import, KeysOfTheSectionBeforeMayGoOrBeRenamed) {
    const std::string pause = ";" + std::string(70000, ' ') + "\n";
    for (const bool renamed : {false, true})
        for (const char* section : {"[A\\B]\n", "[A\\B\\C]\n"}) {
            OpenedHive hive(5);
            const auto source =
                makeRef<MemoryStripe>("\xEF\xBB\xBFv\n[A\\B\\C]\n" + pause + section + "@=\"x\"\n");
            source->interruptAt = 1;
            source->interrupt = [&] {
                const u32 code = Platform::Error::get();
                const auto a = hive.root->key(text(u"A")), b = a->key(text(u"B"));
                EXPECT_TRUE(renamed ? a->move(b, text(u"D")) : Util::recursiveKeyDelete(a, b));
                Platform::Error::set(code);  // not of the reading
            };
            const Outcome outcome = importFrom(hive.hive, source);
            EXPECT_TRUE(outcome.done) << outcome.errors;
            const bool deep = std::string_view(section).find('C') != std::string_view::npos;
            EXPECT_EQ(treeOf(hive), "[A]\n\n[A\\B]\n"s + (deep ? "\n[A\\B\\C]\n" : "") + "@=\"x\"\n\n" +
                                        (renamed ? "[A\\D]\n\n[A\\D\\C]\n\n" : ""));
        }
}

/// Which value goes, in lists of which length, how, and how the import ends.
TEST(Import, ListOnDiskIsRightAfterDeletions) {
    const std::string names = "abcd";
    for (u64 count = 1; count <= names.size(); ++count)
        for (u64 gone = 0; gone < count; ++gone)
            for (const char* change : {"-", "dword:1"})
                for (const char* end : {"", "[K2]\n", "[-K]x\n", "fails\n"}) {
                    OpenedHive hive(5);
                    std::string body = "[K]\n", left;
                    for (u64 i = 0; i < count; ++i) {
                        body += "\""s + names[i] + "\"=\"text\"\n";
                        if (i != gone) left += names[i];
                    }
                    if (*change == 'd') left += names[gone];
                    EXPECT_TRUE(importText(hive.hive, body).done);
                    importText(hive.hive, "[K]\n\""s + names[gone] + "\"=" + change + "\n" + end);
                    hive.reopen();
                    const auto key = hive.key(u"K");
                    std::string found;
                    for (u32 i = 0; i < key->values(); ++i) found += utf8(key->value(i)->name());
                    EXPECT_EQ(found, left) << count << gone << change << end;
                    hive.expectSound();
                }
}

TEST(Import, LargeValuesIntoNewHives) {
    for (const u32 minor : {3u, 5u})
        for (const u32 size : {5000u, 16345u, 300000u, 1000000u}) {
            const std::string string(size / 2, 't');
            std::string body = "[K]\n\"spacer 0\"=hex:";
            for (u32 i = 0; i < size; ++i) body += i % 25 ? "5a," : "a5,\\\n ";
            OpenedHive hive(minor);
            const Outcome outcome = importText(hive.hive, body + "\n\"t\"=\"" + string + "\"\n");
            EXPECT_TRUE(outcome.done) << outcome.errors;
            hive.reopen();
            const auto key = hive.key(u"K");
            ASSERT_EQ(key->values(), 2u);
            const std::vector<u8> data = dataOf(*key->value(text(u"spacer 0")));
            ASSERT_EQ(data.size(), size);
            for (u32 i = 0; i < size; ++i) ASSERT_EQ(data[i], i % 25 ? 0x5A : 0xA5) << minor << " " << i;
            EXPECT_EQ(utf8(key->value(text(u"t"))->string(size)), string);
            hive.expectSound();
        }
}

TEST(Import, RoundTripGivesTheSameTextAndAgainChangesNothing) {
    HiveBuilder builder;
    builder.allocate(30000);
    builder.build(
        {.values = {{u"top", 4, numberBytes(1)}},
         .keys = {{.name = u"A",
                   .values = {{u"", 1, utf16Bytes(u"a \"b\"\\\0"sv)},
                              {u"open", 1, utf16Bytes(u"unended")},
                              {u"odd", 1, {7}},
                              {u"q\"\\", 4, numberBytes(0x1A)},
                              {u"short", 4, {1, 2}},
                              {u"e", 3},
                              {u"es", 1},
                              {u"x", 2, utf16Bytes(u"%x%\0"sv)},
                              {u"l", 7, utf16Bytes(u"1\0002\0\0"sv)},
                              {u"type", 0xFFFF0001, patternBytes(3)},
                              {u"big", 3, patternBytes(20000)}},
                   .keys = {{.name = u"c/d"},
                            {.name = u"wide\u4E2D", .values = {{u"\u0416", 11, numberBytes(5, 8)}}}}}}});
    const OpenedHive source(builder);
    for (const u32 options : {u32{RegFileUtil::exportDefault}, u32{RegFileUtil::exportBinaryOnly}})
        for (const u32 minor : {3u, 5u}) {
            const std::string text = exportText(source.root, options);
            OpenedHive hive(minor);
            for (const bool again : {false, true}) {
                const std::vector<u8> before = hive.file();
                const Outcome outcome = importFrom(hive.hive, makeRef<MemoryStripe>(text));
                EXPECT_TRUE(outcome.done) << outcome.errors;
                EXPECT_EQ(countsOf(outcome.counts), again ? "+0 -0 =13 -0" : "+3 -0 =13 -0");
                EXPECT_TRUE(exportText(hive.root, options) == text) << minor << again;
                EXPECT_EQ(before == hive.file(), again) << "the same text again must change nothing";
            }
            hive.expectSound();
        }
}

}  // namespace
