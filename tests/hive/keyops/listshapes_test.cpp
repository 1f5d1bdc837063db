// The shapes that the records of a subkey list go through as subkeys come and go.

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

/// Works on the root's subkeys by number. That the right keys are in the list, and in order, is checked by
/// the soundness of the file.
struct Listed : FreshHive {
    using FreshHive::FreshHive;

    void create(u32 number) { ASSERT_TRUE(root->createKey(numbered(number))) << number; }
    void remove(u32 number) { ASSERT_TRUE(root->deleteKey(root->key(numbered(number)))) << number; }
    /// Creates "k0" and so on until there are `count`, each `step` numbers behind the one before.
    void fill(u32 count, u32 step = 1) {
        for (u32 i = root->keys(); i < count; ++i) create(i * step);
    }
};

struct Step {
    u32 count;
    const char* shape;
};

TEST(ListShapes, GrowFromEmptyToManySublists) {
    const struct {
        u32 minor;
        bool ascending;
        std::vector<Step> steps;
    } cases[] = {
        {3,
         true,
         {{0, ""},
          {1, "lf1"},
          {400, "lf400"},
          {401, "li401"},
          {901, "ri li450 li451"},
          {1350, "ri li450 li900"},
          {1351, "ri li450 li450 li451"}}},
        {3,
         false,
         {{900, "li900"}, {901, "ri li451 li450"}, {1350, "ri li900 li450"}, {1351, "ri li451 li450 li450"}}},
        {5,
         true,
         {{0, ""},
          {1, "lh1"},
          {1200, "lh1200"},
          {1201, "ri lh600 lh601"},
          {1800, "ri lh600 lh1200"},
          {1801, "ri lh600 lh600 lh601"}}},
        {5,
         false,
         {{1200, "lh1200"},
          {1201, "ri lh601 lh600"},
          {1800, "ri lh1200 lh600"},
          {1801, "ri lh601 lh600 lh600"}}},
    };
    for (const auto& test : cases) {
        Listed hive(test.minor);
        for (const Step& step : test.steps) {
            SCOPED_TRACE(testing::Message()
                         << "1." << test.minor << " " << test.ascending << " " << step.count);
            while (hive.root->keys() < step.count)
                hive.create(test.ascending ? hive.root->keys() : 5000 - hive.root->keys());
            EXPECT_EQ(shapeOf(hive), step.shape);
            EXPECT_EQ(hive.peek32(COUNT_FIELD), step.count);
            hive.expectSound();
            hive.reopen();
        }
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
        Listed hive(minor);
        hive.fill(2 * half, 10);
        hive.create(half * 10 - 5);
        EXPECT_EQ(shapeOf(hive), shape(half + 1, half)) << "the new key is the first half's last";
        hive.create(half * 10 - 4);
        EXPECT_EQ(shapeOf(hive), shape(half + 2, half)) << "behind that";
        hive.create(half * 10 + 1);
        EXPECT_EQ(shapeOf(hive), shape(half + 2, half + 1)) << "behind the second half's first";
        for (u32 i = 0; hive.root->keys() < 3 * half + 1; ++i) hive.create(i * 10 + 3);
        EXPECT_EQ(shapeOf(hive), shape(2 * half, half + 1));
        hive.create(half * 10 - 6);
        EXPECT_EQ(shapeOf(hive), "ri " + kind + std::to_string(half) + " " + kind + std::to_string(half + 1) +
                                     " " + kind + std::to_string(half + 1))
            << "a split of a sublist that another follows";
        hive.expectSound();
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
        {3, 401, {{400, 100, "li101"}, {100, 0, "li1"}, {0, 1, ""}}},
        {3, 901, {{0, 449, "ri li1 li451"}, {449, 450, "li451"}, {450, 901, ""}}},
        {3, 901, {{900, 449, "li450"}, {449, 0, "li1"}}},
        {5, 1201, {{0, 600, "lh601"}, {600, 1201, ""}}},
        {5, 1801, {{600, 1199, "ri lh600 lh1 lh601"}, {1199, 1200, "ri lh600 lh601"}, {1800, 1199, "lh600"}}},
    };
    for (const auto& test : cases)
        for (const bool opened : {false, true}) {
            Listed hive(test.minor);
            hive.fill(test.count);
            for (const Range& range : test.ranges) {
                SCOPED_TRACE(testing::Message()
                             << "1." << test.minor << " " << test.count << " from " << range.from);
                if (opened) hive.reopen();
                for (u32 i = range.from; i < range.to; ++i) hive.remove(i);
                for (u32 i = range.from; i > range.to; --i) hive.remove(i);
                EXPECT_EQ(shapeOf(hive), range.shape);
                EXPECT_TRUE(hive.root->keys() || hive.peek32(LIST_FIELD) == 0);
                hive.expectSound();
            }
            hive.create(3000);
            hive.expectSound();
        }
}

}  // namespace
