#include <gtest/gtest.h>

#include "tests/hive/cells.h"

namespace {

using namespace HiveTest;  // NOLINT
using Platform::makeRef;

constexpr u32 WRITE_THROUGH = HiveFile::modeWriteThrough;
constexpr u8 DATA[8] = {1, 2, 3, 4, 5, 6, 7, 8};
using Writes = std::vector<std::pair<u64, u64>>;  // position, length

/// hbins of 256 KiB with one used cell each: four fill the cache.
constexpr u32 HBIN = Libraries::Files::Hive::INITIAL_CACHE_SIZE / 4;
struct LargeHbins {
    explicit LargeHbins(u32 count) {
        HiveImage image;
        while (count--) {
            image.addHbin(HBIN);
            image.allocate(HBIN - 32);
        }
        store = makeRef<MemoryStripe>(image.finish());
        store->written = &writes;
    }
    Ref<MemoryStripe> store;
    Writes writes;
};
constexpr u32 record(u32 hbin) {
    return hbin * HBIN + 32;
}
constexpr u64 place(u32 hbin) {
    return 4096 + u64{hbin} * HBIN;
}

TEST(Writing, BytesReachTheFileWhenTheyShould) {
    LargeHbins file(6);
    auto hive = openStore(file.store, 0);
    // The order of loading, not of the file nor of the writes, and whole hbins; a read one is not written.
    for (const u32 hbin : {2u, 0u, 1u}) EXPECT_TRUE(hive->cacheLoadRecord(record(hbin)));
    for (const u32 hbin : {1u, 2u}) EXPECT_TRUE(hive->writeRecord(record(hbin), DATA, 4, 8));
    EXPECT_EQ(file.writes, Writes());
    EXPECT_TRUE(hive->flush() && hive->flush()) << "the second has nothing to write";
    EXPECT_EQ(file.writes, (Writes{{place(2), HBIN}, {place(1), HBIN}}));
    EXPECT_TRUE(std::equal(DATA, DATA + 8, &file.store->bytes()[place(1) + 36]));

    // Full with 2, 0, 1 and 3: the fifth empties the cache, which writes what has changed.
    file.writes.clear();
    EXPECT_TRUE(hive->writeRecord(record(0), DATA, 4, 8));
    EXPECT_TRUE(hive->cacheLoadRecord(record(3)));
    EXPECT_EQ(file.writes, Writes());
    EXPECT_TRUE(hive->writeRecord(record(5), DATA, 4, 8));
    EXPECT_EQ(file.writes, (Writes{{place(0), HBIN}}));
    hive.reset();
    EXPECT_EQ(file.writes, (Writes{{place(0), HBIN}, {place(5), HBIN}})) << "closing";
}

TEST(Writing, WriteThroughWritesTheChangedBytesOnly) {
    LargeHbins file(1);
    auto hive = openStore(file.store, WRITE_THROUGH);
    EXPECT_TRUE(hive->writeRecord(record(0), DATA, 12, 8));
    // A new hbin: base block, its head with the one free cell, the distance in the one before, the cells.
    EXPECT_EQ(hive->allocateRecord(24, nullptr), record(1));
    EXPECT_TRUE(hive->flush());
    hive.reset();
    EXPECT_EQ(file.writes, (Writes{{place(0) + 44, 8},
                                   {0, 4096},
                                   {place(1), 36},
                                   {place(0) + 28, 4},
                                   {place(1) + 32, 4},
                                   {place(1) + 56, 4}}));
}

/// A file-system item whose flush can be made to fail.
class Item final : public Platform::Object, public Services::Filesystem::Client::FSItem {
 public:
    bool flush() override { return ++flushes, succeeds; }
    u32 flushes = 0;
    bool succeeds = true;
};

TEST(Writing, MakesTheFileDurable) {
    struct {
        u32 mode;
        u32 afterWrite, afterFlush;
    } const cases[] = {{0, 0, 1}, {WRITE_THROUGH, 1, 2}, {HiveFile::modeReadOnly, 0, 0}};
    for (const auto& c : cases) {
        const auto item = makeRef<Item>();
        const auto hive = makeRef<RegistryHiveObj>(makeRef<MemoryStripe>(LargeHbins(1).store->bytes()),
                                                   c.mode, HiveFile::hiveCodepageLatin1, item);
        hive->writeRecord(record(0), DATA, 4, 8);
        EXPECT_EQ(item->flushes, c.afterWrite) << c.mode;
        EXPECT_TRUE(hive->flush());
        EXPECT_EQ(item->flushes, c.afterFlush) << c.mode;
        item->succeeds = false;
        EXPECT_EQ(hive->flush(), c.mode == HiveFile::modeReadOnly);
        EXPECT_EQ(hive->writeRecord(record(0), DATA, 4, 8), c.mode == 0);
    }
}

}  // namespace
