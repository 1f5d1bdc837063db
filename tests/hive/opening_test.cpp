#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "tests/hive/cells.h"
#include "tests/support/failingstripe.h"
#include "tests/support/logcapture.h"
#include "tests/support/tempdir.h"

using namespace Platform;
using namespace Libraries::Files::Hive;
using namespace HiveTest;

namespace {

HiveBuilder smallHive(u32 minor = 5) {
    HiveBuilder hive(minor);
    hive.build({.name = u"root", .keys = {{.name = u"a", .keys = {{.name = u"b"}}}}});
    return hive;
}

Ref<HiveFile> open(Ref<Interfaces::Stripe> stripe, u32 mode = HiveFile::modeReadOnly) {
    Error::set(0);
    return HiveFile::open(std::move(stripe), mode, HiveFile::hiveCodepageCp1250);
}

TEST(Opening, EveryModeReadsTheBaseBlockAndNothingElse) {
    for (const u32 mode : {0u, 1u, 2u, 3u, 5u, 7u, 8u, 0xF9u}) {
        const u32 minor = mode % 3 ? 3 : 5;
        HiveBuilder builder = smallHive(minor);
        const auto stripe = makeRef<MemoryStripe>(builder.finish());
        const auto hive = open(stripe, mode);
        ASSERT_TRUE(hive) << mode;
        EXPECT_EQ(stripe->counters.bytesRead, 4096u) << mode;
        EXPECT_EQ(hive->header().lastWritten, 0x01D7654389ABCDEFu);
        EXPECT_EQ(hive->header().rootCell, builder.key().record);
        EXPECT_TRUE(hive->root() && hive->flush()) << mode;
        EXPECT_EQ(stripe->counters.bytesWritten, 0u) << mode;
    }
    for (const u32 mode : {4u, 6u, 0xCu}) {  // modeUnsafe is for reading only, whatever the file
        EXPECT_FALSE(open(makeRef<MemoryStripe>(), mode));
        EXPECT_EQ(Error::get(), 0x8446u);
    }
}

// The faults that opening checks for, in the order it does.
struct Fault {
    std::function<void(HiveImage&)> make;
    u32 code;
    std::string log;
};
const Fault FAULTS[] = {
    {[](HiveImage& image) { image.bytes().resize(4095); }, 0, "4 Hive: Failed to read file: 0h (0)\n"},
    {[](HiveImage& image) { image.bytes()[3] = 'g'; }, 0x2001, "4 Hive: Wrong signature: regg\n"},
    {[](HiveImage& image) { image.pokeHeader32(40, 4097); }, 0x2001,
     "4 Hive: File too small\n1 Hive: minimum size: 2001h (8193)\n1 Hive: file size:    2000h (8192)\n"},
    {[](HiveImage& image) { image.pokeHeader32(20, 2); }, 0x29,
     "4 Hive: Unsupported registry version\n1 Hive: major=2h (2) minor=5h (5)\n"},
    {[](HiveImage& image) { image.pokeHeader32(508, 0xABC); }, 0x29,
     "4 Hive: Checksum wrong\n1 Hive: from header:abch (2748)\n1 Hive: calculated: "},
};

TEST(Opening, ReportsTheFirstFaultInCheckingOrder) {
    constexpr u64 COUNT = std::size(FAULTS);
    for (u64 i = 0; i < COUNT; ++i) {
        for (const bool alsoLater : {false, true}) {
            HiveImage image = smallHive();
            for (u64 j = alsoLater ? COUNT - 1 : i; j > i; --j) FAULTS[j].make(image);
            FAULTS[i].make(image);
            if (!alsoLater && i + 1 < COUNT) image.fixChecksum();
            for (const u32 mode : {0u, 1u, 5u}) {
                LogCapture log;
                EXPECT_FALSE(open(makeRef<MemoryStripe>(image.bytes()), mode));
                EXPECT_EQ(Error::get(), FAULTS[i].code) << i << alsoLater;
                EXPECT_TRUE(log.text().starts_with(FAULTS[i].log)) << log.text();
            }
        }
    }
}

TEST(Opening, BaseBlockFieldsAreTakenAtTheirLimits) {
    const u32 area = static_cast<u32>(smallHive().bytes().size() - 4096);
    struct {
        u32 field, value, code;
    } const cases[] = {
        // the signature in capitals, the version, the size (a file may be longer than its hbins area)
        {0, 0x46474552, 0x2001},
        {20, 0, 0x29},
        {24, 4, 0x29},
        {24, 6, 0x29},
        {40, area, 0},
        {40, 0, 0},
        {40, area + 1, 0x2001},
        {40, 0xFFFFFFFF, 0x2001},
        // not looked at: the root, the sequence number, the file type
        {36, 0xFFFFFFFF, 0},
        {4, 99, 0},
        {28, 99, 0},
    };
    for (const auto& c : cases) {
        HiveImage image = smallHive();
        image.pokeHeader32(c.field, c.value);
        EXPECT_EQ(bool(open(makeRef<MemoryStripe>(image.finish()))), c.code == 0)
            << c.field << " " << c.value;
        EXPECT_EQ(Error::get(), c.code) << c.field << " " << c.value;
    }
    HiveImage huge = smallHive();
    huge.pokeHeader32(40, 0xFFFFF000);
    const auto page = [file = huge.finish()](u64, SparseStripe::Page& bytes) {
        std::copy_n(file.begin(), bytes.size(), bytes.begin());
    };
    EXPECT_FALSE(open(makeRef<SparseStripe>(u64{1} << 33, page))) << "even in a file that is long enough";
    // The checksum is the plain XOR, no value excepted; 504 is the last word that counts.
    for (const u32 sum : {0u, 0xFFFFFFFFu, 1u}) {
        HiveImage image = smallHive();
        image.fixChecksum();
        image.pokeHeader32(504, image.peekHeader32(504) ^ image.peekHeader32(508) ^ sum);
        image.pokeHeader32(508, sum);
        EXPECT_TRUE(open(makeRef<MemoryStripe>(image.bytes()))) << sum;
    }
}

TEST(Opening, RefusesWhatIsNoByteStoreAndKeepsTheStoresError) {
    EXPECT_FALSE(open(Ref<Interfaces::Stripe>(), 4));
    EXPECT_EQ(Error::get(), 0x8445u);
    const TempDir directory;
    const auto missing = String::fromUtf8(directory.file("missing"));
    for (const auto& [path, code] : {std::pair(Ref<String>(), 0x8445u), {missing, 0x20000u + ENOENT}}) {
        Error::set(0);
        EXPECT_FALSE(HiveFile::open(path, HiveFile::modeReadOnly, HiveFile::hiveCodepageAscii));
        EXPECT_EQ(Error::get(), code);
    }
    LogCapture log;
    EXPECT_FALSE(open(makeRef<MemoryStripe>(smallHive().finish(), 2U), 4));
    EXPECT_EQ(Error::get(), 0x10002u);
    EXPECT_EQ(log.text(), "4 Hive: Stripe object with element size != 1 not supported\n");
    log.clear();
    const auto stripe = makeRef<FailingStripe>(makeRef<MemoryStripe>(smallHive().finish()));
    stripe->failAt(0, FailingStripe::shortReads);
    EXPECT_FALSE(open(stripe, 0));
    EXPECT_EQ(Error::get(), FailingStripe::errorCode);
    EXPECT_EQ(log.text(), "4 Hive: Failed to read file: fa11edh (16388589)\n");
}

TEST(Opening, AnUnreadableRootMakesTheHiveInvalidForGood) {
    HiveBuilder image = smallHive();
    const u32 loose = image.freeCell(96), root = image.key().record;
    const std::vector<u8> intact = image.finish();
    for (const u32 offset : {0xFFFFFFFFu, root + 4, root + 8, 0u, loose, image.security()[0], 0x10000000u}) {
        for (const bool empty : {false, true}) {  // or no more than the base block
            image.setRoot(offset);
            const auto stripe = makeRef<MemoryStripe>(empty ? HiveImage().finish() : image.finish());
            const auto hive = openStore(stripe, 1);
            ASSERT_TRUE(hive) << offset;
            EXPECT_EQ(bool(hive->cacheLoadRecord(root)), !empty) << offset;
            LogCapture log;
            EXPECT_FALSE(hive->root()) << offset;
            EXPECT_EQ(Error::get(), 0x2001u) << offset;
            EXPECT_TRUE(log.contains("3 Hive: Root key not valid\n")) << offset;
            EXPECT_FALSE(hive->valid());
            stripe->bytes() = intact;  // too late
            Error::set(0);
            EXPECT_FALSE(hive->path(String::create(u"a")));
            EXPECT_EQ(Error::get(), 0x2001u);
            EXPECT_FALSE(hive->securityDescriptorIterator() || hive->cacheLoadRecord(root));
        }
    }
}

}  // namespace
