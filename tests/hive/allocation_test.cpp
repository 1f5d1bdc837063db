#include <gtest/gtest.h>

#include "hive/errorcodes.h"
#include "tests/hive/cells.h"

namespace {

using namespace HiveTest;  // NOLINT
using Libraries::Files::Hive::INVALID_RECORD;
using Platform::Error;
using Platform::makeRef;
namespace ErrorCode = Libraries::Files::Hive::ErrorCode;

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

/// Cells at 32 (used, 16 bytes), 48 (free, 24) and 72 (used).
HiveImage smallImage() {
    HiveImage image;
    image.addHbin(4096);
    image.allocate(16);
    image.freeCell(24);
    image.allocate(4096 - 32 - 16 - 24);
    return image;
}

TEST(Allocation, WritesInsideRecordBodiesOnly) {
    HiveImage image = smallImage();
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
    EXPECT_TRUE(store->bytes() == wanted);
    EXPECT_FALSE(hive->writeHBIN(1, 0, bytes.data(), 4));
    EXPECT_FALSE(hive->writeHBIN(0, 4093, bytes.data(), 4));
    EXPECT_FALSE(hive->writeHBIN(0, 0xFFFFFFFE, bytes.data(), 4));
    EXPECT_TRUE(hive->writeHBIN(0, 4092, bytes.data(), 4));
    std::copy_n(bytes.begin(), 4, wanted.begin() + 4096 + 4092);
    EXPECT_TRUE(store->bytes() == wanted);
}

}  // namespace
