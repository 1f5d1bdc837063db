#pragma once

#include "hive/security/securitydescriptoriteratorobj.h"
#include "tests/hive/openedhive.h"
#include "tests/support/hivecheck.h"

namespace HiveTest {

/// A hive in memory that is changed, looked at byte by byte and opened again.
struct FreshHive {
    explicit FreshHive(u32 minor) : store(Platform::makeRef<MemoryStripe>()) {
        store->setMaxElementCount(u64{1} << 31);
        hive = HiveFile::create(Ref<Interfaces::Stripe>(store), minor, HiveFile::modeReadWrite,
                                HiveFile::hiveCodepageLatin1, nullptr);
        if (!hive) throw std::runtime_error("no hive was made");
        root = Platform::refCast<KeyObj>(hive->root());
    }
    explicit FreshHive(HiveImage& image) : store(Platform::makeRef<MemoryStripe>(image.finish())) { open(); }

    /// Writes everything and opens the hive anew; `root` is another object then, all others must be gone.
    void reopen() {
        root.reset();
        hive.reset();
        open();
    }
    /// The file with everything written.
    const std::vector<u8>& file() {
        hive->flush();
        return store->bytes();
    }
    u32 peek32(u32 offset) {
        u32 number = 0;
        std::memcpy(&number, file().data() + offset + 4096, sizeof(number));
        return number;
    }
    u16 peek16(u32 offset) { return static_cast<u16>(peek32(offset)); }
    void expectSound() { EXPECT_EQ(hiveFaults(file()), std::vector<std::string>()); }
    Ref<KeyObj> key(std::u16string_view path) const {
        return Platform::refCast<KeyObj>(hive->path(text(path)));
    }

    Ref<MemoryStripe> store;
    Ref<HiveFile> hive;
    Ref<KeyObj> root;

 private:
    void open() {
        hive = HiveFile::open(Ref<Interfaces::Stripe>(store), HiveFile::modeReadWrite,
                              HiveFile::hiveCodepageLatin1);
        root = Platform::refCast<KeyObj>(hive->root());
    }
};

/// "k" and six digits: sorted like the numbers.
inline Ref<String> numbered(u32 number) {
    std::string digits = std::to_string(1000000 + number);
    digits[0] = 'k';
    return String::from8(digits);
}

/// The names of all subkeys in the order of the list, a blank behind each.
inline std::string namesOf(const Ref<KeyObj>& key) {
    std::string names;
    for (u32 i = 0; i < key->keys(); ++i) names += utf8(key->key(i)->name()) + " ";
    return names;
}

}  // namespace HiveTest
