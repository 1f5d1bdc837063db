#include <gtest/gtest.h>

#include <tuple>

#include "tests/hive/cells.h"
#include "tests/support/logcapture.h"

using namespace Platform;
using namespace Libraries::Files::Hive;
using namespace HiveTest;

namespace {

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

struct Damage {
    u32 offset, value;
    std::string log;  // whole lines
};

void expectStopsAtMiddle(const Damage& damage, u32 mode) {
    SCOPED_TRACE(testing::Message() << damage.log << "mode " << mode << " value " << damage.value);
    ThreeHbins three;
    const auto stripe = makeRef<MemoryStripe>(three.image.finish());
    three.image.poke32(damage.offset, damage.value);
    std::swap(stripe->bytes(), three.image.bytes());
    const auto hive = openStore(stripe, mode);
    LogCapture log;
    EXPECT_FALSE(hive->cacheLoadRecord(three.cells[2]));
    EXPECT_EQ(log.text(), damage.log);
    EXPECT_EQ(three.loaded(hive), (std::array{true, false, false}));
    // What was found stays, and the search goes on from there once the file is right again.
    std::swap(stripe->bytes(), three.image.bytes());
    EXPECT_EQ(three.loaded(hive), (std::array{true, true, true}));
}

TEST(Discovery, ABrokenHbinHeadStopsItAndLeavesTheHbinsBeforeUsable) {
    const std::string wrongOffset =
        "4 Hive: Wrong offset for hbin\n1 Hive: expected: 1000h (4096)\n1 Hive: is: ";
    const Damage cases[] = {
        {MIDDLE, 0xFF696268, "4 Hive: Unexpected hbin signature: hbi\xC3\xBF\n"},
        {MIDDLE + 4, 0, wrongOffset + "0h (0)\n"},
        {MIDDLE + 4, 0xFFFFF000, wrongOffset + "fffff000h (4294963200)\n"},
        {MIDDLE + 8, 0, "4 Hive: Invalid size for hbin: 0h (0)\n"},
        {MIDDLE + 8, 4097, "4 Hive: Invalid size for hbin: 1001h (4097)\n"},
        {MIDDLE + 8, 20480, "4 Hive: Hbin exeeds total length\n"},
        {MIDDLE + 8, 0xFFFFF000, "4 Hive: Hbin exeeds total length\n"},  // 32 bits would wrap to 0
    };
    for (const Damage& damage : cases)
        for (const u32 mode : {0u, 1u, 2u}) expectStopsAtMiddle(damage, mode);
}

TEST(Discovery, BrokenCellsStopOnlyAWritableHive) {
    const ThreeHbins three;
    const u32 rest = MIDDLE + 12288 - three.behindBig;
    const std::string overlong = "3 Hive: Length of record exceeds hbin\n";
    const Damage cases[] = {
        {three.big, 0, "3 Hive: record with invalid size: 0h (0)\n1 Hive: record offset: 1038h (4152)\n"},
        {three.behindBig, 0u - 3,
         "3 Hive: record with invalid size: 3h (3)\n1 Hive: record offset: 2038h (8248)\n"},
        {three.behindBig, rest + 8, overlong},
        {three.behindBig, rest + 1, overlong},
        {three.behindBig, 0u - rest - 8, overlong},
        {three.behindBig, 0x80000000, overlong},
    };
    for (const Damage& damage : cases) {
        expectStopsAtMiddle(damage, 0);
        ThreeHbins broken;
        broken.image.poke32(damage.offset, damage.value);
        EXPECT_EQ(broken.loaded(openStore(makeRef<MemoryStripe>(broken.image.finish()), 1)),
                  (std::array{true, true, true}));
    }
}

TEST(Discovery, ACellOfOddLengthIsSteppedOverRoundedUp) {
    for (const u32 size : {0u - 13, 13u}) {
        for (const u32 mode : {0u, 1u}) {
            ThreeHbins three;
            const u32 odd = three.cells[1];
            three.image.poke32(odd, size);
            three.image.poke32(odd + 16, 0u - 8);
            const auto hive = openStore(makeRef<MemoryStripe>(three.image.finish()), mode);
            EXPECT_TRUE(hive->cacheLoadRecord(three.cells[2])) << size << " " << mode;
            EXPECT_FALSE(hive->cacheLoadRecord(odd + 16)) << "a record access does not round";
        }
    }
}

// Regression: after the scan of a long hbin the file stood behind the last piece read instead of at the next
// hbin, so that a last cell of several pieces hid all hbins behind it.
TEST(Discovery, FindsWhatLiesBehindALastCellOfManyPieces) {
    for (const u32 size : {12288u, 32768u}) {
        for (const u32 lastCell : {size - 32, size - 4088, size - 4096, size - 4104}) {
            for (const bool used : {true, false}) {
                HiveImage image;
                image.addHbin(size);
                if (lastCell + 32 < size) image.allocate(size - 32 - lastCell);
                if (used) image.allocate(lastCell);
                image.addHbin(4096);
                const u32 last = image.allocate(16);
                for (const u32 mode : {0u, 1u, 2u, 3u})
                    EXPECT_TRUE(openStore(makeRef<MemoryStripe>(image.finish()), mode)->cacheLoadRecord(last))
                        << size << " " << lastCell << " " << used << " " << mode;
            }
        }
    }
}

TEST(Discovery, RandomHivesGiveEveryCell) {
    Random random(4711);
    for (int round = 0; round < 60; ++round) {
        HiveImage image = randomImage(random, 1 + random() % 8);
        const std::vector<u8> file = image.finish();
        std::vector<Cell> cells = cellsOf(image);
        for (const u32 mode : {0u, 1u, 2u}) {
            const auto hive = openStore(makeRef<MemoryStripe>(file), mode);
            LogCapture log;
            std::shuffle(cells.begin(), cells.end(), random);
            for (const Cell& cell : cells)
                ASSERT_TRUE(shows(hive->cacheLoadRecord(cell.offset, nullptr, !cell.used), file,
                                  cell.offset + 4096, cell.length))
                    << cell.offset;
            EXPECT_EQ(log.text(), "") << round;
        }
    }
}

TEST(Usage, AddsUpAllCellsAndStopsAtDamage) {
    Random random(7);
    HiveImage image = randomImage(random, 30);
    HiveUsage wanted, usage;
    u32 lastHbin = 0;
    for (const Cell& cell : cellsOf(image)) {
        (cell.used ? wanted.usedCells : wanted.freeCells) += 1;
        (cell.used ? wanted.usedBytes : wanted.freeBytes) += cell.length;
        lastHbin = cell.hbin;
    }
    for (const auto& [at, value] : {std::pair(4u, lastHbin), {0u, 0u}, {8u, 0u}, {8u, 4097u}, {32u, 0u}}) {
        HiveImage broken = image;
        broken.poke32(lastHbin + at, value);
        const bool intact = at == 4;
        Error::set(0);
        EXPECT_EQ(openStore(makeRef<MemoryStripe>(broken.finish()), 1)->usage(usage), intact) << at << value;
        EXPECT_EQ(Error::get(), intact ? 0 : 0x200Cu);
        EXPECT_EQ(usage.hbins, intact || at == 32 ? 30u : 29u);
        if (!intact) continue;
        EXPECT_EQ(std::tie(usage.usedCells, usage.usedBytes, usage.freeCells, usage.freeBytes),
                  std::tie(wanted.usedCells, wanted.usedBytes, wanted.freeCells, wanted.freeBytes));
    }
}

}  // namespace
