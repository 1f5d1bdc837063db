#include <gtest/gtest.h>

#include "hive/errorcodes.h"
#include "tests/hive/cells.h"
#include "tests/support/failingstripe.h"
#include "tests/support/logcapture.h"

namespace {

using namespace HiveTest;  // NOLINT
using Libraries::Files::Hive::INITIAL_CACHE_SIZE;
using Libraries::Files::Hive::INVALID_RECORD;
using Platform::Error;
using Platform::makeRef;
namespace ErrorCode = Libraries::Files::Hive::ErrorCode;

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

TEST(Writing, FailedFlushesKeepTheChangesForTheNext) {
    HiveImage image = largeHbins(5);
    struct {
        u32 kind, index;
        const char* log;
        u64 written;  // hbins that reached the file
    } const cases[] = {
        {FailingStripe::seeks, 0, "3 Hive: Failed to seek to data position: 1000h (4096)hbin: 0h (0)\n", 0},
        {FailingStripe::seeks, 1, "3 Hive: Failed to seek to data position: 41000h (266240)hbin: 1h (1)\n",
         1},
        {FailingStripe::writes, 0, "4 Hive: Failed to flush hbin: 0h (0)offset: 0h (0), error: fa11edh", 0},
        {FailingStripe::shortWrites, 1, "4 Hive: Failed to flush hbin: 1h (1)offset: 40000h (262144), ", 1},
    };
    for (const auto& c : cases) {
        const auto store = makeRef<RecordingStripe>(image.finish());
        const auto failing = makeRef<FailingStripe>(store);
        const auto hive = openStore(failing, 0);
        for (const u32 hbin : {0u, 1u, 2u}) EXPECT_TRUE(hive->writeRecord(record(hbin), DATA, 4, 8));
        EXPECT_TRUE(hive->cacheLoadRecord(record(3)));
        store->written.clear();
        failing->failAt(c.index, c.kind);
        LogCapture log;
        EXPECT_FALSE(hive->flush());
        EXPECT_TRUE(log.contains(c.log)) << log.text();
        EXPECT_EQ(Error::get(), FailingStripe::errorCode);
        EXPECT_EQ(
            std::count(store->written.begin(), store->written.end(), Writes::value_type{place(0), HBIN}),
            c.written);
        // The cache cannot be emptied either, and stays as it is.
        failing->failAt(0, c.kind);
        log.clear();
        EXPECT_FALSE(hive->cacheLoadRecord(record(4)));
        EXPECT_TRUE(log.contains("3 Hive: Flush failed\n")) << log.text();
        store->written.clear();
        EXPECT_TRUE(hive->flush());
        EXPECT_EQ(store->written.size(), 3 - c.written);
        for (const u32 hbin : {0u, 1u, 2u})
            EXPECT_TRUE(std::equal(DATA, DATA + 8,
                                   store->bytes.begin() + static_cast<std::ptrdiff_t>(place(hbin)) + 36));
        EXPECT_TRUE(hive->cacheLoadRecord(record(4)));
    }
}

TEST(Writing, FailuresInWriteThroughAreReportedAtOnce) {
    HiveImage image = largeHbins(1);
    struct {
        u32 kind, index;
        bool grows;  // allocates, which appends an hbin; otherwise writes into the used record
        const char* log;
    } const cases[] = {
        {FailingStripe::seeks, 0, false,
         "3 Hive: Failed to seek to data position: 1024h (4132)record: 24h (36)\n"},
        {FailingStripe::writes, 0, false, "3 Hive: Failed to write data of record: 24h (36)\n"},
        {FailingStripe::shortWrites, 0, false, "3 Hive: Failed to write data of record: 24h (36)\n"},
        {FailingStripe::resizes, 0, true, ""},
        {FailingStripe::seeks, 0, true, "4 Hive: Failed to write header on resize\n"},
        {FailingStripe::writes, 0, true, "4 Hive: Failed to write header on resize\n"},
        {FailingStripe::shortWrites, 0, true, "4 Hive: Failed to write header on resize\n"},
        {FailingStripe::reads, 0, true, "4 Hive: Failed to write new hbin header on resize\n"},
        {FailingStripe::writes, 1, true, "4 Hive: Failed to write new hbin header on resize\n"},
        {FailingStripe::writes, 2, true, "4 Hive: Failed to write last hbin offset pointer on resize\n"},
        {FailingStripe::writes, 3, true, "3 Hive: Failed to write record while initializing, record=40020h"},
        {FailingStripe::shortWrites, 4, true, "3 Hive: Failed to write free record while initializing, re"},
    };
    for (const auto& c : cases) {
        const auto store = makeRef<MemoryStripe>(image.finish());
        const auto failing = makeRef<FailingStripe>(store);
        const auto hive = openStore(failing, WRITE_THROUGH);
        EXPECT_TRUE(hive->cacheLoadRecord(record(0)));
        failing->failAt(c.index, c.kind);
        LogCapture log;
        if (c.grows) {
            EXPECT_EQ(hive->allocateRecord(24, nullptr), INVALID_RECORD) << c.log;
            EXPECT_EQ(Error::get(), ErrorCode::allocationFailed);
        } else {
            EXPECT_FALSE(hive->writeRecord(record(0), DATA, 4, 8)) << c.log;
            EXPECT_EQ(Error::get(), FailingStripe::errorCode);
        }
        EXPECT_TRUE(log.contains(c.log)) << log.text();
        EXPECT_EQ(failing->failures(), 1u);
        // Whatever failed, the cells that were there before are untouched and new ones can be had.
        EXPECT_TRUE(std::equal(image.bytes().begin() + 4096 + 44, image.bytes().end(),
                               store->bytes().begin() + 4096 + 44))
            << c.log;
        EXPECT_TRUE(hive->writeRecord(record(0), DATA, 4, 8));
        const u32 cell = hive->allocateRecord(24, nullptr);
        EXPECT_NE(cell, INVALID_RECORD) << c.log;
        EXPECT_TRUE(hive->writeRecord(cell, DATA, 4, 8)) << c.log;
    }
}

}  // namespace
