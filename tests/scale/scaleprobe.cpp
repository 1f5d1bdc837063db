// scale_probe: does one job on a hive in a process of its own and prints the process's peak memory in KiB.
//
//   scale_probe sparse MODE      reads a value behind a path in a hive of 1 GiB made of 4096-byte hbins, all
//   in
//                                memory that is made up as it is read
//   scale_probe read MODE FILE   reads the same path from a file
//   scale_probe export MODE FILE exports the whole hive to a store that keeps nothing

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "hive/hivefile.h"
#include "regfile/regfileutil.h"
#include "regfile/util.h"
#include "tests/scale/farhive.h"

namespace {

using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::RegFileUtil;
using Libraries::Files::Hive::Util;
using Platform::Ref;
using Platform::String;
using Platform::u32;
using Platform::u64;
using Platform::u8;

/// The kernel's own count of the most memory that was ever resident.
long peakKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
    return -1;
}

bool readFarValue(const Ref<HiveFile>& hive) {
    const auto key = hive ? Util::openPath(hive->root(), String::from8("Near/Far")) : nullptr;
    const auto value = key ? key->value(String::from8("Number")) : nullptr;
    return value && value->number() == HiveTest::FAR_NUMBER;
}

/// Takes writes at its end and keeps their number.
class Sink final : public Platform::Object, public virtual Interfaces::Stripe {
 public:
    u32 elementSize() override { return 1; }
    u64 seek(u64 position) override { return position; }
    u64 pos() override { return _count; }
    u64 read(Interfaces::ShPtr, u64, u32) override { return 0; }
    u64 write(Interfaces::ShPtr, u64 count, u32) override {
        _count += count;
        return count;
    }
    u64 trim(u64, u32) override { return 0; }
    u64 clear(u64, u32) override { return 0; }
    u64 elementCount() override { return _count; }
    u64 maxElementCount() override { return ~u64{0}; }
    u64 minElementCount() override { return 0; }
    u64 setElementCount(u64 count) override { return _count = count; }
    Interfaces::ShHandle map(Ref<Interfaces::SharedMemory>) override { return {}; }
    void unmap(Interfaces::ShHandle) override {}

 private:
    u64 _count = 0;
};

bool exportAll(const Ref<HiveFile>& hive, u64& bytes) {
    const auto root = hive ? hive->root() : nullptr;
    if (!root) return false;
    const auto sink = Platform::makeRef<Sink>();
    const bool done = RegFileUtil::exportRegFile(root, Ref<Interfaces::Stripe>(sink), String::create(),
                                                 RegFileUtil::exportDefault, nullptr, false);
    bytes = sink->elementCount();
    return done;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    const std::string job = argv[1];
    const auto mode = static_cast<u32>(std::strtoul(argv[2], nullptr, 10));
    bool done = false;
    u64 bytes = 0;
    if (job == "sparse" && argc == 3) {
        const Ref<Interfaces::Stripe> store(HiveTest::farHive(u64{1} << 30));
        done = readFarValue(HiveFile::open(store, mode, HiveFile::hiveCodepageLatin1));
    } else if (argc == 4) {
        const auto hive = HiveFile::open(String::fromUtf8(argv[3]), mode, HiveFile::hiveCodepageLatin1);
        done = job == "export" ? exportAll(hive, bytes) : readFarValue(hive);
    }
    std::printf("%ld %lu\n", peakKiB(), static_cast<unsigned long>(bytes));
    return done ? 0 : 1;
}
