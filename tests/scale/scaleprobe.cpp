// scale_probe: does one job on a hive in a process of its own and prints the process's peak memory in KiB.
//
//   scale_probe sparse MODE HBIN reads a value behind a path in a hive of 1 GiB of hbins of this size, all in
//                                memory that is made up as it is read
//   scale_probe export MODE FILE exports the whole hive to a store that keeps nothing

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "hive/hivefile.h"
#include "regfile/regfileutil.h"
#include "regfile/util.h"
#include "tests/support/hivebuilder.h"

namespace {

using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::RegFileUtil;
using Libraries::Files::Hive::Util;
using Platform::String;
using namespace HiveTest;  // NOLINT

/// The kernel's own count of the most memory that was ever resident.
long peakKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
    return -1;
}

constexpr u32 AREA = 1U << 30;
/// What the DWORD value "Number" of the key "Near/Far" holds.
constexpr u32 FAR_NUMBER = 0x5CA1AB1E;

/// Moves the record of the key "Near/Far" to the cell of the last hbin, so that all hbins must be discovered
/// on the way to it.
void moveFar(const HiveBuilder& hive, u32 hbinBytes, SparseStripe& store) {
    const auto write = [&store](u32 offset, u32 word) {
        store.seek(u64{offset} + 4096);
        store.write(Interfaces::ShPtr::fromConst(numberBytes(word).data()), 4);
    };
    const u32 record = hive.key(u"Near/Far").record;
    const u32 place = AREA - hbinBytes + 32;
    for (u32 at = 4; at < 0U - hive.peek32(record); at += 4) write(place + at, hive.peek32(record + at));
    write(hive.key(u"Near").list + 8, place);
}

/// A hive of 1 GiB; all its hbins but the first are made up as they are read and hold one used cell each.
Ref<Interfaces::Stripe> farHive(u32 hbinBytes) {
    const ValuePlan number{.name = u"Number", .type = 4, .data = numberBytes(FAR_NUMBER)};
    HiveBuilder hive(5);
    hive.setHbinSize(hbinBytes);
    hive.build({.name = u"R", .keys = {{.name = u"Near", .keys = {{.name = u"Far", .values = {number}}}}}});
    hive.pokeHeader32(40, AREA);
    const auto fill = [image = hive.finish(), hbinBytes](u64 position, SparseStripe::Page& page) {
        const auto put = [&page](u64 at, u32 word) { std::ranges::copy(numberBytes(word), &page[at]); };
        if (position < image.size()) {
            std::copy_n(&image[position], page.size(), page.begin());
        } else if ((position - 4096) % hbinBytes == 0) {
            put(0, 0x6E696268);
            put(4, static_cast<u32>(position - 4096));
            put(8, hbinBytes);
            put(32, 0U - (hbinBytes - 32));
        }
    };
    const auto store = Platform::makeRef<SparseStripe>(u64{AREA} + 4096, fill);
    moveFar(hive, hbinBytes, *store);
    store->seek(0);
    return store;
}

bool readFarValue(const Ref<HiveFile>& hive) {
    const auto key = hive ? Util::openPath(hive->root(), String::from8("Near/Far")) : nullptr;
    const auto value = key ? key->value(String::from8("Number")) : nullptr;
    return value && value->number() == FAR_NUMBER;
}

/// Takes writes and keeps their number.
class Sink final : public TestStripe {
 public:
    Sink() : TestStripe(1, ~u64{0}) {}

 private:
    u64 byteCount() const override { return _count; }
    void load(u64, u8*, u64) override {}
    void store(u64, const u8*, u64) override {}
    void resize(u64 bytes) override { _count = bytes; }

    u64 _count = 0;
};

bool exportAll(const Ref<HiveFile>& hive, u64& bytes) {
    if (!hive || !hive->root()) return false;
    const auto sink = Platform::makeRef<Sink>();
    const bool done =
        RegFileUtil::exportRegFile(hive->root(), Ref<Interfaces::Stripe>(sink), String::create(),
                                   RegFileUtil::exportDefault, nullptr, false);
    bytes = sink->elementCount();
    return done;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    const auto mode = static_cast<u32>(std::strtoul(argv[2], nullptr, 10));
    u64 bytes = 0;
    const bool sparse = std::string(argv[1]) == "sparse";
    const u32 hbinBytes = sparse ? static_cast<u32>(std::strtoul(argv[3], nullptr, 10)) : 0;
    const auto hive = sparse ? HiveFile::open(farHive(hbinBytes), mode, HiveFile::hiveCodepageLatin1)
                             : HiveFile::open(String::fromUtf8(argv[3]), mode, HiveFile::hiveCodepageLatin1);
    const bool done = sparse ? readFarValue(hive) : exportAll(hive, bytes);
    std::printf("%ld %lu\n", peakKiB(), static_cast<unsigned long>(bytes));
    return done ? 0 : 1;
}
