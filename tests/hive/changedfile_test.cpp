// A hive file that another process truncates or overwrites while it is open.

#include "regfile/util.h"
#include "tests/hive/openedhive.h"
#include "tests/support/reading.h"
#include "tests/support/regtext.h"
#include "tests/support/tempdir.h"

using namespace HiveTest;

namespace {

constexpr u64 MOST_ENTRIES = 20000;  // the hive has fewer than 200 keys and values

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

enum class Loaded { nothing, root, all };

class ChangedFile : public testing::TestWithParam<u32> {
 protected:
    /// Opens the hive, loads so much of it, damages the file and goes on.
    void run(const Damage& damage, Loaded loaded) {
        writeFile(_path, _file);
        const auto hive = HiveFile::open(String::fromUtf8(_path), GetParam(), HiveFile::hiveCodepageLatin1);
        ASSERT_TRUE(hive);
        const Ref<Key> held = loaded == Loaded::nothing ? nullptr : hive->root();
        if (loaded == Loaded::all) Reading all(*hive);
        apply(damage, _path, _file);

        Platform::Error::set(0);
        const Ref<Key> root = hive->root();
        EXPECT_EQ(bool(root), damage.from > 1 || loaded != Loaded::nothing);
        EXPECT_TRUE(root || Platform::Error::get() != 0);
        EXPECT_LT(Reading(*hive).entries(), MOST_ENTRIES);
        bool complete = false;
        if (root) exportText(root, RegFileUtil::exportBinaryOnly, &complete);
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
