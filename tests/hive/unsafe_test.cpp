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
            EXPECT_FALSE(cache->get(position, 4) || cache->get(fileBytes - 1, position)) << position;
    }
}

TEST(ReadOnlyCache, AFailedReadLeavesTheLoadedWindowsAndCanBeRetried) {
    const std::vector<u8> file = patternBytes(2 * MIB);
    for (const u32 kind : {FailingStripe::seeks, FailingStripe::reads, FailingStripe::shortReads}) {
        const auto stripe = makeRef<FailingStripe>(makeRef<MemoryStripe>(file));
        const auto cache = makeRef<ReadOnlyCache>(stripe);
        ASSERT_TRUE(cache->get(0, 4));
        stripe->failAt(0, kind);
        EXPECT_FALSE(cache->get(MIB, 4));
        EXPECT_TRUE(shows(cache->get(0, 4), file, 0, 4));
        EXPECT_EQ(stripe->operations(), 1u);
        EXPECT_TRUE(shows(cache->get(MIB, 4), file, MIB, 4));
    }
}

TEST(UnsafeMode, ReadsUsedRecordsUpToTheFilesLastByte) {
    HiveImage image;
    image.addHbin(4096);
    const u32 used = image.allocate(24);
    const u32 loose = image.freeCell(4096 - 32 - 24 - 8);
    const u32 last = image.allocate(8);
    const std::string beyond = "3 Hive: Failed to get record in unsafe mode, record=";
    const std::string unused = "3 Hive: Attempt to access an unused record in unsafe mode, record=";
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
    }
}

TEST(UnsafeMode, ReadsAHiveWhoseHbinHeadsAreGone) {
    HiveBuilder builder;
    builder.addHbin(4096);
    builder.build({.keys = {{.name = u"a", .keys = {{.name = u"b"}}}}});
    for (u32 at = 0; at < 32; ++at) builder.bytes()[4096 + at] = 0xFF;
    const auto stripe = makeRef<MemoryStripe>(builder.finish());
    EXPECT_FALSE(openStore(stripe, HiveFile::modeReadOnly)->root());
    const auto hive = openStore(stripe, UNSAFE);
    EXPECT_TRUE(hive->path(String::create(u"a/b")));
    LogCapture log;
    EXPECT_FALSE(hive->cacheLoadRecord(builder.key().record, nullptr, false));
    EXPECT_EQ(log.text(), "3 Hive: Call of internal cacheLoadRecord in unsafe mode\n");
}

}  // namespace
