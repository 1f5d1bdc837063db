#include <gtest/gtest.h>

#include "hive/errorcodes.h"
#include "tests/hive/cells.h"

namespace {

using namespace HiveTest;                // NOLINT
using namespace Libraries::Files::Hive;  // NOLINT

/// The allocator spelled out over the bytes of the file: it walks all cells for everything.
class PlainAllocator {
 public:
    explicit PlainAllocator(HiveImage start) : image(std::move(start)) { image.fixChecksum(); }

    HiveImage image;

    u32 allocate(u32 size) {
        const u32 wanted = (size + 7) / 8 * 8;
        Cell best{};
        for (const Cell& cell : cellsOf(image)) {
            if (cell.hbin != best.hbin) {
                if (best.length >= wanted) break;
                best = {0, 0, false, cell.hbin};
            }
            if (!cell.used && cell.length > best.length) best = cell;
        }
        if (best.length < wanted) best = append(wanted);
        const u32 behind = freeBehind(best.offset + best.length);
        image.poke32(best.offset, 0 - wanted);
        if (wanted != best.length) image.poke32(best.offset + wanted, best.length - wanted + behind);
        return best.offset;
    }

    u32 resize(u32 offset, u32 size, bool copyData, bool keepIfLarger) {
        const u32 wanted = (size + 7) / 8 * 8, current = 0 - image.peek32(offset);
        if (current == wanted || (current > wanted && keepIfLarger)) return offset;
        const u32 available = current + freeBehind(offset + current);
        if (wanted && wanted <= available) {
            image.poke32(offset, 0 - wanted);
            if (wanted < available) image.poke32(offset + wanted, available - wanted);
            return offset;
        }
        const u32 moved = wanted ? allocate(wanted) : 0;
        if (wanted && copyData)
            for (u32 i = 4; i < current; i += 4) image.poke32(moved + i, image.peek32(offset + i));
        image.poke32(offset, available);
        return moved;
    }

 private:
    u32 freeBehind(u32 at) {
        u32 total = 0;
        for (const Cell& cell : cellsOf(image)) {
            if (cell.offset != at + total) continue;
            if (cell.used || cell.offset == cell.hbin + 32) break;
            total += cell.length;
        }
        return total;
    }

    Cell append(u32 wanted) {
        const u32 hbin = static_cast<u32>(image.bytes().size() - 4096);
        const u32 size = (wanted + 32 + 4095) / 4096 * 4096;
        u32 last = 0;
        for (const Cell& cell : cellsOf(image)) last = cell.hbin;
        image.bytes().resize(image.bytes().size() + size);
        image.poke32(last + 28, hbin - last);
        image.poke(hbin, "hbin");
        image.poke32(hbin + 4, hbin);
        image.poke32(hbin + 8, size);
        image.poke32(hbin + 32, size - 32);
        image.pokeHeader32(40, hbin + size);
        image.fixChecksum();
        return {hbin + 32, size - 32, false, hbin};
    }
};

/// A size to ask for: mostly small, sometimes near one page or over several.
u32 someSize(Random& random) {
    const u32 most[] = {40, 200, 1500, 20000};
    return random() % 16 == 0 ? 4056 + random() % 48 : 1 + random() % most[random() % 4];
}

/// A store in each mode of writing.
struct Hives {
    explicit Hives(const std::vector<u8>& file) {
        for (auto& store : stores) store = makeRef<MemoryStripe>(file);
        reopen();
    }
    void reopen() {
        for (u32 i : {0u, 1u}) hives[i] = openStore(stores[i], i * HiveFile::modeWriteThrough);
    }
    /// Runs a size operation on both, which must answer the same and report the size rounded up.
    template <class Operation>
    void expect(u32 wanted, u32 size, const Operation& operation) {
        for (auto& hive : hives) {
            u32 length = 0;
            ASSERT_EQ(operation(*hive, &length), wanted);
            ASSERT_EQ(length, (size + 7) / 8 * 8);
        }
    }
    Ref<MemoryStripe> stores[2];
    Ref<RegistryHiveObj> hives[2];
};

TEST(Allocation, AgreesWithThePlainWalkBufferedAndThrough) {
    for (u32 seed = 1; seed <= 8; ++seed) {
        Random random(seed);
        PlainAllocator plain(randomImage(random, 6));
        std::vector<u32> live;
        for (const Cell& cell : cellsOf(plain.image))
            if (cell.used) live.push_back(cell.offset);
        Hives hives(plain.image.bytes());
        for (u32 step = 0; step < 2000 && !HasFatalFailure(); ++step) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << " step " << step);
            const u32 size = someSize(random), choice = random();
            const bool copyData = choice & 8, keepIfLarger = choice & 16;
            u32& cell = live[random() % live.size()];
            if (live.size() < 20 || choice % 8 < 2) {
                live.push_back(plain.allocate(size));
                hives.expect(live.back(), size,
                             [&](auto& hive, u32* length) { return hive.allocateRecord(size, length); });
            } else if (choice % 8 < 7) {
                const u32 wanted = choice % 8 < 4 ? 0 : size;
                const u32 result = plain.resize(cell, wanted, copyData, keepIfLarger);
                hives.expect(result, wanted, [&](auto& hive, u32* length) {
                    return hive.resizeRecord(cell, wanted, copyData, length, keepIfLarger);
                });
                cell = wanted ? result : live.back();
                if (!wanted) live.pop_back();
            } else {
                const u32 length = 0 - plain.image.peek32(cell);
                const u32 from = 4 + random() % (length - 4);
                const auto bytes = patternBytes(length - from, choice);
                plain.image.poke(cell + from, bytes);
                for (auto& hive : hives.hives)
                    ASSERT_TRUE(hive->writeRecord(cell, bytes.data(), from, length - from));
            }
            if (step % 250 != 249) continue;
            EXPECT_TRUE(hives.hives[0]->flush());
            for (auto& store : hives.stores) ASSERT_TRUE(store->bytes() == plain.image.bytes());
            hives.reopen();
        }
    }
}

TEST(Allocation, WritesInsideRecordBodiesOnly) {
    HiveImage image;  // cells at 32 (used, 16 bytes), 48 (free, 24) and 72 (used)
    image.addHbin(4096);
    image.allocate(16);
    image.freeCell(24);
    image.allocate(4096 - 32 - 16 - 24);
    const auto store = makeRef<MemoryStripe>(image.finish());
    const auto hive = openStore(store, HiveFile::modeWriteThrough);
    const auto bytes = patternBytes(16);
    const u32 outside = ErrorCode::outsideRecord;
    struct {
        u32 record, from, length;
        bool done;
        u32 error;
    } const cases[] = {
        {32, 0, 4, false, outside},
        {32, 3, 1, false, outside},
        {32, 4, 13, false, outside},
        {32, 16, 1, false, outside},
        {32, 0xFFFFFFFC, 8, false, outside},
        {32, 8, 0xFFFFFFFC, false, outside},
        {48, 4, 4, false, 0},  // free
        {40, 4, 4, false, 0},  // no cell
        {72, 0, 0, true, 0},
        {32, 4, 12, true, 0},
    };
    std::vector<u8> wanted = store->bytes();
    for (const auto& c : cases) {
        Error::set(0);
        EXPECT_EQ(hive->writeRecord(c.record, bytes.data(), c.from, c.length), c.done) << c.from;
        EXPECT_EQ(Error::get(), c.error) << c.record << " " << c.from << " " << c.length;
        if (c.done) std::copy_n(bytes.begin(), c.length, wanted.begin() + 4096 + c.record + c.from);
        EXPECT_TRUE(store->bytes() == wanted) << c.record << " " << c.from << " " << c.length;
    }
    for (const u32 mode : {1u, 3u, 5u}) {
        const auto readOnly = openStore(store, mode);
        EXPECT_FALSE(readOnly->writeRecord(32, "data", 4, 4) || readOnly->writeHBIN(0, 32, "data", 4));
        EXPECT_FALSE(readOnly->initRecord(48, 8));
        EXPECT_EQ(readOnly->resizeRecord(32, 8, true, nullptr, false), INVALID_RECORD);
        Error::set(0);
        EXPECT_EQ(readOnly->allocateRecord(8, nullptr), INVALID_RECORD);
        EXPECT_EQ(Error::get(), ErrorCode::readOnly);
    }
    for (const auto& [hbin, from] : {std::pair(1u, 0u), {0u, 4093u}, {0u, 0xFFFFFFFEu}})
        EXPECT_FALSE(hive->writeHBIN(hbin, from, bytes.data(), 4)) << from;
    store->setMaxElementCount(wanted.size());
    for (const u32 size : {4096u, 900000u}) {
        Error::set(0);
        EXPECT_EQ(hive->allocateRecord(size, nullptr), INVALID_RECORD) << "where the store cannot grow";
        EXPECT_EQ(Error::get(), ErrorCode::allocationFailed);
    }
    EXPECT_TRUE(store->bytes() == wanted);
}

/// Whether a cell begins at `position` of an hbin full of cells of any lengths.
CellMap::Answer plainWalk(const std::vector<u8>& hbin, u64 position) {
    u64 walked = 32;
    while (walked < position) {
        const u32 length = RecordView(&hbin[walked], hbin.size() - walked).absoluteSize();
        if (length == 0) return CellMap::Answer::zeroSizedCell;
        walked += length;
    }
    return walked == position ? CellMap::Answer::boundary : CellMap::Answer::noBoundary;
}

TEST(CellMap, AnswersAsThePlainWalkDoesThroughAllChanges) {
    Random random(2024);
    u32 found[3] = {};
    for (u32 round = 0; round < 100; ++round) {
        const u32 size = (1 + random() % 5) * 4096, offset = 0x7000;
        std::vector<u8> hbin(size);
        const auto put = [&](u32 at, u32 word) {
            const auto bytes = numberBytes(word);
            std::copy_n(bytes.begin(), std::min(4u, size - at), hbin.begin() + at);
        };
        for (u32 at = 32; at < size; at += 8) put(at, 0u - 8);
        put(4, offset);
        put(8, size);
        CellMap map;
        for (u32 step = 0; step < 600; ++step) {
            const u32 position = 32 + random() % ((size - 32) / 8) * 8;
            if (random() % 3 == 0) {  // another length for a cell, mostly small, sometimes odd or none
                const u32 most[] = {40, 400, 4000}, at = 32 + random() % ((size - 32) / 8) * 8;
                u32 length = random() % most[random() % 3];
                if (random() % 16) length = std::max(8u, length / 8 * 8);
                if (random() % 64 == 0) length = random() % 2 * (size - at);
                // An odd cell is mostly followed by one that ends at a multiple of 8.
                if (length % 8 && at + length + 16 < size) put(at + length, 16 - length % 8);
                put(at, random() % 2 ? length : 0 - length);
                map.changed(at, std::min(length + 4, size - at));
                if (random() % 4 == 0) {
                    for (u32 cell = at; cell < std::min(at + 64, size); cell += 8) put(cell, 0u - 8);
                    map.changed(at, std::min(64u, size - at));
                }
            }
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
    for (u32 round = 0; round < 20; ++round) {
        HbinTable table;
        const u32 most = 1 + random() % 400, roomMax = round % 2 ? 16 : 1 << 20;
        for (u32 step = 0; step < 2000; ++step) {
            const u32 room = random() % 4 ? random() % roomMax : 0, record = static_cast<u32>(random());
            const u32 index = table.empty() ? 0 : random() % table.size();
            if (table.empty() || (table.size() < most && random() % 3 == 0))
                table.append({static_cast<u32>(table.end()), (1 + random() % 4) * 4096, room});
            else
                table.setLargestFree(index, room, record);
            const u32 wanted = 1 + random() % roomMax;
            u32 first = 0, holder = 0;
            while (first < table.size() && table[first].largestFree < wanted) ++first;
            ASSERT_EQ(table.firstWithRoom(wanted), first < table.size() ? first : INVALID_HBIN) << step;
            const u32 offset = random() % (static_cast<u32>(table.end()) / 2048 + 2) * 2048 + random() % 3;
            while (holder < table.size() && table[holder].offset + table[holder].size < offset) ++holder;
            ASSERT_EQ(table.find(offset), holder) << step << " " << offset;
        }
    }
}

}  // namespace
