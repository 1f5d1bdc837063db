#include <gtest/gtest.h>

#include "tests/support/hivebuilder.h"
#include "tests/support/hivecheck.h"

namespace {

using namespace HiveTest;  // NOLINT

/// A hive with a record of every kind: keys Alfa (a class name), Beta (values), Gamma/Deep, and two
/// descriptors.
HiveBuilder build(u32 minor = 5, ListKind list = ListKind::automatic) {
    HiveBuilder hive(minor);
    hive.setDescriptors({patternBytes(20, 1), patternBytes(28, 2)});
    hive.build({.name = u"ROOT",
                .keys = {{.name = u"Alfa", .className = u"Class", .security = 1},
                         {.name = u"Beta",
                          .values = {{.name = u"Big", .data = patternBytes(40000)},
                                     {.name = u"Cell", .data = patternBytes(100)},
                                     {.name = u"Tiny", .type = 4, .data = numberBytes(1)}}},
                         {.name = u"Gamma", .keys = {{.name = u"Deep"}}, .security = 1}},
                .list = list});
    return hive;
}

std::vector<u8> word(u32 number) {
    return numberBytes(number);
}
std::vector<u8> half(u32 number) {
    return numberBytes(number, 2);
}

/// `finding` is how one of the findings reads, from the severity on and without the offset.
void expectFinding(HiveBuilder hive, u64 at, const std::vector<u8>& bytes, const std::string& finding) {
    std::copy(bytes.begin(), bytes.end(), hive.bytes().begin() + static_cast<std::ptrdiff_t>(at));
    bool found = false;
    std::string all;
    for (const std::string& line : hiveFaults(hive.finish())) {
        // "fault 1a0 /Beta: ..." without the offset.
        const auto space = line.find(' '), next = line.find_first_of(" :", space + 1);
        const std::string bare = line[next] == ' ' ? line.substr(0, space) + line.substr(next) : line;
        found = found || bare.find(finding) != std::string::npos;
        all += line + "\n";
    }
    EXPECT_TRUE(found) << finding << "; found were:\n" << all;
}

/// Offsets in the records are those of docs/FORMAT.md.
TEST(HiveCheck, EachDamageIsFoundWhereItIs) {
    const HiveBuilder laid = build();
    const u64 hbins = 4096, list = hbins + laid.key().list, alfa = hbins + laid.key(u"Alfa").record,
              beta = hbins + laid.key(u"Beta").record, gamma = hbins + laid.key(u"Gamma").record,
              big = hbins + laid.value(u"Beta", u"Big").record, db = hbins + laid.value(u"Beta", u"Big").data,
              cell = hbins + laid.value(u"Beta", u"Cell").record,
              tiny = hbins + laid.value(u"Beta", u"Tiny").record, sk = hbins + laid.security()[0],
              sk2 = hbins + laid.security()[1];
    const auto freed = [&](u32 record) { return word(0 - laid.peek32(record)); };
    const struct {
        u64 at;  // in the file
        std::vector<u8> bytes;
        const char* finding;
    } cases[] = {
        // The base block, hbins and cells.
        {0, {'R'}, "fault : no hive signature"},
        {24, word(4), "fault : version 1.4"},
        {40, word(0xFFFFE000), "fault : the file ends 42949"},
        {4, word(99), "note : sequence numbers 99 and"},
        {36, word(laid.key().record + 8), "fault : no root key at"},
        {hbins + 4100, word(0), "fault : hbin says it is at 0x0"},
        {hbins + 4104, word(0), "fault : hbin of 0x0 bytes"},
        {hbins + 28, word(8), "note : distance to the next hbin 0x8"},
        {hbins + 32, word(0xFFFFFFF4), "fault : cell size -12"},
        {hbins + 32, word(0x80000000), "fault : cell size -2147483648"},
        {alfa + 52, word(HiveImage::NONE), "note : used cell of 16 bytes that nothing refers to"},
        // Keys.
        {beta + 4, {'x', 'x'}, "fault /Beta: no key record"},
        {beta + 76, half(50), "fault /...: name of 50 bytes"},
        {alfa + 76, half(0), "note /: empty name"},
        {gamma + 6, half(0), "UTF-16 name of odd length"},
        {hbins + laid.key(u"Gamma/Deep").record + 20, word(32), "fault /Gamma/Deep: parent 0x20"},
        {beta + 80, {'Z', 'e', 't', 'a'}, "fault /Gamma: out of order"},
        {beta + 80, {'A', 'L', 'F', 'A'}, "fault /ALFA: same name as"},
        {hbins + laid.key(u"Alfa").className, freed(laid.key(u"Alfa").className),
         "fault /Alfa: its class name at"},
        {alfa + 78, half(99), "note /Alfa: class name of 99"},
        // Lists of subkeys.
        {gamma + 32, word(0), "fault /Gamma: 1 subkey, but no list"},
        {gamma + 24, word(0), "fault /Gamma: lists 1 subkey, says 0"},
        {list + 4, {'l', 'x'}, "fault /: no subkey list"},
        {list + 6, half(9), "fault /: lh list of 9 entries runs past"},
        {list + 12, word(1), "fault /Alfa: lh hash 0x1"},
        {hbins + laid.key(u"Gamma").list + 8, word(laid.key().record), "as key record of the base block"},
        // Values.
        {beta + 44, word(8), "fault /Beta: its value list at 0x8 is no cell"},
        {beta + 40, word(900000000), "room for 3 values, the key says 900000000"},
        {beta + 40, word(0), "note /Beta: no values, but a value list"},
        {cell, freed(laid.value(u"Beta", u"Cell").record), "is a free cell"},
        {cell + 4, {'x', 'x'}, "fault /Beta \"Cell\": no value record"},
        {cell + 6, half(0xFFFF), "fault /Beta \"...\": name of 65535"},
        {tiny + 24, {'C', 'e', 'L', 'L'}, "fault /Beta \"CeLL\": same name as"},
        {cell + 8, word(101 + 8), "fault /Beta \"Cell\": data of 109 bytes in a cell"},
        {tiny + 8, word(0x80000005), "fault /Beta \"Tiny\": data of 5 bytes said"},
        {cell + 8, numberBytes(u64{laid.security()[0]} << 32 | 8, 8), "in use already, as data cell of"},
        {db + 4, {'x', 'x'}, "fault /Beta \"Big\": no big-data record"},
        {db + 6, half(2), "fault /Beta \"Big\": 2 fragments for 40000"},
        {db + 6, half(99), "fault /Beta \"Big\": room for"},
        {hbins + laid.value(u"Beta", u"Big").fragmentList + 4, word(laid.value(u"Beta", u"Big").fragments[2]),
         "bytes for a full fragment"},
        {big + 8, word(49000), "fault /Beta \"Big\": the last 16312 bytes"},
        // Security records.
        {sk + 4, {'x', 'x'}, "fault /: no security record"},
        {alfa + 48, word(8), "fault /Alfa: its security record at 0x8, used by 1 key, is not"},
        {alfa + 48, word(0), "note /Alfa: no security record"},
        {sk2 + 16, word(7), "fault /: reference count 7, used by 2 keys"},
        {sk2 + 8, word(0), "fault /: the ring ends here"},
        {sk2 + 8, word(laid.security()[1]), "in use already, as security record"},
        {sk + 12, word(laid.security()[0]), "fault /: back link"},
        {sk + 20, word(0xFFFFFFF0), "fault /: descriptor of 4294967280 bytes"},
    };
    for (const auto& damage : cases) expectFinding(laid, damage.at, damage.bytes, damage.finding);
    for (const u32 minor : {3U, 5U}) EXPECT_EQ(hiveFaults(build(minor).finish()), std::vector<std::string>());
    const HiveBuilder lf = build(3), li = build(5, ListKind::li), ri = build(5, ListKind::riLh);
    expectFinding(lf, hbins + lf.key().list + 12, word(1), "note /Alfa: lf hint");
    expectFinding(li, 0, {'r'}, "note /: li list where version 1.5 has none");
    const u64 sublist = hbins + ri.key().sublists[0];
    expectFinding(ri, sublist + 4, {'r', 'i'}, "fault /: no lf, lh or li list");
    expectFinding(ri, sublist + 6, half(0), "note /: empty list under");
}

TEST(HiveCheck, GoesOnBehindABrokenHbin) {
    HiveBuilder hive = build();
    hive.poke(hive.addHbin(8192), "xxxx");
    hive.addHbin();
    Libraries::Files::Hive::HiveCheckCounts whole, counts;
    hiveFaults(build().finish(), &whole);
    EXPECT_EQ(hiveFaults(hive.finish(), &counts).size(), 1U);
    EXPECT_EQ(counts.hbins, whole.hbins + 1);
    EXPECT_EQ(counts.keys, whole.keys);
}

/// Every prefix of a hive: the work is done as far as the bytes go.
TEST(HiveCheck, EveryShorterFileIsFaulty) {
    const std::vector<u8> file = build().finish();
    for (u64 length = 0; length < file.size(); length += length < 9000 ? 61 : 997)
        EXPECT_FALSE(hiveFaults({file.begin(), file.begin() + static_cast<long>(length)}).empty()) << length;
}

TEST(HiveCheck, KeysDeeperThanAreReadAreAFault) {
    for (const u32 depth : {512U, 513U}) {
        KeyPlan key{.name = u"k"};
        for (u32 i = 0; i < depth; ++i) key = {.name = u"k", .keys = {key}};
        HiveBuilder hive(5);
        hive.build(key);
        EXPECT_EQ(hiveFaults(hive.finish()).size(), depth - 512);
    }
}

}  // namespace
