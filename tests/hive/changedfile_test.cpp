// A hive file that another process truncates or overwrites while it is open.

#include "regfile/regfileutil.h"
#include "regfile/util.h"
#include "tests/hive/openedhive.h"
#include "tests/support/tempdir.h"

using namespace HiveTest;

namespace {

constexpr u32 MOST_STEPS = 20000;  // the hive has fewer than 200 keys and values

HiveBuilder builtHive() {
    HiveBuilder builder(5);
    KeyPlan many{.name = u"many"};
    for (u32 i = 0; i < 60; ++i)
        many.keys.push_back({.name = {u'k', static_cast<char16_t>(u'A' + i)},
                             .values = {{.name = u"v", .data = patternBytes(2000, i)}}});
    const ValuePlan large{.name = u"large", .data = patternBytes(100000)};
    builder.build({.keys = {many, {.name = u"other", .values = {large}}}});
    return builder;
}

/// Reads whatever can be read; the steps it took.
u32 walk(const Ref<Key>& key, u32 steps = 0) {
    if (!key || steps > MOST_STEPS) return steps;
    const auto values = key->valueIterator();
    for (u32 left = values->count(); left > 0 && ++steps < MOST_STEPS; --left)
        if (const auto value = values->next()) {
            std::vector<u8> data(std::min(value->size(), 200000U));
            value->read(Interfaces::ShPtr(data.data()), 0, static_cast<u32>(data.size()));
        }
    const auto keys = key->keyIterator();
    for (u32 left = keys->count(); left > 0 && ++steps < MOST_STEPS; --left)
        steps = walk(keys->next(), steps);
    return steps;
}

void change(const Ref<HiveFile>& hive) {
    const auto root = hive->root();
    if (!root) return;
    const auto made = root->createKey(text(u"made"));
    if (made) made->createValue(text(u"v"), Value::valueQword);
    const auto other = root->key(text(u"other"));
    const auto value = other ? other->value(text(u"large")) : nullptr;
    const auto data = patternBytes(150000);
    if (value && value->size(150000) == 150000)
        value->write(Interfaces::ShPtr::fromConst(data.data()), 0, 150000);
    if (value) other->move(value, text(u"renamed"));
    if (const auto many = root->key(text(u"many"))) Util::recursiveKeyDelete(root, many);
}

struct Damage {
    const char* name;
    u64 from;  // where it begins: 0, 1 (behind the header), else in 64ths of the file
    int fill;
};
constexpr int noise = -1, cutOff = -2;
constexpr Damage damages[] = {{"emptied", 0, cutOff},
                              {"cut behind the header", 1, cutOff},
                              {"cut in the middle", 32, cutOff},
                              {"cut near the end", 63, cutOff},
                              {"zeros", 0, 0},
                              {"zeros behind the header", 1, 0},
                              {"noise", 1, noise},
                              {"noise behind", 32, noise},
                              {"all ones", 1, 0xFF},
                              {"all ones behind", 20, 0xFF}};

void apply(const Damage& damage, const std::string& path, std::vector<u8> bytes) {
    const u64 from = damage.from == 1 ? 4096 : damage.from * bytes.size() / 64;
    if (damage.fill == cutOff) {
        std::filesystem::resize_file(path, from);
        return;
    }
    const auto noisy = patternBytes(bytes.size(), 77);
    for (u64 i = from; i < bytes.size(); ++i)
        bytes[i] = damage.fill == noise ? noisy[i] : static_cast<u8>(damage.fill);
    std::fstream(path, std::ios::in | std::ios::out | std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

bool exports(const Ref<Key>& key) {
    const auto target = Platform::makeRef<MemoryStripe>();
    return RegFileUtil::exportRegFile(key, Ref<Interfaces::Stripe>(target), text(u""),
                                      RegFileUtil::exportBinaryOnly, nullptr, false);
}

enum class Loaded { nothing, root, all };

class ChangedFile : public testing::TestWithParam<u32> {
 protected:
    /// Opens the hive, loads so much of it, damages the file and goes on.
    void run(const Damage& damage, Loaded loaded) {
        writeFile(_path, _file);
        const auto hive = HiveFile::open(String::fromUtf8(_path), GetParam(), HiveFile::hiveCodepageLatin1);
        ASSERT_TRUE(hive);
        const Ref<Key> held = loaded == Loaded::nothing ? nullptr : hive->root();
        if (loaded == Loaded::all) walk(held);
        apply(damage, _path, _file);

        Platform::Error::set(0);
        const Ref<Key> root = hive->root();
        EXPECT_EQ(bool(root), damage.from > 1 || loaded != Loaded::nothing);
        EXPECT_TRUE(root || Platform::Error::get() != 0);
        EXPECT_LT(walk(root), MOST_STEPS);
        const bool complete = root && exports(root);
        EXPECT_FALSE(complete && damage.from <= 1 && loaded != Loaded::all);
        if (GetParam() & HiveFile::modeReadOnly) return;
        change(hive);
        Platform::Error::set(0);
        EXPECT_TRUE(hive->flush() || Platform::Error::get() != 0);
    }

    const std::vector<u8> _file = builtHive().finish();
    const TempDir _work;
    const std::string _path = _work.file("h");
};

TEST_P(ChangedFile, GivesErrorsAndNothingWorse) {
    for (const Damage& damage : damages)
        for (const Loaded loaded : {Loaded::nothing, Loaded::root, Loaded::all}) {
            SCOPED_TRACE(testing::Message() << damage.name << ", loaded " << static_cast<int>(loaded));
            run(damage, loaded);
        }
}

INSTANTIATE_TEST_SUITE_P(Modes, ChangedFile,
                         testing::Values(u32{HiveFile::modeReadWrite}, u32{HiveFile::modeWriteThrough},
                                         u32{HiveFile::modeReadOnly},
                                         HiveFile::modeReadOnly | HiveFile::modeUnsafe,
                                         HiveFile::modeReadWrite | HiveFile::modeLinearFallback));

}  // namespace
