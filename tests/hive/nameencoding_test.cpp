#include "hive/nameencoding.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <map>

#include "tests/hive/cells.h"

using namespace Platform;
using namespace Libraries::Files::Hive;

namespace {

using Page = HiveFile::HiveCodepage;
constexpr auto UNKNOWN_PAGE = static_cast<Page>(4);

/// The code point of a byte as the system's own conversion tables have it, U+FFFD for none.
u32 expected(Page page, u32 byte) {
    if (byte < 128) return byte;
    if (page != HiveFile::hiveCodepageCp1250 && page != HiveFile::hiveCodepageCp1252)
        return page == HiveFile::hiveCodepageLatin1 ? byte : 0xFFFD;
    const iconv_t tables = iconv_open("UTF-16LE", page == HiveFile::hiveCodepageCp1250 ? "CP1250" : "CP1252");
    char from = static_cast<char>(byte), to[2];
    char *in = &from, *out = to;
    std::size_t inLeft = 1, outLeft = 2;
    const bool found = iconv(tables, &in, &inLeft, &out, &outLeft) == 0;
    iconv_close(tables);
    return found ? static_cast<u8>(to[0]) | u32{static_cast<u8>(to[1])} << 8 : 0xFFFD;
}

constexpr Page PAGES[] = {HiveFile::hiveCodepageAscii, HiveFile::hiveCodepageLatin1,
                          HiveFile::hiveCodepageCp1250, HiveFile::hiveCodepageCp1252, UNKNOWN_PAGE};

TEST(NameEncoding, BytesAndCodePointsMapAsThePublishedTablesSay) {
    ASSERT_EQ(expected(HiveFile::hiveCodepageCp1252, 0x80), 0x20ACu) << "no tables on this system";
    for (const Page page : PAGES) {
        std::map<u32, u8> bytes;
        for (u32 byte = 0; byte < 256; ++byte) {
            const u32 wanted = expected(page, byte);
            u32 codePoint = 0;
            EXPECT_EQ(byteToChar(static_cast<u8>(byte), page, codePoint), wanted != 0xFFFD)
                << page << " " << byte;
            if (wanted == 0xFFFD) continue;
            EXPECT_EQ(codePoint, wanted) << page << " " << byte;
            bytes.emplace(wanted, static_cast<u8>(byte));
        }
        // The other way over the Basic Multilingual Plane and characters above whose low halves have bytes.
        for (u32 codePoint = 0; codePoint < 0x20000; ++codePoint) {
            u8 byte = 0;
            const bool found = charToByte(codePoint, page, byte);
            ASSERT_EQ(found, bytes.contains(codePoint)) << page << " " << codePoint;
            ASSERT_TRUE(!found || byte == bytes[codePoint]) << page << " " << codePoint;
        }
    }
}

TEST(NameEncoding, Utf16NamesKeepEveryUnitAndIgnoreAnOddByte) {
    const u8 stored[] = {'-', '-', 'a', 0, 0, 0, 0x3D, 0xD8, 0xFF, 0xFF, 'x'};
    const std::u16string units(u"a\0\xD83D\xFFFF", 4);
    for (u16 length = 0; length <= sizeof(stored) - 2; ++length)
        for (const Page page : PAGES)
            EXPECT_TRUE(decodeName(RecordView(stored, sizeof(stored)), 2, length, false, page)
                            ->equal(units.substr(0, length / 2)))
                << length;
}

TEST(NameEncoding, ANameIsCompressedWhereItCanBeAndHeldToTheLimit) {
    HiveTest::HiveImage image;
    const auto hive = HiveTest::openStore(makeRef<HiveTest::MemoryStripe>(image.finish()), 1);  // ISO 8859-1
    struct {
        std::u16string name;
        u64 limit, length;  // a length of 99 for a name refused
        bool compressed;
    } const cases[] = {
        {u"", 0, 0, true},
        {u"Stra\u00DFe", 6, 6, true},
        {u"Stra\u00DFe", 5, 99, true},
        {u"12345678901", 10, 99, true},
        {std::u16string(u"ab\0c", 4), 4, 2, true},
        {u"\u20AC", 10, 2, false},
        {u"12345\u20AC", 10, 12, false},  // the last unit is not measured
        {u"123456\u20AC", 10, 99, false},
        {u"\u20AC", 1, 2, false},
    };
    for (const auto& c : cases) {
        const auto name = String::create(c.name);
        u64 length = c.limit;
        bool compressed = !c.compressed;
        const HeapBuffer stored = hive->stringToRegName(name, length, compressed);
        ASSERT_EQ(bool(stored), c.length != 99) << name->toUtf8() << " " << c.limit;
        if (!stored) continue;
        EXPECT_EQ(length, c.length) << name->toUtf8();
        EXPECT_EQ(compressed, c.compressed) << name->toUtf8();
        const auto back = decodeName(RecordView(stored.get(), length), 0, static_cast<u16>(length),
                                     compressed, HiveFile::hiveCodepageLatin1);
        EXPECT_TRUE(back->equal(c.name.substr(0, c.name.find(u'\0'))));
    }
}

}  // namespace
