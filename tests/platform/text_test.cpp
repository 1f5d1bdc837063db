#include <gtest/gtest.h>

#include <chrono>

#include "platform/ini/iniparser.h"
#include "platform/iochar/charwriter.h"
#include "platform/system/error.h"
#include "platform/text/reader.h"
#include "platform/text/writer.h"
#include "tests/support/memorystripe.h"

using namespace Platform;
using namespace HiveTest;
using Libraries::Files::Text::Encoding;
using Libraries::Files::Text::Reader;
using Libraries::Files::Text::Writer;

namespace {

using Units = std::u16string;

Ref<MemoryStripe> storeOf(const std::string& bytes, u64 mostAtOnce = ~u64{0}) {
    auto store = makeRef<MemoryStripe>(bytes);
    store->mostAtOnce = mostAtOnce;
    return store;
}

/// The whole text, taken `piece` units at a time.
Units readAll(const Ref<MemoryStripe>& stripe, Encoding encoding, u64 piece = 1000) {
    const auto reader = Reader::create(stripe, encoding, nullptr);
    Units all, part(piece, u'\0');
    while (const u64 count = reader->read(ShPtr(part.data()), piece)) all.append(part, 0, count);
    EXPECT_EQ(reader->pos(), all.size());
    return all;
}

std::string utf16(const Units& units, bool bigEndian = false) {
    std::string bytes;
    for (const char16_t unit : units)
        for (const int shift : bigEndian ? std::vector{8, 0} : std::vector{0, 8})
            bytes.push_back(static_cast<char>(unit >> shift & 0xFF));
    return bytes;
}

TEST(TextReader, SettlesTheEncodingAndReplacesMalformedSequences) {
    struct {
        const char* what;
        std::string bytes;
        Encoding given;
        Units units;
    } const cases[] = {
        {"empty", "", Encoding::utf16Le, u""},
        {"only a mark", "\xFF\xFE", Encoding::utf8, u""},
        {"LE mark", "\xFF\xFE" + utf16(u"a\u20AC"), Encoding::utf8, u"a\u20AC"},
        {"BE mark", "\xFE\xFF" + utf16(u"a\u20AC", true), Encoding::utf16Le, u"a\u20AC"},
        {"UTF-8 mark", "\xEF\xBB\xBF\xC3\xA4", Encoding::utf16Le, u"\u00E4"},
        {"half a mark", "\xEF\xBB", Encoding::utf8, u"\uFFFD"},
        {"LE, odd trailing byte", utf16(u"ab") + "x", Encoding::utf16Le, u"ab"},
        {"LE, lone surrogates", utf16(u"\xDC00\xD800 "), Encoding::utf16Le, u"\xDC00\xD800 "},
        {"LE, neither NUL nor UTF-8", utf16(u"\u4E2D\u6587"), Encoding::utf16Le, u"\u4E2D\u6587"},
        {"UTF-8 without mark", "x\xC3\xA4", Encoding::utf16Le, u"x\u00E4"},
        {"a NUL keeps LE", std::string("ab\0c", 4), Encoding::utf16Le, u"\u6261\u6300"},
        {"BE as told", utf16(u"ab", true), Encoding::utf16Be, u"ab"},
        {"ANSI as told", "a\xE4", Encoding::ansi, u"a\u00E4"},
        {"one LE mark only", "\xFF\xFE" + utf16(u"\uFEFFa"), Encoding::utf16Le, u"\uFEFFa"},
        {"limits", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
         Encoding::utf8, u"\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF"},
        {"no lead", "\x80z", Encoding::utf8, u"\uFFFDz"},
        {"overlong, 2", "\xC0\xAF", Encoding::utf8, u"\uFFFD\uFFFD"},
        {"overlong, 3", "\xE0\x80\x80", Encoding::utf8, u"\uFFFD\uFFFD\uFFFD"},
        {"surrogate", "\xED\xA0\x80", Encoding::utf8, u"\uFFFD\uFFFD\uFFFD"},
        {"above U+10FFFF", "\xF4\x90\x80\x80", Encoding::utf8, u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"cut short: the head is one", "\xF0\x9F\x98z", Encoding::utf8, u"\uFFFDz"},
        {"cut short by a lead", "\xE2\x82\xC3\xA4", Encoding::utf8, u"\uFFFD\u00E4"},
    };
    for (const auto& c : cases)
        for (const u64 step : {u64{1}, u64{2}, u64{3}, ~u64{0}}) {
            const auto stripe = storeOf(c.bytes, step);
            stripe->seek(1);  // the reader begins at the start all the same
            EXPECT_EQ(readAll(stripe, c.given), c.units) << c.what << " " << step;
        }
}

TEST(TextReader, SequencesMayLieAcrossBlockBorders) {
    constexpr u64 block = 65536;
    const std::string tail = "\xF0\x9F\x98\x80z\xE2\x82\xAC\xE2\x82z";
    const Units tailUnits = u"\U0001F600z\u20AC\uFFFDz";
    for (u64 lead = block - 14; lead <= block + 1; ++lead)
        EXPECT_TRUE(readAll(storeOf(std::string(lead, 'a') + tail), Encoding::utf8) ==
                    Units(lead, u'a') + tailUnits)
            << lead;
    // A cut at the border is no reason to take the first block for UTF-16.
    const std::string cut = std::string(block - 1, 'a') + "\xC3\xA4";
    EXPECT_TRUE(readAll(storeOf(cut), Encoding::utf16Le) == Units(block - 1, u'a') + u"\u00E4");
}

TEST(TextWriter, WritesEachEncodingFromTheStripesPositionOn) {
    const Units text = u"\xDC00z\U0001F600\u00E4\xD800";
    const std::string utf8 = "\xEF\xBF\xBDz\xF0\x9F\x98\x80\xC3\xA4\xEF\xBF\xBD";
    constexpr u64 lead = 8189;  // the pair is cut where a chunk ends
    struct {
        Encoding encoding;
        bool mark;
        Units units;
        std::string bytes;
    } const cases[] = {
        {Encoding::utf16Le, true, text, "\xFF\xFE" + utf16(text)},
        {Encoding::utf16Be, true, text, "\xFE\xFF" + utf16(text, true)},
        {Encoding::utf8, true, text, "\xEF\xBB\xBF" + utf8},
        {Encoding::utf8, false, Units(lead, u'a') + text, std::string(lead, 'a') + utf8},
        {Encoding::ansi, true, u"a\u00E4", "a\xE4"},
    };
    for (const auto& c : cases)
        for (const u64 piece : {u64{1}, u64{20000}}) {
            const auto stripe = storeOf("head");
            stripe->seek(4);
            auto writer = Writer::create(stripe, c.encoding, c.mark, nullptr);
            for (u64 at = 0; at < c.units.size(); at += piece) {
                const u64 count = std::min<u64>(piece, c.units.size() - at);
                ASSERT_EQ(writer->write(ShPtr::fromConst(c.units.data() + at), count), count);
            }
            writer.reset();
            EXPECT_EQ(stripe->text(), "head" + c.bytes);
        }
    const auto ansi = Writer::create(storeOf(""), Encoding::ansi, false, nullptr);
    EXPECT_EQ(ansi->write(ShPtr::fromConst(u"\u0100"), 1), 0u);
    EXPECT_EQ(Error::get(), Error::notSupported);
}

TEST(CharWriter, PairsAreJoinedWhereverTheyAreCut) {
    const std::u16string_view text = u"a\U0001F600\xDC00\xD83Dz\xD83D\U0001F600 and so on \xD800";
    const std::string bad = "\xEF\xBF\xBD", face = "\xF0\x9F\x98\x80";
    const std::string utf8 = "a" + face + bad + bad + "z" + bad + face + " and so on " + bad;
    for (u32 buffer = 1; buffer < 9; ++buffer)
        for (u64 cut = 0; cut <= text.size(); ++cut) {
            const auto stripe = storeOf("");
            auto writer = CharWriter::create(stripe, buffer);
            writer->write(text.substr(0, cut));
            EXPECT_TRUE(writer->flush());
            writer->write(text.substr(cut));
            writer.reset();
            ASSERT_EQ(stripe->text(), utf8) << buffer << " " << cut;
        }
}

TEST(CharWriter, TakesWhatIsPutTogetherInItsRoom) {
    for (u32 buffer = 2; buffer < 12; ++buffer)
        for (u64 before = 0; before < 9; ++before) {
            const auto stripe = storeOf("");
            auto writer = CharWriter::create(stripe, buffer);
            writer->write(std::u16string(before, u'b'));
            char16_t* const room = writer->roomFor(3);
            if (room) {
                std::u16string_view(u"xyz").copy(room, 3);
                writer->wrote(3);
            }
            writer->write(u"e");
            writer.reset();
            ASSERT_EQ(stripe->text(), std::string(before, 'b') + (room ? "xyze" : "e")) << buffer;
            EXPECT_TRUE(!room || buffer > 3 + before % buffer);
        }
}

/// Writes down all it is told, each with the line it was told at.
class Recorder final : public Interfaces::IniParserInterface, public Object {
 public:
    bool begin(Ref<RefCount> source) override { return bool(_reader = refCast<CharReader>(source)); }
    bool section(Ref<String> name) override { return tell("S " + name->toUtf8()); }
    bool line(Ref<String> text) override { return tell("L " + text->toUtf8()); }
    bool value(Ref<String> name, Ref<String> data) override {
        return tell("V " + name->toUtf8() + " -> " + data->toUtf8());
    }
    bool end() override { return tell("end"); }

    std::string events;

 private:
    bool tell(const std::string& event) {
        events += std::to_string(_reader->line()) + " " + event + "|";
        return true;
    }
    Ref<CharReader> _reader;
};

struct Told {
    u32 result;
    std::string events;
    u64 line;
};

Told parse(const Ref<Interfaces::Stripe>& source, u32 buffer = 0) {
    const auto reader = CharReader::create(Reader::create(source, Encoding::utf8, nullptr), buffer);
    const auto recorder = makeRef<Recorder>();
    const u32 result = IniParser::parse(reader, recorder, IniParser::registryText);
    return {result, recorder->events, reader->line()};
}

TEST(IniParser, SplitsTextByItsRules) {
    const struct {
        std::string text;
        std::string events;  // without the last, "end"
        u64 failing = 0;     // the line that fits no rule
    } cases[] = {
        {"v\r\n[s]\r@=1\n\n\r\r\n@=2", "1 L v|2 S s|3 V @ -> 1|7 V @ -> 2|"},
        {"\r\n \t \n;c\nv\n; [x]\n[s]\n;\"a\"=\"b\"\n\t\n", "4 L v|6 S s|"},
        {" ;v\n [x]\na=b\n[s]", "1 L  ;v|2 L  [x]|3 L a=b|4 S s|"},
        {"[s]\n ;c", "1 S s|", 2},
        {"[s]\n [x]", "1 S s|", 2},
        {"[a]b]\n[[x]]\n[]\n[-a b ] \t\n[\xC3\xA4\\\xE2\x82\xAC]",
         "1 S a]b|2 S [x]|3 S |4 S -a b |5 S \xC3\xA4\\\xE2\x82\xAC|"},
        {"[", "", 1},
        {"v\n\n[a\n[b]", "1 L v|", 3},
        {"[a]x", "", 1},
        {"[s]\n\"a\" =1", "1 S s|", 2},
        {"[s]\n\"=\"y\"", "1 S s|", 2},
        {"[s]\na=b=c\n@=\n=x\n@ = 1 ", "1 S s|2 V a -> b=c|3 V @ -> |4 V  -> x|5 V @  ->  1 |"},
        // The name goes up to the first quote and '=' that data follows.
        {"[s]\n\"a\"=x\"=dword:1\n\"a\"=hex\"=hex:01\n\"a\"=hex\"=hex(2):\n\"a\"=-x\"=-\n\"a\"=\"=\"\"",
         "1 S s|2 V \"a\"=x\" -> dword:1|3 V \"a\"=hex\" -> hex:01|4 V \"a\"=hex\" -> hex(2):|"
         "5 V \"a\"=-x\" -> -|6 V \"a\" -> \"=\"\"|"},
        {"[s]\n\"a\"=x\"=y\n\"a\"=\n\"=\"=\"x\"\n\"\"=\"\"\n\"a\\\"b\\\\\"=\"\"\n@=\"a\"=\"b\"",
         "1 S s|2 V \"a\" -> x\"=y|3 V \"a\" -> |4 V \"=\" -> \"x\"|5 V \"\" -> \"\"|6 V \"a\\\"b\\\\\" -> "
         "\"\"|7 V @ -> \"a\"=\"b\"|"},
        {"[s]\n@=hex:01,\\\r\n  02,\\\n\t 03\\\r\r\n@=-", "1 S s|2 V @ -> hex:01,02,03|6 V @ -> -|"},
        {"[s]\n@=hex:01,\\\n;02\n@=hex(1):\\\n[x]\\\n \\\n04",
         "1 S s|2 V @ -> hex:01,;02|4 V @ -> hex(1):[x]04|"},
        {"[s]\n@=\"x\\\n@=dword:1\\\n@=hex:\\ \n@=-",
         "1 S s|2 V @ -> \"x\\|3 V @ -> dword:1\\|4 V @ -> hex:\\ |5 V @ -> -|"},
        {"v\\\n[s\\]", "1 L v\\|2 S s\\|"},
        {"[s]\n@=-\n@=hex:01,\\\n02,\\", "1 S s|2 V @ -> -|", 3},
        {"[s]\n@=hex:01,\\\n", "1 S s|", 2},
        // What looks like line ends to a careless reader, U+0A0D among it.
        {"v\t\x01\x0B\x0E\xE0\xA8\x8D\xC4\x8A\xF0\x9F\x98\x80\x0C w\r\n[s]",
         "1 L v\t\x01\x0B\x0E\xE0\xA8\x8D\xC4\x8A\xF0\x9F\x98\x80\x0C w|2 S s|"},
        {"", ""},
    };
    for (const auto& test : cases)
        for (const u32 buffer : {0u, 1u, 2u, 3u, 5u, 8u, 13u}) {
            const Told told = parse(storeOf(test.text), buffer);
            EXPECT_EQ(told.result, test.failing ? IniParser::malformed : IniParser::parsed) << test.text;
            EXPECT_EQ(told.line, test.failing ? test.failing : told.line) << test.text;
            const std::string end = test.failing ? "" : std::to_string(told.line) + " end|";
            EXPECT_EQ(told.events, test.events + end) << test.text;
        }
}

TEST(IniParser, LongLinesTakeLinearTime) {
    std::string lines, quotes = "\"";
    while (lines.size() < 3000000) lines += "00,01,02,\\\n";
    while (quotes.size() < 3000000) quotes += "\"=";
    for (const std::string& body : {"@=hex:" + lines + "03", quotes, "[" + std::string(3000000, ']')}) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(parse(storeOf("[s]\n" + body)).result, IniParser::parsed);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << body.substr(0, 20);
    }
}

}  // namespace
