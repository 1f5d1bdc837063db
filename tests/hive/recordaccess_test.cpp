#include <gtest/gtest.h>

#include "tests/hive/cells.h"
#include "tests/support/logcapture.h"

using namespace Platform;
using namespace Libraries::Files::Hive;
using namespace HiveTest;

namespace {

constexpr u32 MIB = 1 << 20;

/// Cells at 32 (used, 16 bytes), 48 (free, 24) and 72 (used) in an hbin of 8192 bytes, then an hbin that two
/// used cells fill: the last one has 8 bytes and ends with the file.
HiveImage twoHbins() {
    HiveImage image;
    image.addHbin(8192);
    image.allocate(16);
    image.freeCell(24);
    image.allocate(40);
    image.addHbin(4096);
    image.allocate(4096 - 32 - 8);
    image.allocate(8);
    return image;
}

TEST(RecordAccess, GivesCellsOfTheWantedKindAtTheirBoundariesOnly) {
    const char* const overlong = "3 Hive: Length of record exceeds hbin\n";
    struct {
        u32 offset;
        bool wantFree;
        const char* log;           // null when the record is to be found
        u32 broken = 0, size = 0;  // a cell of the first hbin and the size it is given
    } const cases[] = {
        {32, false, nullptr},
        {48, true, nullptr},
        {72, false, nullptr},
        {8192 + 4096 - 8, false, nullptr},
        {32, true, "3 Hive: Attempt to access an used record (expected unused), record=20h (32)\n"},
        {48, false, "3 Hive: Attempt to access an unused record, record=30h (48)\n"},
        {56, true, "3 Hive: Record is not valid: 38h (56)\n"},
        {33, false, "3 Hive: Record is not valid: 21h (33)\n"},
        {52, true, "3 Hive: Record is not valid: 34h (52)\n"},
        {0, false, "3 Hive: Record intersects with HBIN header, record ofs: 0h (0)\n"},
        {8192 + 8, false, "3 Hive: Record intersects with HBIN header, record ofs: 2008h (8200)\n"},
        {8192, false, "ASSERT CONDITION _hbins[hbin].offset + _hbins[hbin].size > offset FAILED IN LINE "},
        {8192 + 4096, false, ""},
        {0xFFFFEFF8, false, ""},
        {0xFFFFFFF8, true, ""},
        {72, false, nullptr, 72, 0u - (8192 - 72)},
        {72, false, overlong, 72, 0u - (8192 - 72) - 8},
        {72, true, overlong, 72, 8192 - 72 + 8},
        {72, true, "3 Hive: Attempt to access an used record (expected unused), record=48h (72)\n", 72,
         0x80000000},
        {72, false, "3 Hive: Record with 0 size -> HBIN is invalid, hbin: 0h (0)\n", 48, 0},
        {32, false, nullptr, 48, 0},
        {72, false, "3 Hive: Record is not valid: 48h (72)\n", 48, 0x80000000},
        {32, false, nullptr, 32, 0u - 12},
        {48, true, "3 Hive: Record is not valid: 30h (48)\n", 32, 0u - 12},
        {72, false, nullptr, 32, 0u - 40},
        {45, false, "3 Hive: Attempt to access an unused record, record=2dh (45)\n", 32, 0u - 13},
    };
    for (const auto& c : cases) {
        for (const u32 mode : {0u, 1u}) {
            if (c.broken && mode == 0) continue;  // a writable hive does not get as far
            HiveImage image = twoHbins();
            if (c.broken) image.poke32(c.broken, c.size);
            const auto hive = openStore(makeRef<MemoryStripe>(image.finish()), mode);
            EXPECT_TRUE(hive->cacheLoadRecord(8192 + 32));  // by now both hbins are known
            LogCapture log;
            u32 index = 77;
            const RecordView record = hive->cacheLoadRecord(c.offset, &index, c.wantFree);
            EXPECT_EQ(bool(record), c.log == nullptr) << c.offset << log.text();
            EXPECT_TRUE(log.contains(c.log ? c.log : "")) << log.text();
            EXPECT_EQ(log.text().empty(), !c.log || !*c.log) << c.offset << log.text();
            if (!record) continue;
            EXPECT_EQ(index, c.offset < 8192 ? 0u : 1u);
            EXPECT_EQ(static_cast<u32>(record.size()), image.peek32(c.offset));
        }
    }
}

TEST(RecordAccess, RefusesUnalignedOffsetsBeforeTheFileIsTouched) {
    const auto stripe = makeRef<MemoryStripe>(twoHbins().finish());
    for (const u32 mode : {0u, 1u, 5u}) {
        const auto hive = openStore(stripe, mode);
        stripe->counters = {};
        for (const u32 offset : {4u, 33u, 0xFFFFFFFFu}) {
            LogCapture log;
            EXPECT_FALSE(hive->cacheLoadRecord(offset));
            EXPECT_EQ(Error::get(), 0x2006u);
            EXPECT_TRUE(log.contains("4 Hive: Attempt to access record with invalid alignment, offset: "));
        }
        EXPECT_EQ(stripe->counters.seeks + stripe->counters.reads, 0u) << mode;
    }
}

TEST(RecordAccess, NothingIsReadBehindTheCacheMemory) {
    HiveImage image;
    image.addHbin(MIB);
    image.allocate(MIB - 32 - 16);
    const u32 last = image.allocate(16);
    const auto hive = openStore(makeRef<MemoryStripe>(image.finish()), 1);
    const RecordView record = hive->cacheLoadRecord(last);  // ends where the cache memory does
    ASSERT_TRUE(record);
    for (const u64 offset : {u64{16}, u64{20}, u64{MIB}, u64{1} << 40}) EXPECT_EQ(record.u32At(offset), 0u);
    std::vector<u8> bytes(64, 0xEE);
    record.copy(bytes.data(), 4, bytes.size());
    EXPECT_TRUE(std::all_of(bytes.begin() + 12, bytes.end(), [](u8 byte) { return byte == 0; }));
    EXPECT_EQ(record.as<hive_record_nk>().nameLength, 0u);
}

TEST(HbinCache, AnHbinThatNoCacheCanHoldMakesTheHiveInvalid) {
    HiveImage image;
    image.addHbin(4096);
    image.poke32(8, 0x80000000);
    const auto hive = openStore(image.stretched(0x80000000u + 4096ull), 1);
    ASSERT_TRUE(hive);
    LogCapture log;
    EXPECT_FALSE(hive->cacheLoadRecord(32));
    EXPECT_EQ(log.text(), "4 Hive: Failed to allocate new buffer: 100000000h (4294967296)\n");
    EXPECT_FALSE(hive->valid());
}

using Hbin = std::vector<u8>;

void put32(Hbin& hbin, u32 at, u32 value) {
    const auto little = numberBytes(value);
    std::copy_n(little.begin(), std::min<std::size_t>(4, hbin.size() - at), hbin.begin() + at);
}

/// Changes something in the hbin, mostly a cell's size, and tells the map.
void change(Random& random, Hbin& hbin, CellMap& map) {
    const u32 size = static_cast<u32>(hbin.size());
    u32 at = random() % (size / 8) * 8;
    u32 length = std::min(4 + random() % 64, size - at);
    const u32 kind = random() % 16;
    if (kind == 0) {
        at += random() % 8;
        length = std::min(length, size - at);
    }
    for (u32 i = std::max(at, 32u); i < at + length; ++i)  // the head may be rewritten, with what it holds
        if (kind < 6) hbin[i] = kind == 0 ? static_cast<u8>(random()) : i % 4 ? 0xFF : 0xF8;  // -8 each
    if (kind > 5 && at >= 32) {
        const u32 most[] = {4, 40, 400};
        u32 cell = (1 + random() % most[random() % 3]) * 8;
        if (random() % 64 == 0) cell = random() % 2 * (size - at);  // empty, or to the hbin's end
        if (kind == 6 && size - at >= 64) {  // two odd cells that end at a multiple of 8
            cell = 4 + random() % 29;
            length = 64;
            put32(hbin, at + cell, 40 - cell);
        }
        put32(hbin, at, random() % 2 ? cell : 0 - cell);
    }
    map.changed(at, length);
}

CellMap::Answer plainWalk(const Hbin& hbin, u32 position) {
    u64 walked = 32;
    while (walked < position) {
        const u32 length = RecordView(hbin.data() + walked, hbin.size() - walked).absoluteSize();
        if (length == 0) return CellMap::Answer::zeroSizedCell;
        walked += length;
    }
    return walked == position ? CellMap::Answer::boundary : CellMap::Answer::noBoundary;
}

TEST(CellMap, AnswersAsThePlainWalkDoesThroughAllChanges) {
    Random random(2024);
    u32 found[3] = {};
    for (int round = 0; round < 100; ++round) {
        Hbin hbin((1 + random() % 5) * 4096, 0xFF);
        const u32 size = static_cast<u32>(hbin.size()), offset = 0x7000;
        for (u32 at = 32; at < size; at += 8) put32(hbin, at, 0u - 8);
        put32(hbin, 4, offset);
        put32(hbin, 8, size);
        CellMap map;
        for (int step = 0; step < 600; ++step) {
            if (random() % 3 == 0) change(random, hbin, map);
            const u32 position = 32 + random() % ((size - 32) / 8) * 8;
            const CellMap::Answer wanted = plainWalk(hbin, position);
            ASSERT_EQ(map.isBoundary(hbin.data(), size, position), wanted) << round << " " << step;
            ASSERT_EQ(RegistryHiveObj::isValidRecord(hbin.data(), offset + position),
                      wanted == CellMap::Answer::boundary);
            ++found[static_cast<u32>(wanted)];
        }
    }
    EXPECT_GT(*std::min_element(found, found + 3), 1000u) << "a poor mix of answers";
}

TEST(HbinTable, FindsWhatAPlainWalkFinds) {
    Random random(11);
    for (int round = 0; round < 20; ++round) {
        HbinTable table;
        EXPECT_EQ(table.firstWithRoom(1), INVALID_HBIN);
        EXPECT_EQ(table.find(0), 0u);
        const u32 most = 1 + random() % 400;
        const u32 roomMax = round % 2 ? 16 : 1 << 20;
        for (int step = 0; step < 2000; ++step) {
            if (table.empty() || (table.size() < most && random() % 3 == 0)) {
                const u32 size = (1 + random() % 4) * 4096;
                table.append({static_cast<u32>(table.end()), size, random() % 2 ? random() % roomMax : 0});
            } else {
                const u32 record = static_cast<u32>(random());
                const u32 index = random() % table.size();
                table.setLargestFree(index, random() % 4 ? random() % roomMax : 0, record);
                EXPECT_EQ(table[index].largestFreeRecord, record);
            }
            const u32 wanted = 1 + random() % roomMax;
            u32 first = 0;
            while (first < table.size() && table[first].largestFree < wanted) ++first;
            ASSERT_EQ(table.firstWithRoom(wanted), first < table.size() ? first : INVALID_HBIN) << step;
            const u32 offset = random() % (static_cast<u32>(table.end()) / 2048 + 2) * 2048 + random() % 3;
            first = 0;
            while (first < table.size() && table[first].offset + table[first].size < offset) ++first;
            ASSERT_EQ(table.find(offset), first) << step << " " << offset;
        }
    }
}

}  // namespace
