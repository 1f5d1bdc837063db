#include <gtest/gtest.h>

#include "tests/hive/cells.h"
#include "tests/support/failingstripe.h"
#include "tests/support/logcapture.h"

using namespace Platform;
using namespace Libraries::Files::Hive;
using namespace HiveTest;

namespace {

constexpr u64 MIB = 1 << 20;
constexpr u64 AROUND = 65536;  // what a miss reads more on either side
constexpr u32 UNSAFE = HiveFile::modeReadOnly | HiveFile::modeUnsafe;

TEST(ReadOnlyCache, RandomReadsGiveTheFilesBytesToItsLastOne) {
    Random random(5);
    for (const u64 fileBytes : {u64{1}, u64{4096}, AROUND + 1, 3 * AROUND, MIB, 6 * MIB + 13}) {
        const std::vector<u8> file = patternBytes(fileBytes, static_cast<u32>(fileBytes));
        const auto cache = makeRef<ReadOnlyCache>(makeRef<MemoryStripe>(file));
        for (int step = 0; step < 400; ++step) {
            const u64 position = random() % 8 ? random() % fileBytes : fileBytes - 1;
            const u64 left = fileBytes - position;
            const u64 most = std::min(left, u64{1} << random() % 23);
            const u64 length = random() % 4 ? 1 + random() % most : left;
            ASSERT_TRUE(shows(cache->get(position, length), file, position, length))
                << fileBytes << " " << position << " " << length;
            EXPECT_FALSE(cache->get(position, left + 1)) << fileBytes << " " << position;
        }
        for (const u64 position : {fileBytes + 1, ~u64{0} - 3, ~u64{0}})
            EXPECT_FALSE(cache->get(position, 4)) << position;
        EXPECT_FALSE(cache->get(fileBytes - 1, ~u64{0}));
    }
}

TEST(ReadOnlyCache, AWindowServesExactlyWhatWasReadAround) {
    const std::vector<u8> file = patternBytes(8 * MIB);
    struct {
        u64 position, length;
        bool read;
    } const cases[] = {
        {MIB, 4, true},
        {MIB - AROUND, 4, false},
        {MIB + 4 + AROUND - 4, 4, false},
        {MIB - AROUND, 2 * AROUND + 4, false},
        {MIB - AROUND - 1, 4, true},
        {MIB + 4 + AROUND - 3, 4, true},
        {0, MIB - 3 * (2 * AROUND + 4) - AROUND - 1, true},  // one byte less than the room left
        {0, 4, false},
        {MIB, 4, false},
        {4 * MIB, 1, true},  // no room: all windows go
        {MIB, 4, true},
        {0, MIB - 5 * AROUND - 5, true},  // would fill the room to its last byte: all go again
        {MIB, 4, true},
        {2 * MIB, 3 * MIB, true},  // larger than the cache, which grows to twice this window
        {2 * MIB - AROUND, 3 * MIB + 2 * AROUND, false},
        {6 * MIB, MIB, true},
        {3 * MIB, 4, false},
    };
    const auto stripe = makeRef<MemoryStripe>(file);
    const auto cache = makeRef<ReadOnlyCache>(stripe);
    for (const auto& c : cases) {
        const u64 reads = stripe->counters.reads;
        EXPECT_TRUE(shows(cache->get(c.position, c.length), file, c.position, c.length));
        EXPECT_EQ(stripe->counters.reads - reads, c.read ? 1u : 0u) << c.position << " " << c.length;
    }
}

TEST(ReadOnlyCache, AFailedReadLeavesTheLoadedWindowsAndCanBeRetried) {
    const std::vector<u8> file = patternBytes(2 * MIB);
    struct {
        u32 kind;
        const char* log;
    } const cases[] = {
        {FailingStripe::seeks, "3 Hive: Failed to seek to f0000h (983040)\n"},
        {FailingStripe::reads, "3 Hive: Failed to read data, count=20004h (131076) : fa11edh (16388589)\n"},
        {FailingStripe::shortReads,
         "3 Hive: Failed to read data, count=20004h (131076) : fa11edh (16388589)\n"},
    };
    for (const auto& c : cases) {
        const auto stripe = makeRef<FailingStripe>(makeRef<MemoryStripe>(file));
        const auto cache = makeRef<ReadOnlyCache>(stripe);
        ASSERT_TRUE(cache->get(0, 4));
        stripe->failAt(0, c.kind);
        LogCapture log;
        EXPECT_FALSE(cache->get(MIB, 4));
        EXPECT_EQ(log.text(), c.log);
        EXPECT_TRUE(shows(cache->get(0, 4), file, 0, 4));
        EXPECT_EQ(stripe->operations(), 1u);
        EXPECT_TRUE(shows(cache->get(MIB, 4), file, MIB, 4));
    }
}

TEST(UnsafeMode, ReadsUsedRecordsUpToTheFilesLastByte) {
    HiveImage image;
    image.addHbin(4096);
    const u32 used = image.allocate(24);
    const u32 loose = image.freeCell(16);
    const u32 tail = image.allocate(4096 - 32 - 24 - 16 - 8);
    const u32 last = image.allocate(8);
    struct {
        u32 offset, size;
        bool found;
        const char* log;
    } const cases[] = {
        {used, 0u - 24, true, ""},
        {used + 8, 0u - 16, true, ""},  // no boundary, which this mode does not ask for
        {used, 0u - 5, true, ""},
        {last, 0u - 8, true, ""},
        {last, 0u - 9, false, "3 Hive: Failed to get record in unsafe mode, record=ff8h (4088)\n"},
        {tail, 0u - 4096, false, "3 Hive: Failed to get record in unsafe mode, record=48h (72)\n"},
        {used, 0x80000000, false, "3 Hive: Failed to get record in unsafe mode, record=20h (32)\n"},
        {loose, 16, false, "3 Hive: Attempt to access an unused record in unsafe mode, record=38h (56)\n"},
        {used, 0, false, "3 Hive: Attempt to access an unused record in unsafe mode, record=20h (32)\n"},
    };
    for (const auto& c : cases) {
        HiveImage broken = image;
        broken.poke32(c.offset, c.size);
        const std::vector<u8> file = broken.finish();
        const auto hive = openStore(makeRef<MemoryStripe>(file), UNSAFE);
        LogCapture log;
        const RecordView record = hive->cacheLoadRecord(c.offset);
        EXPECT_EQ(bool(record), c.found) << c.offset;
        EXPECT_EQ(log.text(), c.log);
        EXPECT_TRUE(!record || shows(record, file, u64{c.offset} + 4096, record.absoluteSize()));
        for (const u32 beyond : {4096u, 0xFFFFFFF8u}) EXPECT_FALSE(hive->cacheLoadRecord(beyond)) << beyond;
    }
}

TEST(UnsafeMode, ReadsAHiveWhoseHbinHeadsAreGoneAndChangesNothing) {
    HiveBuilder builder;
    builder.addHbin(4096);
    builder.build({.keys = {{.name = u"a", .keys = {{.name = u"b"}}}, {.name = u"c"}}});
    for (u32 at = 0; at < 32; ++at) builder.bytes()[4096 + at] = 0xFF;
    const auto stripe = makeRef<MemoryStripe>(builder.finish());
    EXPECT_FALSE(openStore(stripe, HiveFile::modeReadOnly)->root());
    const auto hive = openStore(stripe, UNSAFE);
    EXPECT_TRUE(hive->path(String::create(u"a/b")));
    EXPECT_TRUE(hive->path(String::create(u"c")));

    const u32 record = builder.key().record;
    LogCapture log;
    EXPECT_FALSE(hive->cacheLoadRecord(record, nullptr, false));
    EXPECT_EQ(log.text(), "3 Hive: Call of internal cacheLoadRecord in unsafe mode\n");
    Error::set(0);
    EXPECT_FALSE(hive->writeRecord(record, "x", 4, 1));
    EXPECT_EQ(Error::get(), 0x1000u);
    EXPECT_EQ(hive->allocateRecord(16, nullptr), INVALID_RECORD);
    EXPECT_EQ(hive->resizeRecord(record, 16, false, nullptr, false), INVALID_RECORD);
    EXPECT_FALSE(hive->initRecord(record, 16));
    EXPECT_TRUE(hive->flush());
    EXPECT_EQ(stripe->counters.writes, 0u);
}

}  // namespace
