#include <thread>

#include "regfile/regfileutil.h"
#include "tests/hive/openedhive.h"

using namespace HiveTest;

namespace {

/// Forty subkeys, each with a value in fragments and a number; more in all than the cache holds.
KeyPlan branch(const char16_t* name, u32 seed) {
    KeyPlan plan{.name = name};
    for (u32 i = 0; i < 40; ++i)
        plan.keys.push_back(
            {.name = {static_cast<char16_t>(u'A' + i / 10), static_cast<char16_t>(u'0' + i % 10)},
             .values = {{u"big", 3, patternBytes(20000 + i, seed + i)},
                        {u"number", 4, numberBytes(seed * 100 + i)}}});
    return plan;
}

/// Reads a branch by name and by iteration, again and again; whether all was right.
bool readBranch(const Ref<Key>& key, const KeyPlan& plan) {
    for (int again = 0; again < 3; ++again) {
        const auto iterator = key->keyIterator();
        for (const KeyPlan& expected : plan.keys) {
            const auto sub = key->key(text(expected.name));
            if (!sub || key->key(text(u"missing")) || iterator->next() != sub) return false;
            const auto big = sub->value(text(u"BIG"));
            const auto number = sub->value(text(u"Number"));
            if (!big || !number || numberBytes(number->number()) != expected.values[1].data) return false;
            std::vector<u8> data(big->size());
            if (big->read(data.data(), 0, big->size()) != data.size() || data != expected.values[0].data)
                return false;
        }
        if (iterator->next()) return false;
    }
    return true;
}

TEST(HiveThreads, ReadOneHiveThroughDifferentKeysAndTheSame) {
    const KeyPlan left = branch(u"Left", 1);
    const KeyPlan right = branch(u"Right", 2);
    HiveBuilder builder;
    builder.setHbinSize(73 * 4096);
    builder.allocate(20000);
    builder.build({.keys = {left, right}});
    for (const u32 mode : {u32{HiveFile::modeReadWrite}, HiveFile::modeReadOnly | HiveFile::modeUnsafe}) {
        const OpenedHive opened(builder, mode);
        const Ref<Key> shared = opened.key(u"Left");
        bool right1 = false, right2 = false, right3 = false;
        std::thread first([&] { right1 = readBranch(opened.hive->path(text(u"Left")), left); });
        std::thread second([&] { right2 = readBranch(opened.hive->path(text(u"Right")), right); });
        std::thread third([&] { right3 = readBranch(shared, left); });
        const bool right4 = readBranch(shared, left);
        for (std::thread* thread : {&first, &second, &third}) thread->join();
        EXPECT_TRUE(right1 && right2 && right3 && right4) << mode;
    }
}

}  // namespace
