// Memory limits, each measured in a process of its own.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "hive/hivefile.h"
#include "regfile/regfileutil.h"
#include "regfile/util.h"
#include "tests/support/hivebuilder.h"
#include "tests/support/tempdir.h"

namespace {

using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::RegFileUtil;
using Libraries::Files::Hive::Util;
using Platform::makeRef;
using Platform::String;
using namespace HiveTest;  // NOLINT

constexpr long LIMIT_KIB = 10 * 1024;
constexpr u32 AREA = 1U << 30;
/// What the DWORD value "Number" of the key "Near/Far" holds.
constexpr u32 FAR_NUMBER = 0x5CA1AB1E;

/// What the job takes of memory at its peak beyond what the process had, in KiB; -1 when the job fails.
template <typename Job>
long peakOf(const Job& job) {
    const TempDir directory;
    if (const pid_t child = fork(); child != 0) {
        int status = 1;
        waitpid(child, &status, 0);
        long peak = -1;
        if (status == 0) std::ifstream(directory.file("peak")) >> peak;
        std::printf("  peak %ld KiB\n", peak);
        return peak;
    }
    const auto memory = [](const std::string& field) {
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);)
            if (line.starts_with(field)) return std::strtol(line.c_str() + field.size(), nullptr, 10);
        return 0L;
    };
    std::ofstream("/proc/self/clear_refs") << 5 << std::flush;  // forgets the peak so far
    const long before = memory("VmRSS:");
    const bool done = job();
    std::ofstream(directory.file("peak")) << memory("VmHWM:") - before << std::flush;
    _exit(done ? 0 : 1);
}

/// A hive of 1 GiB, all in memory that is made up as it is read. All its hbins but the first hold one used
/// cell each; that of the last one is the key "Near/Far", so that all hbins must be discovered on the way.
Ref<SparseStripe> farHive(u32 hbinBytes) {
    const ValuePlan number{.name = u"Number", .type = 4, .data = numberBytes(FAR_NUMBER)};
    HiveBuilder hive;
    hive.setHbinSize(hbinBytes);
    hive.build({.keys = {{.name = u"Near", .keys = {{.name = u"Far", .values = {number}}}}}});
    hive.pokeHeader32(40, AREA);
    const u32 record = hive.key(u"Near/Far").record, place = AREA - hbinBytes + 32;
    hive.poke32(hive.key(u"Near").list + 8, place);
    const auto fill = [image = hive.finish(), hbinBytes, record](u64 position, SparseStripe::Page& page) {
        const auto put = [&page](u64 at, u32 word) { std::ranges::copy(numberBytes(word), &page[at]); };
        if (position < image.size()) {
            std::copy_n(&image[position], page.size(), page.begin());
        } else if ((position - 4096) % hbinBytes == 0) {
            std::copy_n(&image[4096 + record], 96, &page[32]);
            put(0, 0x6E696268);
            put(4, static_cast<u32>(position - 4096));
            put(8, hbinBytes);
            put(32, 0U - (hbinBytes - 32));
        }
    };
    return makeRef<SparseStripe>(u64{AREA} + 4096, fill);
}

TEST(BigHive, ReadingAPathOfOneGibibyteTakesLittleMemory) {
    for (const u32 mode : {1u, 5u})
        for (const u32 hbinBytes : {4096u, 1048576u}) {
            const long peak = peakOf([&] {
                const auto hive = HiveFile::open(farHive(hbinBytes), mode, HiveFile::hiveCodepageLatin1);
                const auto key = hive ? Util::openPath(hive->root(), String::from8("Near/Far")) : nullptr;
                const auto value = key ? key->value(String::from8("Number")) : nullptr;
                return value && value->number() == FAR_NUMBER;
            });
            EXPECT_GT(peak, 0);
            EXPECT_LT(peak, LIMIT_KIB);
        }
}

/// A hive of `parents` times 50 keys with 20 values each.
void writeWideHive(const std::string& path, u32 parents) {
    const auto name = [](u32 number) { return digits(100000 + number); };
    KeyPlan root;
    for (u32 i = 0; i < parents; ++i) {
        root.keys.push_back({.name = name(i)});
        for (u32 j = 0; j < 50; ++j) {
            root.keys[i].keys.push_back({.name = name(j)});
            for (u32 k = 0; k < 20; ++k)
                root.keys[i].keys[j].values.push_back({.name = name(k), .data = patternBytes(k * 8, i + j)});
        }
    }
    HiveBuilder hive;
    hive.build(root);
    writeFile(path, hive.finish());
}

TEST(BigHive, ExportingManyValuesTakesNoMoreMemoryThanExportingFew) {
    const TempDir directory;
    long peaks[2];
    for (const u32 mode : {1u, 5u}) {
        for (const u32 size : {0u, 1u}) {
            const u32 parents = size ? 150 : 10;  // 150,000 values and 10,000
            const std::string path = directory.file(std::to_string(parents));
            ASSERT_GE(peakOf([&] { return writeWideHive(path, parents), true; }), 0);
            peaks[size] = peakOf([&] {
                const auto hive = HiveFile::open(String::fromUtf8(path), mode, HiveFile::hiveCodepageLatin1);
                const auto sink = makeRef<SparseStripe>(u64{0});
                return RegFileUtil::exportRegFile(hive->root(), Ref<Interfaces::Stripe>(sink),
                                                  String::create(), RegFileUtil::exportDefault, nullptr,
                                                  false) &&
                       sink->elementCount() > 200000 * parents;
            });
            ASSERT_GT(peaks[size], 0);
        }
        // What grows at all is the table of hbins (20 bytes each) and the weak links of the keys on the way.
        EXPECT_LT(peaks[1], peaks[0] + 768);
        EXPECT_LT(peaks[1], LIMIT_KIB);
    }
}

}  // namespace
