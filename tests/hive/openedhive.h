#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>

#include "hive/keys/keyobj.h"
#include "hive/values/valueobj.h"
#include "tests/support/hivebuilder.h"
#include "tests/support/logcapture.h"

namespace HiveTest {

using namespace Libraries::Files::Hive;  // NOLINT: the tests speak of the library's objects throughout

inline Ref<String> text(std::u16string_view units) {
    return String::create(units);
}

/// For comparisons that print well.
inline std::string utf8(const Ref<String>& string) {
    return string ? string->toUtf8() : "(null)";
}

/// A laid-out hive, opened from memory.
struct OpenedHive {
    explicit OpenedHive(HiveImage& image, u32 mode = HiveFile::modeReadOnly,
                        HiveFile::HiveCodepage codepage = HiveFile::hiveCodepageLatin1)
        : store(Platform::makeRef<MemoryStripe>(image.finish())),
          hive(Platform::makeRef<RegistryHiveObj>(store, mode, codepage, nullptr)) {}

    Ref<KeyObj> root() const { return hive->rootObj(); }
    Ref<KeyObj> key(std::u16string_view path) const {
        return Platform::refCast<KeyObj>(hive->path(text(path)));
    }

    Ref<MemoryStripe> store;
    Ref<RegistryHiveObj> hive;
};

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
