#include "platform/ini/iniparser.h"

#include <gtest/gtest.h>

#include <chrono>

#include "platform/text/reader.h"
#include "tests/platform/faultystripe.h"

using namespace Platform;
using Libraries::Files::Text::Encoding;
using Libraries::Files::Text::Reader;

namespace {

/// Writes down all it is told, each with the line it was told at; refuses the event whose text begins so.
class Recorder final : public Interfaces::IniParserInterface, public Object {
 public:
    explicit Recorder(std::string refused = "?") : _refused(std::move(refused)) {}

    bool begin(Ref<RefCount> source) override {
        _reader = refCast<CharReader>(source);
        return _refused != "begin";
    }
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
        return !event.starts_with(_refused);
    }
    std::string _refused;
    Ref<CharReader> _reader;
};

struct Told {
    u32 result;
    std::string events;
    u64 line;
};

Told parse(const Ref<FaultyStripe>& source, const std::string& refused = "?", u32 buffer = 0) {
    const auto reader = CharReader::create(Reader::create(source, Encoding::utf8, nullptr), buffer);
    const auto recorder = makeRef<Recorder>(refused);
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
        {"[s]\nnothing\n@=1", "1 S s|", 2},
        {"[s]\n\"a\" =1", "1 S s|", 2},
        {"[s]\n\"=\"y\"", "1 S s|", 2},
        {"[s]\na=b=c\n@=\n=x\n@ = 1 ", "1 S s|2 V a -> b=c|3 V @ -> |4 V  -> x|5 V @  ->  1 |"},
        // The name goes up to the first quote and '=' that data follows.
        {"[s]\n\"a\"=\"b\"=dword:1", "1 S s|2 V \"a\" -> \"b\"=dword:1|"},
        {"[s]\n\"a\"=x\"=dword:1\n\"a\"=hex\"=hex:01\n\"a\"=hex\"=hex(2):\n\"a\"=-x\"=-\n\"a\"=\"=\"\"",
         "1 S s|2 V \"a\"=x\" -> dword:1|3 V \"a\"=hex\" -> hex:01|4 V \"a\"=hex\" -> hex(2):|"
         "5 V \"a\"=-x\" -> -|6 V \"a\" -> \"=\"\"|"},
        {"[s]\n\"a\"=x\"=y\n\"a\"=\n\"=\"=\"x\"\n\"\"=\"\"\n\"a\\\"b\\\\\"=\"\"\n@=\"a\"=\"b\"",
         "1 S s|2 V \"a\" -> x\"=y|3 V \"a\" -> |4 V \"=\" -> \"x\"|5 V \"\" -> \"\"|6 V \"a\\\"b\\\\\" -> "
         "\"\"|"
         "7 V @ -> \"a\"=\"b\"|"},
        {"[s]\n@=hex:01,\\\r\n  02,\\\n\t 03\\\r\r\n@=-", "1 S s|2 V @ -> hex:01,02,03|6 V @ -> -|"},
        {"[s]\n@=hex:01,\\\n;02\n@=hex(1):\\\n[x]\\\n \\\n04",
         "1 S s|2 V @ -> hex:01,;02|4 V @ -> hex(1):[x]04|"},
        {"[s]\n@=\"x\\\n@=dword:1\\\n@=hex:\\ \n@=-",
         "1 S s|2 V @ -> \"x\\|3 V @ -> dword:1\\|4 V @ -> hex:\\ |5 V @ -> -|"},
        {"v\\\n[s\\]", "1 L v\\|2 S s\\|"},
        {"[s]\n@=-\n@=hex:01,\\\n02,\\", "1 S s|2 V @ -> -|", 3},
        {"[s]\n@=hex:01,\\\n", "1 S s|", 2},
        {"", ""},
    };
    for (const auto& test : cases)
        for (const u32 buffer : {0u, 1u}) {
            const Told told = parse(FaultyStripe::create(test.text), "?", buffer);
            EXPECT_EQ(told.result, test.failing ? IniParser::malformed : IniParser::parsed) << test.text;
            EXPECT_EQ(told.line, test.failing ? test.failing : told.line) << test.text;
            const std::string end = test.failing ? "" : std::to_string(told.line) + " end|";
            EXPECT_EQ(told.events, test.events + end) << test.text;
        }
}

TEST(IniParser, StopsWhereACallbackRefuses) {
    const std::string text = "v\n[s]\n@=1\n[t]\n";
    const std::pair<const char*, std::string> cases[] = {
        {"begin", ""},
        {"L", "1 L v|"},
        {"S", "1 L v|2 S s|"},
        {"V", "1 L v|2 S s|3 V @ -> 1|"},
        {"end", "1 L v|2 S s|3 V @ -> 1|4 S t|4 end|"},
    };
    for (const auto& [refused, events] : cases) {
        const Told told = parse(FaultyStripe::create(text), refused);
        EXPECT_EQ(told.result, IniParser::refused);
        EXPECT_EQ(told.events, events);
    }
}

/// However far the text can be read, no piece of a line is taken for a line.
TEST(IniParser, TextThatCannotBeReadIsNoWholeText) {
    const std::string text = "v\n[s]\n@=hex:01,\\\n02\n@=\"x\"\n";
    const std::string all = parse(FaultyStripe::create(text)).events;
    for (u64 failAt = 0; failAt < text.size(); ++failAt) {
        const Told told = parse(FaultyStripe::create(text, 1, failAt));
        EXPECT_EQ(told.result, IniParser::unreadable) << failAt;
        EXPECT_TRUE(all.starts_with(told.events)) << failAt << " " << told.events;
    }
    const auto reader =
        CharReader::create(Reader::create(FaultyStripe::create(), Encoding::utf8, nullptr), 0);
    EXPECT_EQ(IniParser::parse(reader, makeRef<Recorder>(), 1), IniParser::unreadable);
    EXPECT_EQ(Error::get(), Error::wrongArgument);
    EXPECT_EQ(IniParser::parse(nullptr, makeRef<Recorder>(), 2), IniParser::unreadable);
    EXPECT_EQ(Error::get(), Error::nullArgument);
}

TEST(IniParser, LongLinesTakeLinearTime) {
    std::string lines, quotes = "\"";
    while (lines.size() < 3000000) lines += "00,01,02,\\\n";
    while (quotes.size() < 3000000) quotes += "\"=";
    const std::string bodies[] = {"@=hex:" + std::string(3000000, '0'), "@=hex:" + lines + "03", quotes,
                                  "[" + std::string(3000000, ']')};
    for (const std::string& body : bodies) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(parse(FaultyStripe::create("[s]\n" + body)).result, IniParser::parsed);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << body.substr(0, 20);
    }
}

}  // namespace
