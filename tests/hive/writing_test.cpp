#include <gtest/gtest.h>

#include "tests/hive/cells.h"

namespace {

using namespace HiveTest;  // NOLINT
using Libraries::Files::Hive::INITIAL_CACHE_SIZE;
using Platform::makeRef;

constexpr u32 WRITE_THROUGH = HiveFile::modeWriteThrough;
constexpr u8 DATA[8] = {1, 2, 3, 4, 5, 6, 7, 8};

/// In memory, with a list of what was written where.
class RecordingStripe final : public TestStripe {
 public:
    explicit RecordingStripe(std::vector<u8> content) : TestStripe(1, 1 << 30), bytes(std::move(content)) {}
    std::vector<u8> bytes;
    std::vector<std::pair<u64, u64>> written;  // position, length

 private:
    u64 byteCount() const override { return bytes.size(); }
    void load(u64 position, u8* destination, u64 count) override {
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(position), count, destination);
    }
    void store(u64 position, const u8* source, u64 count) override {
        std::copy_n(source, count, bytes.begin() + static_cast<std::ptrdiff_t>(position));
        written.emplace_back(position, count);
    }
    void resize(u64 count) override { bytes.resize(count); }
};

/// hbins of 256 KiB with one used cell each: four fill the cache.
constexpr u32 HBIN = INITIAL_CACHE_SIZE / 4;
HiveImage largeHbins(u32 count) {
    HiveImage image;
    while (count--) {
        image.addHbin(HBIN);
        image.allocate(HBIN - 32);
    }
    return image;
}
constexpr u32 record(u32 hbin) {
    return hbin * HBIN + 32;
}
constexpr u64 place(u32 hbin) {
    return 4096 + u64{hbin} * HBIN;
}
using Writes = std::vector<std::pair<u64, u64>>;

TEST(Writing, BytesReachTheFileWhenTheyShould) {
    HiveImage image = largeHbins(6);
    const auto store = makeRef<RecordingStripe>(image.finish());
    auto hive = openStore(store, 0);
    // The order of loading, not of the file nor of the writes, and whole hbins; a read one is not written.
    for (const u32 hbin : {2u, 0u, 1u}) EXPECT_TRUE(hive->cacheLoadRecord(record(hbin)));
    for (const u32 hbin : {1u, 2u}) EXPECT_TRUE(hive->writeRecord(record(hbin), DATA, 4, 8));
    EXPECT_EQ(store->written, Writes());
    EXPECT_TRUE(hive->flush());
    EXPECT_EQ(store->written, (Writes{{place(2), HBIN}, {place(1), HBIN}}));
    EXPECT_TRUE(
        std::equal(DATA, DATA + 8, store->bytes.begin() + static_cast<std::ptrdiff_t>(place(1)) + 36));
    EXPECT_TRUE(hive->flush());
    EXPECT_EQ(store->written.size(), 2u) << "clean hbins were written again";

    // Full with 2, 0, 1 and 3: the fifth empties the cache, which writes what has changed.
    store->written.clear();
    EXPECT_TRUE(hive->writeRecord(record(0), DATA, 4, 8));
    EXPECT_TRUE(hive->cacheLoadRecord(record(3)));
    EXPECT_EQ(store->written, Writes());
    EXPECT_TRUE(hive->writeRecord(record(5), DATA, 4, 8));
    EXPECT_EQ(store->written, (Writes{{place(0), HBIN}}));
    hive.reset();
    EXPECT_EQ(store->written, (Writes{{place(0), HBIN}, {place(5), HBIN}})) << "closing";
}

TEST(Writing, WriteThroughWritesTheChangedBytesOnly) {
    HiveImage image = largeHbins(1);
    const auto store = makeRef<RecordingStripe>(image.finish());
    auto hive = openStore(store, WRITE_THROUGH);
    EXPECT_TRUE(hive->writeRecord(record(0), DATA, 12, 8));
    EXPECT_EQ(store->written, (Writes{{4096 + 32 + 12, 8}}));
    // A new hbin: base block, its head with the one free cell, the distance in the one before, the cells.
    store->written.clear();
    EXPECT_EQ(hive->allocateRecord(24, nullptr), record(1));
    EXPECT_EQ(
        store->written,
        (Writes{{0, 4096}, {place(1), 36}, {place(0) + 28, 4}, {place(1) + 32, 4}, {place(1) + 56, 4}}));
    store->written.clear();
    EXPECT_TRUE(hive->flush());
    hive.reset();
    EXPECT_EQ(store->written, Writes());
}

/// A file-system item whose flush can be made to fail.
class Item final : public Platform::Object, public Services::Filesystem::Client::FSItem {
 public:
    bool flush() override { return ++flushes, succeeds; }
    u32 flushes = 0;
    bool succeeds = true;
};

TEST(Writing, MakesTheFileDurable) {
    HiveImage image = largeHbins(1);
    struct {
        u32 mode;
        u32 afterWrite, afterFlush;
    } const cases[] = {{0, 0, 1}, {WRITE_THROUGH, 1, 2}, {HiveFile::modeReadOnly, 0, 0}};
    for (const auto& c : cases) {
        const auto item = makeRef<Item>();
        const auto hive = makeRef<RegistryHiveObj>(makeRef<MemoryStripe>(image.finish()), c.mode,
                                                   HiveFile::hiveCodepageLatin1, item);
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
