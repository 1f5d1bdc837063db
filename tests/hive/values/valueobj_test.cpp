#include "tests/hive/openedhive.h"

using namespace HiveTest;

namespace {

constexpr u32 FRAGMENT = 16344;

std::vector<u8> readAll(ValueObj& value) {
    std::vector<u8> data(value.size());
    data.resize(value.read(data.data(), 0, value.size()));
    return data;
}

/// A hive of one value, "Value", far enough from the start that no offset bounds a read.
struct ValueHive : HiveBuilder {
    explicit ValueHive(ValuePlan plan, u32 minor = 5) : HiveBuilder(minor) {
        allocate(1100000);
        plan.name = u"Value";
        build({.values = {plan}});
    }
    const LaidValue& laid() const { return value(u"", u"Value"); }
};

TEST(ValueObj, BrokenRecordGivesAnInvalidValue) {
    constexpr auto unreadable = "3 Hive: Failed to get hive record for value: ";
    constexpr auto longName = "4 Hive: Name of value exceeds length of record\n1 Hive: Record: ";
    constexpr auto longData = "4 Hive: Invalid length of data! Data is resident, size is: ";
    const struct {
        u32 at;
        std::vector<u8> damage;
        const char* logged;
        u32 error;
    } cases[] = {
        {0, numberBytes(32), unreadable, 0},  // free
        {4, {'n', 'k'}, "4 Hive: Value record is no vk record: ", 0},
        {6, numberBytes(9, 2), longName, 0},
        {0, numberBytes(0u - 8), longName, 0},
        {8, numberBytes(0x80000005), longData, 0x200C},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << test.at << " " << test.logged);
        ValueHive builder({.data = {1, 2, 3}});
        builder.poke(builder.laid().record + test.at, test.damage);
        const OpenedHive opened(builder);
        const auto root = opened.root();
        LogCapture logged;
        Platform::Error::set(0);
        const auto value = root->value(0);
        EXPECT_FALSE(value->valid());
        EXPECT_EQ(Platform::Error::get(), test.error);
        EXPECT_TRUE(logged.contains(test.logged)) << logged.text();
        u8 byte = 0xCC;
        EXPECT_FALSE(value->name() || value->size() || value->read(&byte, 0, 1) || value->string(9));
        EXPECT_FALSE(value->strings(9) || value->binary() || value->number() != ~u64{0});
        EXPECT_TRUE(value->readOnly());
        EXPECT_EQ(byte, 0xCC);
        EXPECT_EQ(Platform::Error::get(), 0x1001u);
    }
}

/// The length and the version say where data lies; data laid down in any other form is refused.
TEST(ValueObj, StorageFormFollowsLengthAndVersion) {
    for (const u32 minor : {3u, 5u})
        for (const u32 size : {0u, 4u, 5u, FRAGMENT, FRAGMENT + 1, 2 * FRAGMENT, 2 * FRAGMENT + 1})
            for (const Storage storage : {Storage::resident, Storage::single, Storage::db}) {
                SCOPED_TRACE(testing::Message() << minor << " " << size << " " << int(storage));
                const auto data = patternBytes(size);
                ValueHive builder({.data = data, .storage = storage}, minor);
                const OpenedHive opened(builder);
                const auto value = opened.root()->value(0);
                ASSERT_EQ(value->valid(), storage != Storage::resident || size <= 4);
                if (!value->valid()) continue;
                const bool split = minor == 5 && size > FRAGMENT;
                EXPECT_EQ(value->usesDbList(), split);
                Platform::Error::set(0);
                const auto got = readAll(*value);
                if (storage == Storage::resident || size == 0 || (storage == Storage::db) == split) {
                    EXPECT_EQ(got, data);
                } else if (size <= 12) {
                    EXPECT_EQ(got.size(), size) << "a db record is as good a data cell as any";
                } else {
                    EXPECT_EQ(got.size(), 0u);
                    EXPECT_EQ(Platform::Error::get(), 0x200Cu);
                }
            }
}

TEST(ValueObj, BrokenDataIsRefused) {
    constexpr auto vk = &LaidValue::record, data = &LaidValue::data, list = &LaidValue::fragmentList;
    constexpr auto tooFew = "4 Hive: Size of all fragments smaller than length of data";
    constexpr auto badFragment = "4 Hive: Invalid size for non-last fragment: ";
    const u32 other = 32;  // an sk record of 32 bytes
    const struct {
        u32 size;
        u32 LaidValue::*cell;
        u32 at;
        std::vector<u8> damage;
        const char* logged;
        u32 error;
    } cases[] = {
        {100, vk, 12, numberBytes(0x7FFFFFF8), "", 0},
        {100, vk, 12, numberBytes(36), "", 0x2006},
        {100, data, 0, numberBytes(104), "Attempt to access an unused record", 0},
        {100, vk, 8, numberBytes(101),
         "size value in vk recordsize in vk: 65h (101)size of data element: 68h", 0x200C},
        {16344, data, 0, numberBytes(0u - 16344), "4 Hive: Size of data element is smaller than size value",
         0x200C},
        {40000, data, 4, {'b', 'd'}, "4 Hive: Invalid record type: Expected db, is: bd", 0x200C},
        {40000, data, 0, numberBytes(0u - 8), "4 Hive: Size too small for db record: 8h (8)", 0x200C},
        {40000, vk, 8, numberBytes(3 * FRAGMENT + 1), tooFew, 0x200C},
        {2 * FRAGMENT + 1, data, 6, numberBytes(2, 2), tooFew, 0x200C},
        {40000, data, 6, numberBytes(4, 2), "4 Hive: Size of fragment list is smaller than size of expec",
         0x200C},
        {40000, data, 8, numberBytes(0xFFFFFFF8), "", 0},
        {40000, list, 12, numberBytes(0x7FFFFFF8), "", 0},
        {40000, list, 8, numberBytes(other), badFragment, 0},
        {2 * FRAGMENT, list, 4, numberBytes(other), badFragment, 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << test.size << " " << test.at << " " << test.logged);
        ValueHive builder({.data = patternBytes(test.size)});
        builder.poke(u64{builder.laid().*test.cell} + test.at, test.damage);
        const OpenedHive opened(builder);
        const auto value = opened.root()->value(0);
        LogCapture logged;
        for (u64 tries = 1; tries < 3; ++tries) {
            Platform::Error::set(0);
            EXPECT_EQ(readAll(*value), std::vector<u8>());
            EXPECT_EQ(Platform::Error::get(), test.error);
            EXPECT_TRUE(!*test.logged || logged.count(test.logged) == tries) << logged.text();
        }
    }
}

}  // namespace
