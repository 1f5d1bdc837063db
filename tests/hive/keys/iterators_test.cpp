#include "tests/hive/openedhive.h"

using namespace HiveTest;

namespace {

/// As many subkeys as values, both named "b", "d", "f" and so on.
KeyPlan planOf(u32 count) {
    KeyPlan plan{.name = u"Sub"};
    for (u32 i = 0; i < count; ++i) {
        const std::u16string name{static_cast<char16_t>(u'b' + 2 * i)};
        plan.keys.push_back({.name = name});
        plan.values.push_back({.name = name});
    }
    return plan;
}

template <typename Iterator>
std::string rest(const Ref<Iterator>& iterator) {
    std::string names;
    for (auto entry = iterator->next(); entry; entry = iterator->next()) names += utf8(entry->name());
    return names;
}

template <typename Iterator>
void expectWalks(const Ref<Iterator>& iterator, u32 count) {
    const auto all = std::string("bdfhj").substr(0, count);
    EXPECT_EQ(iterator->count(), count);
    for (const u32 position : {0u, 1u, count, count + 1, 10u, 0xFFFFFFFFu}) {
        EXPECT_EQ(iterator->seek(position), std::min(position, count));
        EXPECT_EQ(rest(iterator), all.substr(std::min(position, count)));
        EXPECT_FALSE(iterator->next()) << "the end stays the end";
        iterator->seek(0);
    }
}

TEST(Iterators, WalkSeekAndKeepTheirKeyAlive) {
    for (const u32 count : {0u, 1u, 3u}) {
        SCOPED_TRACE(count);
        HiveBuilder builder;
        builder.build({.keys = {planOf(count)}});
        expectWalks(OpenedHive(builder).key(u"Sub")->keyIterator(), count);
        expectWalks(OpenedHive(builder).key(u"Sub")->valueIterator(), count);
    }
}

/// Iterators that die leave their place to later ones; the key must tell each living one once.
TEST(Iterators, EachLivingOneIsToldOnceOfAChange) {
    HiveBuilder builder;
    builder.build(planOf(3));
    const OpenedHive opened(builder, HiveFile::modeReadWrite);
    const auto root = opened.root();
    Ref<KeyIterator> iterators[] = {root->keyIterator(), root->keyIterator(), root->keyIterator()};
    iterators[1] = root->keyIterator();
    iterators[0] = root->keyIterator();
    const auto expectRests = [&](const char* first, const char* second, const char* third) {
        EXPECT_EQ(rest(iterators[0]), first);
        EXPECT_EQ(rest(iterators[1]), second);
        EXPECT_EQ(rest(iterators[2]), third);
        for (u32 i = 0; i < 3; ++i) iterators[i]->seek(i);
    };
    expectRests("bdf", "bdf", "bdf");
    ASSERT_TRUE(root->createKey(text(u"c")));  // at index 1 of b, d, f
    expectRests("bcdf", "df", "f");
    ASSERT_TRUE(root->createKey(text(u"a")));  // at 0
    expectRests("bcdf", "cdf", "df");
    ASSERT_TRUE(root->deleteKey(root->key(text(u"b"))));  // at 1 of a, b, c, d, f
    expectRests("acdf", "cdf", "cdf");

    const auto values = root->valueIterator();
    values->seek(2);
    ASSERT_TRUE(root->deleteValue(root->value(text(u"b"))));
    ASSERT_TRUE(root->createValue(text(u"z"), Value::valueBinary));
    EXPECT_EQ(rest(values), "fz");
}

}  // namespace
