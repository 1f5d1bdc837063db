#include "tests/hive/openedhive.h"

using namespace HiveTest;

namespace {

template <typename Iterator>
std::string rest(const Ref<Iterator>& iterator) {
    std::string names;
    for (auto entry = iterator->next(); entry; entry = iterator->next()) names += utf8(entry->name());
    return names;
}

/// Iterators that die leave their place to later ones; the key must tell each living one once.
TEST(Iterators, EachLivingOneIsToldOnceOfAChange) {
    HiveBuilder builder;
    builder.build({.values = {{u"b"}, {u"d"}, {u"f"}}, .keys = {{u"b"}, {u"d"}, {u"f"}}});
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
    ASSERT_TRUE(root->move(root->key(text(u"f")), text(u"B")));  // from behind to in front, out of a, c, d, f
    expectRests("aBcd", "cd", "d");
    ASSERT_TRUE(root->key(text(u"c"))->move(root->key(text(u"a")), text(u"away")));
    expectRests("Bcd", "Bcd", "cd");

    const auto values = root->valueIterator();
    values->seek(2);
    ASSERT_TRUE(root->deleteValue(root->value(text(u"b"))));
    ASSERT_TRUE(root->createValue(text(u"z"), Value::valueBinary));
    EXPECT_EQ(rest(values), "fz");
    EXPECT_EQ(values->seek(0xFFFFFFFF), 3u);
    EXPECT_FALSE(values->next());
}

}  // namespace
