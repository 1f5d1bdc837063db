#include <algorithm>

#include "tests/hive/openedhive.h"

using namespace HiveTest;

namespace {

constexpr u32 FRAGMENT = 16344;

/// What readers are promised: the extents' capacities laid end to end, each bounded by its cell's offset less
/// 4, and of that the bytes from `offset` on, as many as wanted but no more than the value's length. The
/// image must reach far enough behind the last cell.
std::vector<u8> expectedRead(HiveImage& image, const std::vector<u32>& cells, u32 size, u32 offset,
                             u32 count) {
    std::vector<u8> all;
    for (const u32 cell : cells) {
        const auto first = image.bytes().begin() + 4096 + cell + 4;
        all.insert(all.end(), first, first + std::min(image.minor() == 3 ? 1048572 : FRAGMENT, cell - 4));
    }
    all.erase(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(std::min<u64>(offset, all.size())));
    all.resize(std::min<u64>(all.size(), std::min(count, size)));
    return all;
}

/// Lays out the value "Value", its data in `cell` or, when that is 0, where it goes; reads it in many ways.
void expectReads(HiveBuilder& builder, u32 size, u32 cell = 0) {
    builder.build({.values = {{.name = u"Value", .data = patternBytes(cell ? 0 : size)}}});
    builder.allocate(patternBytes(1100000));  // to be run into
    const LaidValue& laid = builder.value(u"", u"Value");
    std::vector<u32> cells = laid.fragments;
    if (cells.empty()) cells = {cell ? cell : laid.data};
    if (cell) {
        builder.poke32(laid.record + 8, size);
        builder.poke32(laid.record + 12, cell);
    }
    const OpenedHive opened(builder);
    const auto value = opened.root()->value(0);
    const u32 first = std::min(cells[0] - 4, 0xFFFFu);
    for (const u32 offset : {0u, 1u, first - 1, first, first + 1, FRAGMENT - 344, FRAGMENT - 1, FRAGMENT,
                             2 * FRAGMENT + 1, size - 1, size, size + 1, 3 * FRAGMENT, 0xFFFFFFFFu})
        for (const u32 count : {0u, 1u, 1000u, FRAGMENT, size - 1, size, size + 1, 0xFFFFFFFFu}) {
            auto expected = expectedRead(builder, cells, size, offset, count);
            std::vector<u8> got(size + 8, 0xCC);
            ASSERT_EQ(value->read(got.data(), offset, count), expected.size()) << offset << " " << count;
            expected.resize(got.size(), 0xCC);
            ASSERT_TRUE(got == expected) << offset << " " << count;
        }
}

/// Cells near the start are bounded by their offset, those far from it by the version's extent.
TEST(ValueRead, OffsetsAndCounts) {
    for (const u32 minor : {3u, 5u}) {
        for (const u32 size : {5u, FRAGMENT, FRAGMENT + 1, 3 * FRAGMENT, 100000u})
            for (const u32 front : {1100000u, 8u}) {
                SCOPED_TRACE(testing::Message() << minor << " " << size << " behind " << front);
                HiveBuilder builder(minor);
                builder.setHbinSize(3 << 20);  // all in one hbin, so that the file shows what lies behind
                builder.allocate(front);
                expectReads(builder, size);
            }
        for (const u32 offset : {0x28u, 0x1000u, 0x3FE0u}) {
            SCOPED_TRACE(testing::Message() << minor << " " << offset);
            HiveBuilder builder(minor);
            builder.setHbinSize(3 << 20);
            builder.allocate(offset - 32);
            expectReads(builder, FRAGMENT, builder.allocate(patternBytes(FRAGMENT)));
        }
    }
}

TEST(ValueRead, ResidentDataIsReadFromItsStart) {
    HiveBuilder builder;
    builder.build({.values = {{.data = {1, 2, 3}}}});
    const auto value = OpenedHive(builder).root()->value(0);
    for (const u32 offset : {0u, 2u, 100u, 0xFFFFFFFFu})
        for (const u32 count : {0u, 1u, 3u, 100u}) {
            std::vector<u8> got(4, 0xCC), expected{1, 2, 3};
            expected.resize(std::min(count, 3u));
            EXPECT_EQ(value->read(got.data(), offset, count), expected.size());
            expected.resize(4, 0xCC);
            EXPECT_EQ(got, expected) << offset << " " << count;
        }
}

/// The cache is filled to its end by an hbin whose last cell is the value's; behind it lies no memory at all.
TEST(ValueRead, ReadPastTheCacheYieldsZeros) {
    const auto data = patternBytes(10004);
    HiveBuilder builder;
    builder.build({.values = {{.name = u"Value"}}});
    builder.addHbin(1 << 20);
    builder.allocate((1 << 20) - 32 - 10008);
    builder.poke32(builder.value(u"", u"Value").record + 8, 10000);
    builder.poke32(builder.value(u"", u"Value").record + 12, builder.allocate(data));
    std::vector<u8> got(10000, 0xCC);
    ASSERT_EQ(OpenedHive(builder).root()->value(0)->read(got.data(), 9000, 10000), FRAGMENT - 9000);
    std::vector<u8> expected(data.begin() + 9000, data.end());
    expected.resize(FRAGMENT - 9000);
    expected.resize(10000, 0xCC);
    EXPECT_EQ(got, expected);
}

TEST(StripeValue, ReadsRunPastTheDataAndLimitsFollowTheType) {
    for (const u32 type : {1u, 3u}) {
        HiveBuilder builder;
        builder.allocate(20000);
        builder.build({.values = {{.name = u"Value", .type = type, .data = {1, 2, 3, 4, 5, 6}}}});
        builder.poke(builder.value(u"", u"Value").data + 10, std::vector<u8>{7, 8});
        const auto stripe = OpenedHive(builder).root()->value(0)->binary();
        std::vector<u8> got(8);
        EXPECT_EQ(stripe->read(got.data(), 4) + stripe->read(got.data() + 4, 4), 8u);
        EXPECT_EQ(got, (std::vector<u8>{1, 2, 3, 4, 5, 6, 7, 8}));
        for (const u64 position : {u64{2}, u64{7}, u64{1} << 32})
            EXPECT_EQ(stripe->seek(position), std::min<u64>(position, 6));
        EXPECT_EQ(stripe->minElementCount(), type == 3 ? 0u : 6u);
        EXPECT_EQ(stripe->maxElementCount(), type == 3 ? 1048572u : 6u);
        EXPECT_EQ(stripe->trim(1) + stripe->clear(1), 0u);
        EXPECT_EQ(Platform::Error::get(), 0x10002u);
        EXPECT_EQ(stripe->read(got.data(), u64{1} << 32) + stripe->write(got.data(), u64{1} << 32), 0u);
        EXPECT_EQ(Platform::Error::get(), 0x8446u);
    }
}

}  // namespace
