#include "regfile/salvage/salvage.h"

#include "regfile/regfileutil.h"
#include "tests/hive/openedhive.h"

using namespace HiveTest;

namespace {

struct Salvaged {
    bool done;
    std::string text;
    std::string findings;  // "lost /path[, value name]: reason" line by line
    SalvageCounts counts;
};

Salvaged salvage(std::vector<u8> file) {
    Salvaged result{};
    const auto target = Platform::makeRef<MemoryStripe>();
    const auto sink = [&result](const SalvageFinding& finding) {
        result.findings += std::array{"lost ", "doubtful ", "note "}[finding.kind] +
                           utf8(text(finding.path)) +
                           (finding.ofValue ? ", value " + utf8(text(finding.valueName)) : "") + ": " +
                           finding.reason + "\n";
    };
    result.done =
        Salvage::exportRegFile(Platform::makeRef<MemoryStripe>(std::move(file)), HiveFile::hiveCodepageLatin1,
                               {}, target, String::create(), RegFileUtil::exportDefault, sink, result.counts);
    for (const u8 byte : target->bytes())  // all ASCII but the mark
        if (byte) result.text += static_cast<char>(byte);
    return result;
}

/// Two branches; the large data lies too low for the extent rule, so that the plain export stops at it.
HiveBuilder sampleHive(u32 minor = 5) {
    HiveBuilder hive(minor);
    hive.build({.values = {{u"num", 4, numberBytes(7)}},
                .keys = {{.name = u"A",
                          .values = {{u"text", 1, utf16Bytes(u"longer text")}, {u"bin", 3, patternBytes(60)}},
                          .keys = {{.name = u"A1"}, {.name = u"A2"}}},
                         {.name = u"B",
                          .values = {{u"big", 3, patternBytes(40000)}, {u"after", 4, numberBytes(8)}}}}});
    return hive;
}

}  // namespace

struct Damage {
    u32 at, number;       // the word poked
    const char* finding;  // among the findings; there is none when empty
    const char* kept;     // in the text
    const char* gone;     // not in the text
};

TEST(Salvage, WritesWhatIsLeftAndTellsWhatIsNot) {
    const HiveBuilder laid = sampleHive();
    const LaidKey root = laid.key(), a = laid.key(u"A"), a1 = laid.key(u"A/A1");
    const LaidValue num = laid.value(u"", u"num"), str = laid.value(u"A", u"text"),
                    bin = laid.value(u"A", u"bin"), big = laid.value(u"B", u"big");
    const auto freed = [&laid](u32 cell) { return 0U - laid.peek32(cell); };
    const u32 nowhere = 0x00F00000, list = 0x686C;
    const Damage damages[] = {
        {0x14, 0x55, "", "\"text\"=\"longer text\"\r\n", "zzz"},  // never read
        {root.list + 8, num.record, "lost /: no key record is there", "[\\\\B]", "A1"},
        {a.record + 20, 0, "doubtful /A: key record names another parent, 0x0", "[\\\\A\\A1]", "zzz"},
        {a1.record, freed(a1.record), "doubtful /A/A1: key record is marked free", "[\\\\A\\A1]", "zzz"},
        {a.record, 0, "doubtful /A: key record has a broken size", "[\\\\A\\A1]", "zzz"},
        {a.list + 4, 9 << 16 | list, "doubtful /A: subkey list of 9 entries has room for 2", "A\\A2]", "zzz"},
        {a.list + 4, 1 << 16 | list, "lost /A: the key has 2 subkeys, its lists name 1", "A\\A1]", "A2"},
        {a.list + 8, root.record, "lost /A: subkey is written already, as /\n", "[\\\\A\\A2]", "A1"},
        {a.list + 16, a1.record, "lost /A: subkey is written already, as /A/A1\n", "[\\\\A\\A1]", "A2"},
        {a.record + 44, nowhere, "lost /A: 2 value(s): the list of them lies outside", "[\\\\A\\A1]", "text"},
        {str.record + 8, 30, "doubtful /A, value text: 28 of 30 bytes", "\"text\"=hex(1):6c,00,", "longer"},
        {bin.data, freed(bin.data), "lost /A, value bin: 60 bytes of data: their cell", "\"text\"", "bin"},
        {num.record + 8, 0x80000005, "lost /, value num: data of 5 bytes within", "\"text\"", "num"},
        {big.fragments[1], freed(big.fragments[1]),
         "doubtful /B, value big: 23656 of 40000 bytes of data, zeros stand for", "00,00,00,00,00,00", "zzz"},
        {big.data + 8, 4, "lost /B, value big: 40000 bytes of data: the list of", "\"after\"=", "big"},
        {0, 0x78787878, "note /: no hbin begins at 0x0", "[\\\\A\\A1]", "zzz"},
    };
    for (const Damage& damage : damages) {
        HiveBuilder hive = sampleHive();
        hive.poke32(damage.at, damage.number);
        const Salvaged result = salvage(hive.finish());
        const std::string shown = std::string(damage.finding) + "\n" + result.findings;
        EXPECT_TRUE(result.done) << shown;
        EXPECT_EQ(result.findings.empty(), !*damage.finding) << shown;
        EXPECT_NE(result.findings.find(damage.finding), std::string::npos) << shown;
        EXPECT_NE(result.text.find(damage.kept), std::string::npos) << shown;
        EXPECT_EQ(result.text.find(damage.gone), std::string::npos) << shown;
        EXPECT_NE(result.text.find("\"after\"=dword:00000008"), std::string::npos) << shown;
    }
}

TEST(Salvage, WantsNothingOfTheBaseBlockButARoot) {
    HiveBuilder hive = sampleHive();
    const std::string whole = salvage(hive.finish()).text;
    const std::pair<u32, u32> fields[] = {{0, 0},  {20, 9},          {24, 4}, {24, 3},
                                          {40, 0}, {40, 0xFFFFF000}, {508, 1}};
    for (const auto& [field, number] : fields) {
        HiveBuilder damaged = sampleHive();
        damaged.finish();
        damaged.pokeHeader32(field, number);
        const Salvaged result = salvage(damaged.bytes());
        EXPECT_EQ(result.text, whole) << field;
        EXPECT_EQ(result.findings.find("note /: base block: "), 0U) << field;
        EXPECT_EQ(result.counts.lost + result.counts.doubtful, 0U) << field << result.findings;
    }
    const std::vector<u8> file = hive.finish();
    hive.setRoot(hive.key().record + 8);
    hive.poke16(hive.key().record + 6, 0x2C);  // marks it as a root
    const Salvaged found = salvage(hive.finish());
    EXPECT_EQ(found.text, whole);
    EXPECT_NE(found.findings.find("doubtful /: base block: names no root key"), std::string::npos);
    for (u64 length = 0; length < file.size(); length += 104) {
        const Salvaged result = salvage({file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)});
        EXPECT_EQ(result.done, length >= HIVE_HEADER_SIZE + hive.key().record + 80) << length;
        if (result.done)
            EXPECT_NE(result.findings.find("note /: base block: tells of"), std::string::npos) << length;
        else
            EXPECT_EQ(Error::get(), ErrorCode::badHive) << length;
        EXPECT_EQ(result.counts.lost > 0, length < HIVE_HEADER_SIZE + hive.value(u"B", u"after").record + 30)
            << length;
    }
}

/// Every key has the same list of all keys' values and subkeys, a long name, and a list in a list.
TEST(Salvage, EndsSoonWhateverNamesWhat) {
    HiveBuilder hive(5);
    KeyPlan root{.values = std::vector<ValuePlan>(100, {u"v", 3, patternBytes(3000)}),
                 .list = ListKind::riLi};
    for (u32 i = 0; i < 100; ++i)
        root.keys.push_back({.name = std::u16string(20, u'k') + static_cast<char16_t>(u'0' + i)});
    hive.build(root);
    const LaidKey& top = hive.key();
    for (const u32 key : top.keys) {
        hive.poke32(key + 24, 100);
        hive.poke32(key + 32, top.list);
        hive.poke32(key + 40, 100);
        hive.poke32(key + 44, top.valueList);
    }
    const std::vector<u8> file = hive.finish();
    const MemoryLimit limit;
    const Salvaged result = salvage(file);
    EXPECT_TRUE(result.done);
    EXPECT_EQ(result.counts.keys, 101U);
    EXPECT_LT(result.text.size(), 10 * file.size());
    EXPECT_NE(result.findings.find("than a hive of this length holds"), std::string::npos);
}
