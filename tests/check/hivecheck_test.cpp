#include <gtest/gtest.h>

#include <functional>

#include "tests/support/hivebuilder.h"
#include "tests/support/hivecheck.h"

namespace {

using namespace HiveTest;  // NOLINT

/// A hive with a record of every kind: keys Alpha (a class name), Beta (values), Gamma/Deep, and two
/// descriptors.
KeyPlan plan(ListKind list = ListKind::automatic) {
    return {.name = u"ROOT",
            .keys = {{.name = u"Alpha", .className = u"Class", .security = 1},
                     {.name = u"Beta",
                      .values = {{.name = u"Big", .data = patternBytes(40000)},
                                 {.name = u"Cell", .data = patternBytes(100)},
                                 {.name = u"Small", .type = 4, .data = numberBytes(1)}}},
                     {.name = u"Gamma", .keys = {{.name = u"Deep"}}, .security = 1}},
            .list = list};
}

std::unique_ptr<HiveBuilder> build(u32 minor = 5, ListKind list = ListKind::automatic) {
    auto hive = std::make_unique<HiveBuilder>(minor);
    hive->setDescriptors({patternBytes(20, 1), patternBytes(28, 2)});
    hive->build(plan(list));
    return hive;
}

struct Damage {
    const char* name;
    std::function<void(HiveBuilder&)> apply;
    const char* finding;  ///< how one of the findings reads, from the severity on; the offset is left out
    u32 minor = 5;
    ListKind list = ListKind::automatic;
};

u32 record(HiveBuilder& hive, const char16_t* path) {
    return hive.key(path).record;
}
const LaidValue& value(HiveBuilder& hive, const char16_t* name) {
    return hive.value(u"Beta", name);
}

/// Offsets in the records are those of docs/FORMAT.md.
const std::vector<Damage> damages = {
    {"signature", [](HiveBuilder& h) { h.bytes()[0] = 'R'; }, "fault : no hive signature"},
    {"version", [](HiveBuilder& h) { h.pokeHeader32(24, 4); }, "fault : version 1.4"},
    {"size", [](HiveBuilder& h) { h.pokeHeader32(40, 0xFFFFE000); }, "fault : the file ends 42949"},
    {"sequence", [](HiveBuilder& h) { h.pokeHeader32(4, 99); }, "note : sequence numbers 99 and"},
    {"root", [](HiveBuilder& h) { h.setRoot(h.key().record + 8); }, "fault : no root key at"},
    {"hbin place", [](HiveBuilder& h) { h.poke32(4100, 0); }, "fault : hbin says it is at 0x0"},
    {"hbin size", [](HiveBuilder& h) { h.poke32(4104, 0); }, "fault : hbin of 0x0 bytes"},
    {"hbin distance", [](HiveBuilder& h) { h.poke32(28, 8); }, "note : distance to the next hbin 0x8"},
    {"cell size", [](HiveBuilder& h) { h.poke32(32, 0xFFFFFFF4); }, "fault : cell size -12"},
    {"cell end", [](HiveBuilder& h) { h.poke32(32, 0x80000000); }, "fault : cell size -2147483648"},
    {"unused", [](HiveBuilder& h) { h.allocate(40); }, "note : used cell of 40 bytes that nothing refers to"},
    {"key", [](HiveBuilder& h) { h.poke(record(h, u"Beta") + 4, "xx"); }, "fault /Beta: no key record"},
    {"key name", [](HiveBuilder& h) { h.poke16(record(h, u"Beta") + 76, 50); },
     "fault /...: name of 50 bytes"},
    {"no name", [](HiveBuilder& h) { h.poke16(record(h, u"Alpha") + 76, 0); }, "note /: empty name"},
    {"odd name", [](HiveBuilder& h) { h.poke16(record(h, u"Alpha") + 6, 0); }, "UTF-16 name of odd length"},
    {"parent", [](HiveBuilder& h) { h.poke32(record(h, u"Gamma/Deep") + 20, 32); },
     "fault /Gamma/Deep: parent 0x20"},
    {"order", [](HiveBuilder& h) { h.poke(record(h, u"Beta") + 80, "Zeta"); }, "fault /Gamma: out of order"},
    {"double key",
     [](HiveBuilder& h) {
         h.poke(record(h, u"Beta") + 80, "ALPHA");
         h.poke16(record(h, u"Beta") + 76, 5);
     },
     "fault /ALPHA: same name as"},
    {"class name", [](HiveBuilder& h) { h.release(h.key(u"Alpha").className); },
     "fault /Alpha: its class name at"},
    {"class length", [](HiveBuilder& h) { h.poke16(record(h, u"Alpha") + 78, 99); },
     "note /Alpha: class name of 99"},
    {"no list", [](HiveBuilder& h) { h.poke32(record(h, u"Gamma") + 32, 0); },
     "fault /Gamma: 1 subkey, but no list"},
    {"count", [](HiveBuilder& h) { h.poke32(record(h, u"Gamma") + 24, 0); },
     "fault /Gamma: lists 1 subkey, says 0"},
    {"list", [](HiveBuilder& h) { h.poke(h.key().list + 4, "lx"); }, "fault /: no subkey list"},
    {"list end", [](HiveBuilder& h) { h.poke16(h.key().list + 6, 9); },
     "fault /: lh list of 9 entries runs past"},
    {"list kind", [](HiveBuilder&) {}, "note /: li list where version 1.5 has none", 5, ListKind::li},
    {"ri", [](HiveBuilder& h) { h.poke(h.key().sublists[0] + 4, "ri"); }, "fault /: no lf, lh or li list", 5,
     ListKind::riLh},
    {"empty sublist", [](HiveBuilder& h) { h.poke16(h.key().sublists[0] + 6, 0); },
     "note /: empty list under", 5, ListKind::riLh},
    {"hash", [](HiveBuilder& h) { h.poke32(h.key().list + 12, 1); }, "fault /Alpha: lh hash 0x1"},
    {"hint", [](HiveBuilder& h) { h.poke32(h.key().list + 12, 1); }, "note /Alpha: lf hint", 3},
    {"loop", [](HiveBuilder& h) { h.poke32(h.key(u"Gamma").list + 8, h.key().record); },
     "as key record of the base block"},
    {"value list", [](HiveBuilder& h) { h.poke32(record(h, u"Beta") + 44, 8); },
     "fault /Beta: its value list at 0x8 is no cell"},
    {"values", [](HiveBuilder& h) { h.poke32(record(h, u"Beta") + 40, 900000000); },
     "room for 3 values, the key says 900000000"},
    {"no values", [](HiveBuilder& h) { h.poke32(record(h, u"Beta") + 40, 0); },
     "note /Beta: no values, but a value list"},
    {"free value", [](HiveBuilder& h) { h.release(value(h, u"Cell").record); }, "is a free cell"},
    {"value", [](HiveBuilder& h) { h.poke(value(h, u"Cell").record + 4, "xx"); },
     "fault /Beta \"Cell\": no value record"},
    {"value name", [](HiveBuilder& h) { h.poke16(value(h, u"Cell").record + 6, 0xFFFF); },
     "fault /Beta \"...\": name of 65535"},
    {"double value",
     [](HiveBuilder& h) {
         h.poke(value(h, u"Small").record + 24, "CeLL");
         h.poke16(value(h, u"Small").record + 6, 4);
     },
     "fault /Beta \"CeLL\": same name as"},
    {"data", [](HiveBuilder& h) { h.poke32(value(h, u"Cell").record + 8, 101 + 8); },
     "fault /Beta \"Cell\": data of 109 bytes in a cell"},
    {"resident", [](HiveBuilder& h) { h.poke32(value(h, u"Small").record + 8, 0x80000005); },
     "fault /Beta \"Small\": data of 5 bytes said"},
    {"shared data",
     [](HiveBuilder& h) {
         h.poke32(value(h, u"Cell").record + 12, h.security()[0]);
         h.poke32(value(h, u"Cell").record + 8, 8);
     },
     "in use already, as data cell of"},
    {"db", [](HiveBuilder& h) { h.poke(value(h, u"Big").data + 4, "xx"); },
     "fault /Beta \"Big\": no big-data record"},
    {"few fragments", [](HiveBuilder& h) { h.poke16(value(h, u"Big").data + 6, 2); },
     "fault /Beta \"Big\": 2 fragments for 40000"},
    {"many fragments", [](HiveBuilder& h) { h.poke16(value(h, u"Big").data + 6, 99); },
     "fault /Beta \"Big\": room for"},
    {"fragment",
     [](HiveBuilder& h) { h.poke32(value(h, u"Big").fragmentList + 4, value(h, u"Big").fragments[2]); },
     "bytes for a full fragment"},
    {"last fragment", [](HiveBuilder& h) { h.poke32(value(h, u"Big").record + 8, 49000); },
     "fault /Beta \"Big\": the last 16312 bytes"},
    {"sk", [](HiveBuilder& h) { h.poke(h.security()[0] + 4, "xx"); }, "fault /: no security record"},
    {"off the ring", [](HiveBuilder& h) { h.poke32(record(h, u"Alpha") + 48, 8); },
     "fault /Alpha: its security record at 0x8, used by 1 key, is not"},
    {"no security", [](HiveBuilder& h) { h.poke32(record(h, u"Alpha") + 48, 0); },
     "note /Alpha: no security record"},
    {"users", [](HiveBuilder& h) { h.poke32(h.security()[1] + 16, 7); },
     "fault /: reference count 7, used by 2 keys"},
    {"open ring", [](HiveBuilder& h) { h.poke32(h.security()[1] + 8, 0); }, "fault /: the ring ends here"},
    {"inner ring", [](HiveBuilder& h) { h.poke32(h.security()[1] + 8, h.security()[1]); },
     "in use already, as security record"},
    {"back link", [](HiveBuilder& h) { h.poke32(h.security()[0] + 12, h.security()[0]); },
     "fault /: back link"},
    {"descriptor", [](HiveBuilder& h) { h.poke32(h.security()[0] + 20, 0xFFFFFFF0); },
     "fault /: descriptor of 4294967280 bytes"},
};

TEST(HiveCheck, EachDamageIsFoundWhereItIs) {
    for (const u32 minor : {3U, 5U})
        EXPECT_EQ(hiveFaults(build(minor)->finish()), std::vector<std::string>());
    for (const Damage& damage : damages) {
        const auto hive = build(damage.minor, damage.list);
        damage.apply(*hive);
        bool found = false;
        std::string all;
        for (const std::string& line : hiveFaults(hive->finish())) {
            // "fault 1a0 /Beta: ..." without the offset.
            const auto space = line.find(' '), next = line.find_first_of(" :", space + 1);
            const bool placed = line[next] == ' ';
            const std::string bare = placed ? line.substr(0, space) + line.substr(next) : line;
            found = found || bare.find(damage.finding) != std::string::npos;
            all += line + "\n";
        }
        EXPECT_TRUE(found) << damage.name << "; found were:\n" << all;
    }
}

TEST(HiveCheck, GoesOnBehindABrokenHbin) {
    const auto hive = build();
    hive->poke(hive->addHbin(8192), "xxxx");
    hive->addHbin();
    Libraries::Files::Hive::HiveCheckCounts whole, counts;
    hiveFaults(build()->finish(), &whole);
    EXPECT_EQ(hiveFaults(hive->finish(), &counts).size(), 1U);
    EXPECT_EQ(counts.hbins, whole.hbins + 1);
    EXPECT_EQ(counts.keys, whole.keys);
}

/// Every prefix of a hive: the work is done as far as the bytes go.
TEST(HiveCheck, EveryShorterFileIsFaulty) {
    const std::vector<u8> file = build()->finish();
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
