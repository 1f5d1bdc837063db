#include <gtest/gtest.h>

#include "hive/errorcodes.h"
#include "tests/hive/cells.h"

namespace {

using namespace HiveTest;  // NOLINT
using Libraries::Files::Hive::INVALID_RECORD;
using Platform::Error;
using Platform::makeRef;
namespace ErrorCode = Libraries::Files::Hive::ErrorCode;

/// hbins as the signed size fields of their cells; a used cell fills each up to a multiple of 4096.
using Layout = std::vector<std::vector<int>>;

HiveImage imageOf(const Layout& layout) {
    HiveImage image;
    for (const auto& hbin : layout) {
        u32 total = 32;
        for (const int size : hbin) total += static_cast<u32>(std::abs(size));
        u32 at = image.addHbin((total + 8 + 4095) / 4096 * 4096);
        const u32 end = at + image.peek32(at + 8);
        at += 32;
        for (const int size : hbin) {
            image.poke32(at, static_cast<u32>(size));
            at += static_cast<u32>(std::abs(size));
        }
        image.poke32(at, at - end);
    }
    return image;
}

Layout layoutOf(HiveImage& image, u64 withFiller) {
    Layout layout;
    u32 hbin = ~0u;
    for (const Cell& cell : cellsOf(image)) {
        if (cell.hbin != hbin) layout.emplace_back();
        hbin = cell.hbin;
        layout.back().push_back(cell.used ? -static_cast<int>(cell.length) : static_cast<int>(cell.length));
    }
    for (u64 i = 0; i < withFiller; ++i) layout[i].pop_back();
    return layout;
}

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

TEST(Allocation, LaysCellsOutExactly) {
    constexpr int fresh = -1;  // allocates; otherwise the cell of the first hbin to resize
    constexpr u32 far = 4096 + 32;
    struct {
        const char* name;
        Layout before;
        int cell;
        u32 size;
        bool keepIfLarger;
        u32 result;
        Layout after;
    } const cases[] = {
        {"one byte", {{32}}, fresh, 1, false, 32, {{-8, 24}}},
        {"eight bytes", {{32}}, fresh, 8, false, 32, {{-8, 24}}},
        {"nine bytes", {{32}}, fresh, 9, false, 32, {{-16, 16}}},
        {"exact fit leaves what is behind", {{16, 8, 8}}, fresh, 16, false, 32, {{-16, 8, 8}}},
        {"remainder merges", {{32, 8, 16, -8, 8}}, fresh, 16, false, 32, {{-16, 40, -8, 8}}},
        {"largest of its hbin", {{24, -8, 40}}, fresh, 16, false, 64, {{24, -8, -16, 24}}},
        {"first of equals", {{24, -8, 24}}, fresh, 8, false, 32, {{-8, 16, -8, 24}}},
        {"first hbin with room", {{16}, {64}, {999992}}, fresh, 32, false, far, {{16}, {-32, 32}, {999992}}},
        {"grows to the end of the free space", {{-16, 24}}, 0, 40, false, 32, {{-40}}},
        {"grows and leaves some", {{-16, 32, -8}}, 0, 40, false, 32, {{-40, 8, -8}}},
        {"grows over several", {{-16, 8, 16, 8}}, 0, 37, false, 32, {{-40, 8}}},
        {"shrinks and merges", {{-40, 8, 8, -8}}, 0, 16, false, 32, {{-16, 40, -8}}},
        {"keeps what is larger", {{-40, 8}}, 0, 16, true, 32, {{-40, 8}}},
        {"grows though it may keep", {{-16, 16}}, 0, 24, true, 32, {{-24, 8}}},
        {"moves within the hbin", {{-16, -8, 64}}, 0, 32, false, 56, {{16, -8, -32, 32}}},
        {"moves and merges", {{-16, 8, -8}, {64}}, 0, 40, false, far, {{24, -8}, {-40, 24}}},
        {"frees and merges behind only", {{8, -16, 8, 16, -8}}, 1, 0, false, 0, {{8, 40, -8}}},
        {"new hbin, filled", {{-64}}, fresh, 4064, false, far, {{-64}, {-4064}}},
        {"new hbin of two pages", {{4056}}, fresh, 4072, false, far, {{4056}, {-4072, 4088}}},
        {"new hbin for a page", {{-64}}, fresh, 4096, false, far, {{-64}, {-4096, 4064}}},
        {"moves to a new hbin", {{-64, 8, -8}}, 0, 100, false, far, {{72, -8}, {-104, 3960}}},
    };
    for (const auto& c : cases)
        for (const u32 mode : {0u, u32{HiveFile::modeWriteThrough}}) {
            SCOPED_TRACE(c.name);
            HiveImage image = imageOf(c.before);
            const auto store = makeRef<MemoryStripe>(image.finish());
            const auto hive = openStore(store, mode);
            u32 length = 0, offset = 32;
            for (int i = 0; i < c.cell; ++i)
                offset += static_cast<u32>(std::abs(c.before[0][static_cast<u64>(i)]));
            EXPECT_EQ(c.cell == fresh ? hive->allocateRecord(c.size, &length)
                                      : hive->resizeRecord(offset, c.size, false, &length, c.keepIfLarger),
                      c.result);
            EXPECT_EQ(length, (c.size + 7) / 8 * 8);
            EXPECT_TRUE(hive->flush());
            image.bytes() = store->bytes();
            EXPECT_EQ(layoutOf(image, c.before.size()), c.after);
        }
}

/// A size to ask for: mostly small, sometimes near one page or over several.
u32 someSize(Random& random) {
    const u32 most[] = {40, 200, 1500, 20000};
    return random() % 16 == 0 ? 4056 + random() % 48 : 1 + random() % most[random() % 4];
}

TEST(Allocation, AgreesWithThePlainWalk) {
    for (u32 seed = 1; seed <= 8; ++seed) {
        Random random(seed);
        PlainAllocator plain(randomImage(random, 6));
        std::vector<u32> live;
        for (const Cell& cell : cellsOf(plain.image))
            if (cell.used) live.push_back(cell.offset);
        Ref<MemoryStripe> stores[2];
        Ref<RegistryHiveObj> hives[2];
        for (auto& store : stores) store = makeRef<MemoryStripe>(plain.image.bytes());
        for (u32 step = 0; step < 2000; ++step) {
            for (u32 i : {0u, 1u})
                if (step % 250 == 0) hives[i] = openStore(stores[i], i * HiveFile::modeWriteThrough);
            const u32 size = someSize(random), choice = random();
            const bool copyData = choice & 8, keepIfLarger = choice & 16;
            const u64 which = random() % live.size();
            if (live.size() < 20 || choice % 8 < 2) {
                live.push_back(plain.allocate(size));
                for (auto& hive : hives) ASSERT_EQ(hive->allocateRecord(size, nullptr), live.back()) << step;
            } else if (choice % 8 < 7) {
                const u32 wanted = choice % 8 < 4 ? 0 : size;
                const u32 result = plain.resize(live[which], wanted, copyData, keepIfLarger);
                for (auto& hive : hives)
                    ASSERT_EQ(hive->resizeRecord(live[which], wanted, copyData, nullptr, keepIfLarger),
                              result)
                        << step;
                live[which] = wanted ? result : live.back();
                if (!wanted) live.pop_back();
            } else {
                const u32 length = 0 - plain.image.peek32(live[which]);
                const u32 from = 4 + random() % (length - 4);
                const auto bytes = patternBytes(length - from, choice);
                plain.image.poke(live[which] + from, bytes);
                for (auto& hive : hives)
                    ASSERT_TRUE(hive->writeRecord(live[which], bytes.data(), from, length - from)) << step;
            }
            if (step % 250 != 249) continue;
            EXPECT_TRUE(hives[0]->flush());
            for (auto& store : stores)
                ASSERT_TRUE(store->bytes() == plain.image.bytes()) << "seed " << seed << " step " << step;
        }
    }
}

TEST(Allocation, WritesInsideRecordBodiesOnly) {
    HiveImage image = imageOf({{-16, 24, -16}});
    const auto store = makeRef<MemoryStripe>(image.finish());
    const auto hive = openStore(store, HiveFile::modeWriteThrough);
    const auto bytes = patternBytes(16);
    struct {
        u32 record, from, length;
        bool done;
        u32 error;
    } const cases[] = {
        {32, 0, 4, false, ErrorCode::outsideRecord},
        {32, 3, 1, false, ErrorCode::outsideRecord},
        {32, 13, 4, false, ErrorCode::outsideRecord},
        {32, 4, 13, false, ErrorCode::outsideRecord},
        {32, 16, 1, false, ErrorCode::outsideRecord},
        {32, 0xFFFFFFFC, 8, false, ErrorCode::outsideRecord},
        {32, 8, 0xFFFFFFFC, false, ErrorCode::outsideRecord},
        {48, 4, 4, false, 0},  // free
        {40, 4, 4, false, 0},  // no cell
        {48, 0, 0, true, 0},
        {32, 4, 12, true, 0},
        {32, 12, 4, true, 0},
    };
    std::vector<u8> wanted = store->bytes();
    for (const auto& c : cases) {
        Error::set(0);
        EXPECT_EQ(hive->writeRecord(c.record, bytes.data(), c.from, c.length), c.done) << c.from;
        EXPECT_EQ(Error::get(), c.error) << c.record << " " << c.from << " " << c.length;
        if (c.done) std::copy_n(bytes.begin(), c.length, wanted.begin() + 4096 + c.record + c.from);
        EXPECT_TRUE(store->bytes() == wanted) << c.record << " " << c.from << " " << c.length;
    }
    EXPECT_FALSE(hive->writeHBIN(1, 0, bytes.data(), 4));
    EXPECT_FALSE(hive->writeHBIN(0, 4093, bytes.data(), 4));
    EXPECT_FALSE(hive->writeHBIN(0, 0xFFFFFFFE, bytes.data(), 4));
    EXPECT_TRUE(hive->writeHBIN(0, 4092, bytes.data(), 4));
    std::copy_n(bytes.begin(), 4, wanted.begin() + 4096 + 4092);
    EXPECT_TRUE(store->bytes() == wanted);
}

TEST(Allocation, RefusesReadOnlyHivesAndImpossibleSizes) {
    HiveImage image = imageOf({{-16, 24}});
    const auto store = makeRef<MemoryStripe>(image.finish());
    const u32 number = 0;
    const auto refused = [&](auto operation, u32 mode, u32 error, auto result) {
        const auto hive = openStore(store, mode);
        Error::set(0);
        EXPECT_EQ(operation(*hive), result) << mode;
        EXPECT_EQ(Error::get(), error) << mode;
    };
    for (const u32 mode : {1u, 5u, 3u}) {
        const u32 code = ErrorCode::readOnly;
        refused([](auto& hive) { return hive.allocateRecord(8, nullptr); }, mode, code, INVALID_RECORD);
        refused([](auto& hive) { return hive.resizeRecord(32, 8, true, nullptr, true); }, mode, code,
                INVALID_RECORD);
        refused([](auto& hive) { return hive.initRecord(48, 8); }, mode, code, false);
        refused([&](auto& hive) { return hive.writeRecord(32, &number, 4, 4); }, mode, code, false);
        refused([&](auto& hive) { return hive.writeHBIN(0, 0, &number, 4); }, mode, code, false);
        refused([](auto& hive) { return hive.flush(); }, mode, 0, true);
    }
    for (const u32 size : {0x7FFFFFF9u, 0x80000000u, 0xFFFFFFFFu, 0x40000000u}) {
        refused([&](auto& hive) { return hive.allocateRecord(size, nullptr); }, 0,
                ErrorCode::allocationFailed, INVALID_RECORD);
        refused([&](auto& hive) { return hive.resizeRecord(32, size, true, nullptr, true); }, 0,
                ErrorCode::allocationFailed, INVALID_RECORD);
    }
    EXPECT_EQ(store->counters.writes + store->counters.bytesWritten, 0u);
    EXPECT_TRUE(store->bytes() == image.bytes());
}

}  // namespace
