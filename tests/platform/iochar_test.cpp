#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/iochar/charprinter.h"
#include "platform/iochar/charreader.h"
#include "platform/iochar/stdio.h"
#include "platform/text/reader.h"
#include "platform/text/writer.h"
#include "tests/platform/faultystripe.h"

using namespace Platform;
using Libraries::Files::Text::Encoding;
using Libraries::Files::Text::Reader;
using Libraries::Files::Text::Writer;

namespace {

TEST(CharWriter, PairsAreJoinedWhereverTheyAreCut) {
    const std::u16string text = u"a\U0001F600\xDC00\xD83Dz\xD83D\U0001F600 and so on \xD800";
    const std::string utf8 = String::create(text)->toUtf8();
    for (u32 buffer = 1; buffer < 9; ++buffer)
        for (u64 cut = 0; cut <= text.size(); ++cut) {
            const auto stripe = FaultyStripe::create();
            {
                const auto writer = CharWriter::create(stripe, buffer);
                writer->write(std::u16string_view(text).substr(0, cut));
                EXPECT_TRUE(writer->flush());
                writer->write(std::u16string_view(text).substr(cut));
            }
            ASSERT_EQ(stripe->bytes, utf8) << buffer << " " << cut;
        }
}

TEST(CharWriter, FailureIsRememberedAndEndsAllWriting) {
    const auto stripe = FaultyStripe::create("", 1, 4);
    const auto writer = CharWriter::create(stripe, 0);
    writer->write(u"abcd");
    EXPECT_TRUE(writer->flush());
    writer->write(u"e");
    EXPECT_TRUE(writer->good()) << "only buffered so far";
    EXPECT_FALSE(writer->flush());
    stripe->seek(0);  // there would be room again
    writer->write(u"f");
    EXPECT_FALSE(writer->flush());
    EXPECT_FALSE(writer->good());
    EXPECT_EQ(stripe->bytes, "abcd");
}

TEST(CharPrinter, EndsLinesAsTheWriterSays) {
    for (const auto lineEnd : {CharWriter::LineEnd::crLf, CharWriter::LineEnd::lf}) {
        const auto stripe = FaultyStripe::create();
        const auto printer = CharPrinter::create(CharWriter::create(stripe, 0, lineEnd));
        printer->print("\xE4");
        printer->print(String::create(u"\u20AC"));
        printer->endLine();
        EXPECT_TRUE(printer->flush());
        const std::string end = lineEnd == CharWriter::LineEnd::lf ? "\n" : "\r\n";
        EXPECT_EQ(stripe->bytes, "\xC3\xA4\xE2\x82\xAC" + end);
    }
}

TEST(CharReader, HandsOutWhatCameBeforeAFailure) {
    for (const u64 failAt : {u64{0}, u64{3}, u64{6}, u64{1000}}) {
        const auto stripe = FaultyStripe::create("abcdef-", 2, failAt);
        const auto reader = CharReader::create(Reader::create(stripe, Encoding::ansi, nullptr), 4);
        Error::set(0x55);
        std::u16string seen;
        for (char16_t unit = 0, ahead = 0; reader->peek(ahead) && reader->next(unit); seen.push_back(unit))
            EXPECT_EQ(unit, ahead);
        const bool fails = failAt < 7;
        EXPECT_EQ(String::create(seen)->to8(), std::string("abcdef-").substr(0, fails ? failAt : 7));
        EXPECT_EQ(reader->failed(), fails);
        EXPECT_EQ(Error::get(), fails ? FaultyStripe::failure : 0x55u);
    }
}

TEST(Streams, FactoriesRefuseNullAndOtherElementSizes) {
    const auto wide = FaultyStripe::create();
    wide->elements = 4;
    const auto bytes = FaultyStripe::create();
    int codePage = 0;
    const auto code = [](const Ref<RefCount>& made) {
        EXPECT_FALSE(made);
        return Error::get();
    };
    EXPECT_EQ(code(CharWriter::create(nullptr, 0)), Error::nullArgument);
    EXPECT_EQ(code(CharWriter::create(wide, 0)), Error::notSupported);
    EXPECT_EQ(code(CharReader::create(nullptr, 0)), Error::nullArgument);
    EXPECT_EQ(code(CharReader::create(bytes, 0)), Error::notSupported);
    EXPECT_EQ(code(CharPrinter::create(nullptr)), Error::nullArgument);
    EXPECT_EQ(code(Writer::create(nullptr, Encoding::utf8, false, nullptr)), Error::nullArgument);
    EXPECT_EQ(code(Writer::create(wide, Encoding::utf8, false, nullptr)), Error::notSupported);
    EXPECT_EQ(code(Writer::create(bytes, Encoding{4}, false, nullptr)), Error::notSupported);
    EXPECT_EQ(code(Writer::create(bytes, Encoding::ansi, false, &codePage)), Error::notSupported);
    EXPECT_EQ(code(Reader::create(nullptr, Encoding::utf8, nullptr)), Error::nullArgument);
    EXPECT_EQ(code(Reader::create(wide, Encoding::utf8, nullptr)), Error::notSupported);
    EXPECT_EQ(code(Reader::create(bytes, Encoding{4}, nullptr)), Error::notSupported);
}

TEST(StdIO, WhatIsLeftInTheBufferComesOutAtTheNormalExit) {
    const auto print = [] {
        StdIO::stdErrWriter()->write(u"caf\u00E9");
        std::exit(3);
    };
    EXPECT_EXIT(print(), testing::ExitedWithCode(3), "^caf\xC3\xA9$");
}

}  // namespace
