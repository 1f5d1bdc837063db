#include "hive/nameencoding.h"

#include <gtest/gtest.h>

#include <map>

#include "tests/hive/cells.h"

using namespace Platform;
using namespace Libraries::Files::Hive;

namespace {

using Page = HiveFile::HiveCodepage;
constexpr auto UNKNOWN_PAGE = static_cast<Page>(4);

// The bytes from 128 on as the code pages' published tables have them; U+FFFD where there is no character.
constexpr std::u16string_view CP1250 =
    u"\u20AC\uFFFD\u201A\uFFFD\u201E\u2026\u2020\u2021\uFFFD\u2030\u0160\u2039\u015A\u0164\u017D\u0179"
    u"\uFFFD\u2018\u2019\u201C\u201D\u2022\u2013\u2014\uFFFD\u2122\u0161\u203A\u015B\u0165\u017E\u017A"
    u"\u00A0\u02C7\u02D8\u0141\u00A4\u0104\u00A6\u00A7\u00A8\u00A9\u015E\u00AB\u00AC\u00AD\u00AE\u017B"
    u"\u00B0\u00B1\u02DB\u0142\u00B4\u00B5\u00B6\u00B7\u00B8\u0105\u015F\u00BB\u013D\u02DD\u013E\u017C"
    u"\u0154\u00C1\u00C2\u0102\u00C4\u0139\u0106\u00C7\u010C\u00C9\u0118\u00CB\u011A\u00CD\u00CE\u010E"
    u"\u0110\u0143\u0147\u00D3\u00D4\u0150\u00D6\u00D7\u0158\u016E\u00DA\u0170\u00DC\u00DD\u0162\u00DF"
    u"\u0155\u00E1\u00E2\u0103\u00E4\u013A\u0107\u00E7\u010D\u00E9\u0119\u00EB\u011B\u00ED\u00EE\u010F"
    u"\u0111\u0144\u0148\u00F3\u00F4\u0151\u00F6\u00F7\u0159\u016F\u00FA\u0171\u00FC\u00FD\u0163\u02D9";
constexpr std::u16string_view CP1252 =  // from 160 on a byte is its own code point
    u"\u20AC\uFFFD\u201A\u0192\u201E\u2026\u2020\u2021\u02C6\u2030\u0160\u2039\u0152\uFFFD\u017D\uFFFD"
    u"\uFFFD\u2018\u2019\u201C\u201D\u2022\u2013\u2014\u02DC\u2122\u0161\u203A\u0153\uFFFD\u017E\u0178";

/// The code point of a byte, U+FFFD for none.
u32 expected(Page page, u32 byte) {
    if (byte < 128) return byte;
    if (page == HiveFile::hiveCodepageLatin1) return byte;
    if (page == HiveFile::hiveCodepageCp1250) return CP1250[byte - 128];
    if (page == HiveFile::hiveCodepageCp1252) return byte < 160 ? u32{CP1252[byte - 128]} : byte;
    return 0xFFFD;
}

constexpr Page PAGES[] = {HiveFile::hiveCodepageAscii, HiveFile::hiveCodepageLatin1,
                          HiveFile::hiveCodepageCp1250, HiveFile::hiveCodepageCp1252, UNKNOWN_PAGE};

TEST(NameEncoding, BytesAndCodePointsMapAsThePublishedTablesSay) {
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

TEST(NameEncoding, AByteWithoutCharacterMakesANameUnreadable) {
    const u8 stored[] = {'a', 129, 'b'};  // 129 is a character of ISO 8859-1 only
    for (const Page page : PAGES) {
        EXPECT_EQ(bool(regNameToString(stored, 3, page)), page == HiveFile::hiveCodepageLatin1) << page;
        EXPECT_TRUE(regNameToString(stored, 1, page)->equal(u"a")) << page;
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
