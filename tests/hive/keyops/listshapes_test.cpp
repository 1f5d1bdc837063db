// The shapes that the records of a subkey list go through as subkeys come and go.

#include <set>

#include "tests/hive/keyops/freshhive.h"

using namespace HiveTest;

namespace {

constexpr u32 ROOT = 32;  // where a new hive has its root key
constexpr u32 LIST_FIELD = ROOT + 32;
constexpr u32 COUNT_FIELD = ROOT + 24;

/// One list record as the file has it: "lh3", or "ri lh600 lh601"; "" for none.
std::string shapeAt(FreshHive& hive, u32 list) {
    if (list == 0 || list == HiveImage::NONE) return "";
    const auto* kind = reinterpret_cast<const char*>(hive.file().data()) + list + 4096 + 4;
    const u32 count = hive.peek16(list + 6);
    std::string shape(kind, 2);
    if (shape != "ri") return shape + std::to_string(count);
    for (u32 i = 0; i < count; ++i) shape.append(" ").append(shapeAt(hive, hive.peek32(list + 8 + 4 * i)));
    return shape;
}

std::string shapeOf(FreshHive& hive) {
    return shapeAt(hive, hive.peek32(LIST_FIELD));
}

u32 cellLength(FreshHive& hive, u32 offset) {
    return 0 - hive.peek32(offset);
}

/// The root's subkeys are exactly these, in order, in memory and, after opening anew, in the file.
void expectSubkeys(FreshHive& hive, const std::set<u32>& numbers) {
    std::string names;
    for (const u32 number : numbers) names += utf8(numbered(number)) + " ";
    EXPECT_EQ(hive.peek32(COUNT_FIELD), numbers.size());
    hive.expectSound();
    EXPECT_EQ(namesOf(hive.root), names);
    hive.reopen();
    EXPECT_EQ(namesOf(hive.root), names);
    for (const u32 number : numbers) EXPECT_TRUE(hive.root->key(numbered(number))) << number;
}

void create(FreshHive& hive, std::set<u32>& numbers, u32 number) {
    ASSERT_TRUE(hive.root->createKey(numbered(number))) << number;
    numbers.insert(number);
}

void remove(FreshHive& hive, std::set<u32>& numbers, u32 number) {
    ASSERT_TRUE(hive.root->deleteKey(hive.root->key(numbered(number)))) << number;
    numbers.erase(number);
}

struct Step {
    u32 count;
    const char* shape;
};

TEST(ListShapes, GrowFromEmptyToManySublists) {
    enum Order { ascending, descending };
    const struct {
        u32 minor;
        Order order;
        std::vector<Step> steps;
    } cases[] = {
        {3,
         ascending,
         {{0, ""},
          {1, "lf1"},
          {7, "lf7"},
          {400, "lf400"},
          {401, "li401"},
          {900, "li900"},
          {901, "ri li450 li451"},
          {1350, "ri li450 li900"},
          {1351, "ri li450 li450 li451"},
          {1801, "ri li450 li450 li450 li451"}}},
        {3,
         descending,
         {{1, "lf1"},
          {401, "li401"},
          {900, "li900"},
          {901, "ri li451 li450"},
          {1350, "ri li900 li450"},
          {1351, "ri li451 li450 li450"}}},
        {5,
         ascending,
         {{0, ""},
          {1, "lh1"},
          {401, "lh401"},
          {1200, "lh1200"},
          {1201, "ri lh600 lh601"},
          {1800, "ri lh600 lh1200"},
          {1801, "ri lh600 lh600 lh601"}}},
        {5,
         descending,
         {{1200, "lh1200"},
          {1201, "ri lh601 lh600"},
          {1800, "ri lh1200 lh600"},
          {1801, "ri lh601 lh600 lh600"}}},
    };
    for (const auto& test : cases) {
        FreshHive hive(test.minor);
        std::set<u32> numbers;
        for (const Step& step : test.steps) {
            SCOPED_TRACE(testing::Message() << "1." << test.minor << " " << test.order << " " << step.count);
            while (numbers.size() < step.count) {
                const auto count = static_cast<u32>(numbers.size());
                create(hive, numbers, test.order == ascending ? count : 5000 - count);
            }
            EXPECT_EQ(shapeOf(hive), step.shape);
            expectSubkeys(hive, numbers);
        }
    }
}

/// What becomes of the list records themselves: where they lie and how long they are.
TEST(ListShapes, FullRecordsAreConvertedInPlaceAndSplitAtTheirLength) {
    FreshHive old(3);
    std::set<u32> numbers;
    while (numbers.size() < 400) create(old, numbers, static_cast<u32>(numbers.size()));
    const u32 lf = old.peek32(LIST_FIELD);
    create(old, numbers, 400);
    EXPECT_EQ(old.peek32(LIST_FIELD), lf) << "half the length needs no other place";
    for (const u32 minor : {3u, 5u}) {
        FreshHive hive(minor);
        numbers.clear();
        const u32 capacity = minor == 3 ? 900 : 1200;
        create(hive, numbers, 0);
        EXPECT_EQ(cellLength(hive, hive.peek32(LIST_FIELD)), 64u) << "what a new list begins with";
        while (numbers.size() < capacity) create(hive, numbers, static_cast<u32>(numbers.size()));
        const u32 full = hive.peek32(LIST_FIELD);
        const u32 length = cellLength(hive, full);
        create(hive, numbers, capacity);
        const u32 ri = hive.peek32(LIST_FIELD);
        EXPECT_GE(cellLength(hive, ri), 64u);
        EXPECT_EQ(hive.peek32(ri + 8), full) << "the first half stays where it was";
        EXPECT_EQ(cellLength(hive, full), length);
        EXPECT_GE(cellLength(hive, hive.peek32(ri + 12)), length);
    }
}

/// An entry for the border between two sublists goes to the end of the first, also right after a split.
TEST(ListShapes, EntriesGoToTheEarlierOfTwoSublists) {
    for (const u32 minor : {3u, 5u}) {
        const u32 half = minor == 3 ? 450 : 600;
        const std::string kind = minor == 3 ? "li" : "lh";
        const auto shape = [&](u32 first, u32 second) {
            return "ri " + kind + std::to_string(first) + " " + kind + std::to_string(second);
        };
        FreshHive hive(minor);
        std::set<u32> numbers;
        while (numbers.size() < 2 * half) create(hive, numbers, static_cast<u32>(numbers.size() * 10));
        create(hive, numbers, half * 10 - 5);
        EXPECT_EQ(shapeOf(hive), shape(half + 1, half)) << "the new key is the first half's last";
        create(hive, numbers, half * 10 - 4);
        EXPECT_EQ(shapeOf(hive), shape(half + 2, half)) << "behind that";
        create(hive, numbers, half * 10 + 1);
        EXPECT_EQ(shapeOf(hive), shape(half + 2, half + 1)) << "behind the second half's first";
        for (u32 i = 0; numbers.size() < 3 * half + 1; ++i) create(hive, numbers, i * 10 + 3);
        EXPECT_EQ(shapeOf(hive), shape(2 * half, half + 1));
        create(hive, numbers, half * 10 - 6);
        EXPECT_EQ(shapeOf(hive), "ri " + kind + std::to_string(half) + " " + kind + std::to_string(half + 1) +
                                     " " + kind + std::to_string(half + 1))
            << "a split of a sublist that another follows";
        expectSubkeys(hive, numbers);
    }
}

TEST(ListShapes, ShrinkUntilNothingIsLeft) {
    struct Range {
        u32 from, to;  // these are removed, upwards or downwards
        const char* shape;
    };
    const struct {
        u32 minor;
        u32 count;
        std::vector<Range> ranges;
    } cases[] = {
        {3, 1, {{0, 1, ""}}},
        {3, 400, {{0, 399, "lf1"}, {399, 400, ""}}},
        {3, 401, {{400, 100, "li101"}, {100, 0, "li1"}, {0, 1, ""}}},
        {3, 901, {{0, 449, "ri li1 li451"}, {449, 450, "li451"}, {450, 901, ""}}},
        {3, 901, {{900, 449, "li450"}, {449, 0, "li1"}}},
        {5, 1201, {{0, 600, "lh601"}, {600, 1201, ""}}},
        {5, 1801, {{600, 1199, "ri lh600 lh1 lh601"}, {1199, 1200, "ri lh600 lh601"}, {1800, 1199, "lh600"}}},
        {5, 1801, {{0, 600, "ri lh600 lh601"}, {600, 1801, ""}}},
        {5, 1801, {{1800, 599, "lh600"}, {599, 200, "lh201"}}},
    };
    for (const auto& test : cases)
        for (const bool opened : {false, true}) {
            FreshHive hive(test.minor);
            std::set<u32> numbers;
            while (numbers.size() < test.count) create(hive, numbers, static_cast<u32>(numbers.size()));
            for (const Range& range : test.ranges) {
                SCOPED_TRACE(testing::Message()
                             << "1." << test.minor << " " << test.count << " from " << range.from);
                if (opened) hive.reopen();
                for (u32 i = range.from; i < range.to; ++i) remove(hive, numbers, i);
                for (u32 i = range.from; i > range.to; --i) remove(hive, numbers, i);
                EXPECT_EQ(shapeOf(hive), range.shape);
                if (numbers.empty()) {
                    EXPECT_EQ(hive.peek32(LIST_FIELD), 0u);
                }
                hive.expectSound();
            }
            create(hive, numbers, 3000);
            expectSubkeys(hive, numbers);
        }
}

}  // namespace
