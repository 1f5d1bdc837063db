// Finding hbins and cells: in sound files, in damaged ones, and past the cache in unsafe mode.

#include <gtest/gtest.h>

#include <tuple>

#include "hive/plainpath.h"
#include "tests/hive/cells.h"
#include "tests/support/failingstripe.h"
#include "tests/support/logcapture.h"

using namespace Platform;
using namespace Libraries::Files::Hive;
using namespace HiveTest;

namespace {

constexpr u32 MIB = 1 << 20;
constexpr u32 UNSAFE = HiveFile::modeReadOnly | HiveFile::modeUnsafe;

/// Three hbins, of 4096, 12288 and 4096 bytes, and the cells that the tests look for.
struct ThreeHbins {
    ThreeHbins() {
        cells[0] = image.allocate(100);
        image.addHbin(12288);
        cells[1] = image.allocate(24);
        big = image.allocate(4096);  // reaches into the hbin's second page
        behindBig = image.allocate(64);
        image.addHbin(4096);
        cells[2] = image.allocate(100);
    }
    /// Whether each of the three cells loads, asked from the last to the first.
    std::array<bool, 3> loaded(const Ref<RegistryHiveObj>& hive) const {
        std::array<bool, 3> result{};
        for (u32 i = 3; i-- > 0;) result[i] = bool(hive->cacheLoadRecord(cells[i]));
        return result;
    }
    HiveImage image;
    u32 cells[3], big, behindBig;
};
constexpr u32 MIDDLE = 4096;

/// A broken head stops the search in every mode, broken cells only where free cells are looked for.
TEST(Discovery, DamageStopsItAndLeavesTheHbinsBeforeUsable) {
    const std::string wrongOffset =
                          "4 Hive: Wrong offset for hbin\n1 Hive: expected: 1000h (4096)\n1 Hive: is: ",
                      overlong = "3 Hive: Length of record exceeds hbin\n",
                      invalid = "3 Hive: record with invalid size: ";
    const ThreeHbins sound;
    const u32 big = sound.big, behind = sound.behindBig, rest = MIDDLE + 12288 - behind;
    const struct {
        bool head;
        u32 offset, value;
        std::string log;  // whole lines
    } cases[] = {
        {true, MIDDLE, 0xFF696268, "4 Hive: Unexpected hbin signature: hbi\xC3\xBF\n"},
        {true, MIDDLE + 4, 0, wrongOffset + "0h (0)\n"},
        {true, MIDDLE + 4, 0xFFFFF000, wrongOffset + "fffff000h (4294963200)\n"},
        {true, MIDDLE + 8, 0, "4 Hive: Invalid size for hbin: 0h (0)\n"},
        {true, MIDDLE + 8, 4097, "4 Hive: Invalid size for hbin: 1001h (4097)\n"},
        {true, MIDDLE + 8, 20480, "4 Hive: Hbin exeeds total length\n"},
        {true, MIDDLE + 8, 0xFFFFF000, "4 Hive: Hbin exeeds total length\n"},  // 32 bits would wrap to 0
        {false, big, 0, invalid + "0h (0)\n1 Hive: record offset: 1038h (4152)\n"},
        {false, behind, 0u - 3, invalid + "3h (3)\n1 Hive: record offset: 2038h (8248)\n"},
        {false, behind, rest + 8, overlong},
        {false, behind, rest + 1, overlong},
        {false, behind, 0u - rest - 8, overlong},
        {false, behind, 0x80000000, overlong},
    };
    for (const auto& c : cases)
        for (const u32 mode : {0u, 1u, 2u}) {
            SCOPED_TRACE(testing::Message() << c.log << "mode " << mode << " value " << c.value);
            ThreeHbins three;
            std::vector<u8> intact = three.image.finish();
            three.image.poke32(c.offset, c.value);
            const auto stripe = makeRef<MemoryStripe>(three.image.bytes());
            const auto hive = openStore(stripe, mode);
            LogCapture log;
            const bool found = !c.head && mode == 1;
            EXPECT_EQ(bool(hive->cacheLoadRecord(three.cells[2])), found);
            EXPECT_EQ(log.text(), found ? "" : c.log);
            EXPECT_EQ(three.loaded(hive), (std::array{true, found, found}));
            // What was found stays, and the search goes on from there once the file is right again.
            std::swap(stripe->bytes(), intact);
            EXPECT_EQ(three.loaded(hive), (std::array{true, true, true}));
        }
}

TEST(Discovery, ACellOfOddLengthIsSteppedOverRoundedUp) {
    for (const u32 size : {0u - 13, 13u})
        for (const u32 mode : {0u, 1u}) {
            ThreeHbins three;
            three.image.poke32(three.cells[1], size);
            three.image.poke32(three.cells[1] + 16, 0u - 8);
            const auto hive = openStore(makeRef<MemoryStripe>(three.image.finish()), mode);
            EXPECT_TRUE(hive->cacheLoadRecord(three.cells[2])) << size << " " << mode;
            EXPECT_FALSE(hive->cacheLoadRecord(three.cells[1] + 16)) << "a record access does not round";
        }
}

TEST(Usage, AddsUpAllCellsAndStopsAtDamage) {
    Random random(7);
    HiveImage image = randomImage(random, 30);
    HiveUsage wanted, usage;
    u32 lastHbin = 0, lastCell = 0;
    for (const Cell& cell : cellsOf(image)) {
        (cell.used ? wanted.usedCells : wanted.freeCells) += 1;
        (cell.used ? wanted.usedBytes : wanted.freeBytes) += cell.length;
        lastHbin = cell.hbin;
        lastCell = cell.offset;
    }
    const u32 tooLong = static_cast<u32>(image.bytes().size() - 4096) - lastCell + 8;
    for (const auto& [at, value] : {std::pair(lastHbin + 4, lastHbin),
                                    {lastHbin, 0u},
                                    {lastHbin + 8, 0u},
                                    {lastHbin + 8, 4097u},
                                    {lastHbin + 32, 0u},
                                    {lastCell, tooLong}}) {
        HiveImage broken = image;
        broken.poke32(at, value);
        const bool intact = at == lastHbin + 4;
        const auto hive = openStore(makeRef<MemoryStripe>(broken.finish()), 1);
        Error::set(0);
        EXPECT_EQ(hive->usage(usage), intact) << at << value;
        EXPECT_EQ(Error::get(), intact ? 0 : 0x200Cu);
        EXPECT_EQ(usage.hbins, intact || at >= lastHbin + 32 ? 30u : 29u);
        if (!intact) continue;
        EXPECT_EQ(std::tie(usage.usedCells, usage.usedBytes, usage.freeCells, usage.freeBytes),
                  std::tie(wanted.usedCells, wanted.usedBytes, wanted.freeCells, wanted.freeBytes));
    }
}

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
    const std::string overlong = "3 Hive: Length of record exceeds hbin\n",
                      used = "3 Hive: Attempt to access an used record (expected unused), record=",
                      unused = "3 Hive: Attempt to access an unused record, record=",
                      invalid = "3 Hive: Record is not valid: ",
                      inHead = "3 Hive: Record intersects with HBIN header, record ofs: ";
    struct {
        u32 offset;
        bool wantFree, found;
        std::string log;
        u32 broken = 0, size = 0;  // a cell of the first hbin and the size it is given
    } const cases[] = {
        {32, false, true, ""},
        {48, true, true, ""},
        {8192 + 4096 - 8, false, true, ""},
        {32, true, false, used + "20h (32)\n"},
        {48, false, false, unused + "30h (48)\n"},
        {56, true, false, invalid + "38h (56)\n"},
        {33, false, false, invalid + "21h (33)\n"},
        {52, true, false, invalid + "34h (52)\n"},
        {0, false, false, inHead + "0h (0)\n"},
        {8192 + 8, false, false, inHead + "2008h (8200)\n"},
        {8192, false, false,
         "ASSERT CONDITION _hbins[hbin].offset + _hbins[hbin].size > offset FAILED IN LINE "},
        {8192 + 4096, false, false, ""},
        {0xFFFFEFF8, false, false, ""},
        {0xFFFFFFF8, true, false, ""},
        {72, false, true, "", 72, 0u - (8192 - 72)},
        {72, false, false, overlong, 72, 0u - (8192 - 72) - 8},
        {72, true, false, overlong, 72, 8192 - 72 + 8},
        {72, true, false, used + "48h (72)\n", 72, 0x80000000},
        {72, false, false, "3 Hive: Record with 0 size -> HBIN is invalid, hbin: 0h (0)\n", 48, 0},
        {32, false, true, "", 48, 0},
        {72, false, false, invalid + "48h (72)\n", 48, 0x80000000},
        {32, false, true, "", 32, 0u - 12},
        {48, true, false, invalid + "30h (48)\n", 32, 0u - 12},
        {72, false, true, "", 32, 0u - 40},
        {45, false, false, unused + "2dh (45)\n", 32, 0u - 13},
    };
    for (const auto& c : cases)
        for (const u32 mode : {0u, 1u}) {
            if (c.broken && mode == 0) continue;  // a writable hive does not get as far
            HiveImage image = twoHbins();
            if (c.broken) image.poke32(c.broken, c.size);
            const auto hive = openStore(makeRef<MemoryStripe>(image.finish()), mode);
            EXPECT_TRUE(hive->cacheLoadRecord(8192 + 32));  // by now both hbins are known
            LogCapture log;
            u32 index = 77;
            const RecordView record = hive->cacheLoadRecord(c.offset, &index, c.wantFree);
            EXPECT_EQ(bool(record), c.found) << c.offset << log.text();
            EXPECT_TRUE(log.contains(c.log)) << log.text();
            EXPECT_EQ(log.text().empty(), c.log.empty()) << c.offset << log.text();
            if (!record) continue;
            EXPECT_EQ(index, c.offset < 8192 ? 0u : 1u);
            EXPECT_EQ(static_cast<u32>(record.size()), image.peek32(c.offset));
        }
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
        EXPECT_EQ(stripe->counters.seeks + stripe->counters.reads, 0u) << "the file was touched " << mode;
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
    image.pokeHeader32(40, 0x80000000);
    const auto page = [file = image.finish()](u64 position, SparseStripe::Page& bytes) {
        if (position < file.size()) std::copy_n(&file[position], bytes.size(), bytes.begin());
    };
    const auto hive = openStore(makeRef<SparseStripe>(0x80000000u + 4096ull, page), 1);
    ASSERT_TRUE(hive);
    LogCapture log;
    EXPECT_FALSE(hive->cacheLoadRecord(32));
    EXPECT_EQ(log.text(), "4 Hive: Failed to allocate new buffer: 100000000h (4294967296)\n");
    EXPECT_FALSE(hive->valid());
}

TEST(HbinCache, AVainAttemptToReadHbinsTogetherLeavesNoErrorCode) {
    class OneByOne final : public MemoryStripe {
     public:
        using MemoryStripe::MemoryStripe;
        u64 readAt(u64 position, Interfaces::ShPtr destination, u64 count) override {
            if (count <= 4096) return MemoryStripe::readAt(position, destination, count);
            Error::setSystem(EIO);
            ++attempts;
            return 0;
        }
        u64 attempts = 0;
    };
    HiveImage image;
    std::vector<u32> cells;
    for (u32 i = 0; i < 600; ++i) cells.push_back(image.allocate(4000));  // one for each hbin
    const auto stripe = makeRef<OneByOne>(image.finish());
    const auto hive = openStore(stripe, HiveFile::modeReadOnly);
    Error::set(ErrorCode::none);
    for (u32 round = 0; round < 3; ++round)  // until so many come back that they are read together
        for (const u32 cell : cells) ASSERT_TRUE(hive->cacheLoadRecord(cell));
    EXPECT_EQ(stripe->attempts > 0, !PLAIN_PATH);
    EXPECT_EQ(Error::get(), ErrorCode::none);
}

TEST(ReadOnlyCache, GivesTheFilesBytesToItsLastOneAndOutlivesFailures) {
    Random random(5);
    constexpr u64 around = 65536;  // what a miss reads more on either side
    for (const u64 fileBytes : {u64{1}, u64{4096}, around + 1, 3 * around, u64{MIB}, u64{6 * MIB + 13}}) {
        const std::vector<u8> file = patternBytes(fileBytes, static_cast<u32>(fileBytes));
        const auto cache = makeRef<ReadOnlyCache>(makeRef<MemoryStripe>(file));
        for (int step = 0; step < 400; ++step) {
            const u64 position = random() % 8 ? random() % fileBytes : fileBytes - 1;
            const u64 left = fileBytes - position, most = std::min(left, u64{1} << random() % 23);
            const u64 length = random() % 4 ? 1 + random() % most : left;
            ASSERT_TRUE(shows(cache->get(position, length), file, position, length))
                << fileBytes << " " << position << " " << length;
            EXPECT_FALSE(cache->get(position, left + 1)) << fileBytes << " " << position;
        }
        for (const u64 position : {fileBytes + 1, ~u64{0} - 3, ~u64{0}})
            EXPECT_FALSE(cache->get(position, 4) || cache->get(fileBytes - 1, position)) << position;
    }
    const std::vector<u8> file = patternBytes(2 * MIB);
    for (const u32 kind : {FailingStripe::seeks, FailingStripe::reads, FailingStripe::shortReads}) {
        const auto stripe = makeRef<FailingStripe>(makeRef<MemoryStripe>(file));
        const auto cache = makeRef<ReadOnlyCache>(stripe);
        ASSERT_TRUE(cache->get(0, 4));
        stripe->failAt(0, kind);
        EXPECT_FALSE(cache->get(MIB, 4));
        EXPECT_TRUE(shows(cache->get(0, 4), file, 0, 4)) << "a window that is loaded";
        EXPECT_EQ(stripe->operations(), 1u);
        EXPECT_TRUE(shows(cache->get(MIB, 4), file, MIB, 4));
    }
}

TEST(UnsafeMode, ReadsUsedRecordsUpToTheFilesLastByte) {
    HiveImage image;
    image.addHbin(4096);
    const u32 used = image.allocate(24), loose = image.freeCell(4096 - 32 - 24 - 8), last = image.allocate(8);
    image.poke32(8, 0);  // this mode does not look at hbins
    const std::string beyond = "3 Hive: Failed to get record in unsafe mode, record=",
                      unused = "3 Hive: Attempt to access an unused record in unsafe mode, record=";
    struct {
        u32 offset, size;
        std::string log;  // empty when the record is to be found
    } const cases[] = {
        {used, 0u - 24, ""},
        {used + 8, 0u - 16, ""},  // no boundary, which this mode does not ask for
        {used, 0u - 5, ""},
        {last, 0u - 8, ""},
        {last, 0u - 9, beyond + "ff8h (4088)\n"},
        {used, 0x80000000, beyond + "20h (32)\n"},
        {loose, 16, unused + "38h (56)\n"},
        {used, 0, unused + "20h (32)\n"},
    };
    for (const auto& c : cases) {
        HiveImage broken = image;
        broken.poke32(c.offset, c.size);
        const std::vector<u8> file = broken.finish();
        const auto hive = openStore(makeRef<MemoryStripe>(file), UNSAFE);
        LogCapture log;
        const RecordView record = hive->cacheLoadRecord(c.offset);
        EXPECT_EQ(bool(record), c.log.empty()) << c.offset;
        EXPECT_EQ(log.text(), c.log);
        EXPECT_TRUE(!record || shows(record, file, u64{c.offset} + 4096, record.absoluteSize()));
        for (const u32 offset : {4096u, 0xFFFFFFF8u}) EXPECT_FALSE(hive->cacheLoadRecord(offset)) << offset;
        log.clear();
        EXPECT_FALSE(hive->cacheLoadRecord(used, nullptr, false));
        EXPECT_EQ(log.text(), "3 Hive: Call of internal cacheLoadRecord in unsafe mode\n");
    }
}

}  // namespace
