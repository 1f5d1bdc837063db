#include <gtest/gtest.h>

#include <vector>

#include "platform/text/reader.h"
#include "platform/text/writer.h"
#include "tests/platform/faultystripe.h"

using namespace Platform;
using Libraries::Files::Text::Encoding;
using Libraries::Files::Text::Reader;
using Libraries::Files::Text::Writer;

namespace {

using Units = std::u16string;

/// The whole text, taken `piece` units at a time.
Units readAll(const Ref<Interfaces::Stripe>& stripe, Encoding encoding, u64 piece = 1000) {
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

TEST(TextReader, SettlesTheEncodingByMarkAndContent) {
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
    };
    for (const auto& c : cases)
        for (const u64 step : {u64{1}, u64{2}, u64{3}, ~u64{0}}) {
            const auto stripe = FaultyStripe::create(c.bytes, step);
            stripe->seek(1);  // the reader begins at the start all the same
            EXPECT_EQ(readAll(stripe, c.given), c.units) << c.what << " " << step;
        }
}

TEST(TextReader, SequencesMayLieAcrossBlockBorders) {
    constexpr u64 block = 65536;
    const std::string tail = "\xF0\x9F\x98\x80z\xE2\x82\xAC\xE2\x82z";
    const Units tailUnits = u"\U0001F600z\u20AC\uFFFDz";
    for (u64 lead = block - 14; lead <= block + 1; ++lead) {
        const Units a(lead, u'a');
        EXPECT_TRUE(readAll(FaultyStripe::create(std::string(lead, 'a') + tail), Encoding::utf8) ==
                    a + tailUnits)
            << lead;
    }
    // A cut at the border is no reason to take the first block for UTF-16.
    const std::string cut = std::string(block - 1, 'a') + "\xC3\xA4";
    EXPECT_TRUE(readAll(FaultyStripe::create(cut), Encoding::utf16Le) == Units(block - 1, u'a') + u"\u00E4");
    // However oddly the store hands its bytes over, units stay whole.
    Units units;
    for (u32 i = 0; i < 100000; ++i) units.push_back(static_cast<char16_t>(i * 7919));
    for (const u64 step : {u64{1}, u64{4095}, ~u64{0}})
        for (const u64 piece : {u64{1}, u64{8191}, u64{200000}})
            EXPECT_TRUE(readAll(FaultyStripe::create("\xFF\xFE" + utf16(units), step), Encoding::utf8,
                                piece) == units)
                << step << " " << piece;
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
            const auto stripe = FaultyStripe::create("head");
            stripe->seek(4);
            auto writer = Writer::create(stripe, c.encoding, c.mark, nullptr);
            ASSERT_TRUE(writer);
            for (u64 at = 0; at < c.units.size(); at += piece) {
                const u64 count = std::min<u64>(piece, c.units.size() - at);
                ASSERT_EQ(writer->write(ShPtr::fromConst(c.units.data() + at), count), count);
            }
            writer.reset();
            EXPECT_EQ(stripe->bytes, "head" + c.bytes);
        }
    const auto ansi = Writer::create(FaultyStripe::create(), Encoding::ansi, false, nullptr);
    EXPECT_EQ(ansi->write(ShPtr::fromConst(u"\u0100"), 1), 0u);
    EXPECT_EQ(Error::get(), Error::notSupported);
}

}  // namespace
