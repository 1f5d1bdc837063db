#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>

#include "hive/keys/keyobj.h"
#include "hive/values/valueobj.h"
#include "tests/support/hivebuilder.h"
#include "tests/support/hivecheck.h"
#include "tests/support/logcapture.h"

namespace HiveTest {

using namespace Libraries::Files::Hive;  // NOLINT: the tests speak of the library's objects throughout
using Platform::Error;
using Platform::makeRef;
using Platform::refCast;
using Platform::ShPtr;

inline Ref<String> text(std::u16string_view units) {
    return String::create(units);
}

/// For comparisons that print well.
inline std::string utf8(const Ref<String>& string) {
    return string ? string->toUtf8() : "(null)";
}

/// "k" and six digits: sorted like the numbers.
inline Ref<String> numbered(u32 number) {
    return text(u'k' + digits(1000000 + number).substr(1));
}

/// The error code that an operation leaves, 0 when it succeeds.
template <typename Operation>
u32 errorOf(Operation operation) {
    Error::set(0);
    return operation() ? 0 : Error::get();
}

/// A hive in memory: laid out before or made new, and looked at byte by byte.
struct OpenedHive {
    explicit OpenedHive(HiveImage& image, u32 openMode = HiveFile::modeReadOnly,
                        HiveFile::HiveCodepage page = HiveFile::hiveCodepageLatin1)
        : mode(openMode), codepage(page), store(makeRef<MemoryStripe>(image.finish())) {
        open();
    }
    explicit OpenedHive(u32 minor) : mode(HiveFile::modeReadWrite), codepage(HiveFile::hiveCodepageLatin1) {
        store = makeRef<MemoryStripe>();
        if (!HiveFile::create(store, minor, mode, codepage, nullptr)) throw std::runtime_error("no hive");
        open();
    }

    /// Writes everything and opens the hive anew; `root` is another object then, all others must be gone.
    void reopen() {
        root.reset();
        hive.reset();
        open();
    }
    /// The file with everything written.
    const std::vector<u8>& file() {
        EXPECT_TRUE(hive->flush());
        return store->bytes();
    }
    u32 peek32(u32 offset) { return wordAt(file(), offset); }
    u16 peek16(u32 offset) { return static_cast<u16>(peek32(offset)); }
    void expectSound() { EXPECT_EQ(hiveFaults(file()), std::vector<std::string>()); }
    Ref<KeyObj> key(std::u16string_view path) const { return refCast<KeyObj>(hive->path(text(path))); }

    u32 mode;
    HiveFile::HiveCodepage codepage;
    Ref<MemoryStripe> store;
    Ref<RegistryHiveObj> hive;
    Ref<KeyObj> root;

 private:
    void open() {
        hive = makeRef<RegistryHiveObj>(store, mode, codepage, nullptr);
        root = hive->rootObj();
    }
};

/// All data that can be read.
inline std::vector<u8> dataOf(Value& value) {
    std::vector<u8> data(value.size());
    data.resize(value.read(ShPtr(data.data()), 0, value.size()));
    return data;
}

/// Makes this the value's data.
inline bool put(const Ref<Value>& value, const std::vector<u8>& data) {
    const u32 size = static_cast<u32>(data.size());
    return value && value->size(size) == size && value->write(ShPtr::fromConst(data.data()), 0, size) == size;
}

/// For the length of a scope the process may take 256 MiB of memory more and no further: whoever allocates
/// what a damaged file claims fails the test. Without effect under sanitizers, which take more for
/// themselves.
class MemoryLimit {
 public:
    MemoryLimit() {
        getrlimit(RLIMIT_AS, &_old);
        rlimit limit = _old;
        u64 pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        limit.rlim_cur = pages * 4096 + (u64{256} << 20);
        if (limit.rlim_cur < u64{1} << 40) setrlimit(RLIMIT_AS, &limit);
    }
    ~MemoryLimit() { setrlimit(RLIMIT_AS, &_old); }
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;

 private:
    rlimit _old{};
};

}  // namespace HiveTest
