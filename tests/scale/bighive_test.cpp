#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>

#include "tests/scale/farhive.h"
#include "tests/support/tempdir.h"

namespace {

using namespace HiveTest;  // NOLINT

constexpr long LIMIT_KIB = 16 * 1024;

struct Outcome {
    int exitCode = -1;
    long peakKiB = 0;
    unsigned long bytes = 0;
};

/// Runs the probe beside this test; each run is a process of its own, so that peaks do not mix.
Outcome probe(const std::string& arguments) {
    Outcome outcome;
    FILE* pipe = popen(("\"" SCALE_PROBE "\" " + arguments).c_str(), "r");
    if (!pipe) return outcome;
    if (std::fscanf(pipe, "%ld %lu", &outcome.peakKiB, &outcome.bytes) != 2) outcome.peakKiB = -1;
    outcome.exitCode = pclose(pipe);
    std::printf("  %s: peak %ld KiB\n", arguments.c_str(), outcome.peakKiB);
    return outcome;
}

void expectSmall(const Outcome& outcome) {
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_GT(outcome.peakKiB, 0);
    EXPECT_LT(outcome.peakKiB, LIMIT_KIB);
}

TEST(BigHive, ReadingAPathOfOneGibibyteOfSmallHbinsTakesLittleMemory) {
    expectSmall(probe("sparse 1"));
    expectSmall(probe("sparse 5"));
}

/// On disk, with hbins of 1 MiB: only their heads take room.
TEST(BigHive, ReadingAPathOfASparseFileOfOneGibibyteTakesLittleMemory) {
    constexpr u32 HBIN = 1U << 20;
    constexpr u32 AREA = 1U << 30;
    const TempDir directory;
    HiveBuilder hive(5);
    hive.setHbinSize(HBIN);
    hive.build(farPlan());
    hive.pokeHeader32(40, AREA);
    const u32 place = AREA - HBIN + 32;
    const std::string path = directory.file("big.hive");
    std::vector<std::pair<u32, std::vector<u8>>> far;
    moveFar(hive, place, [&](u32 offset, const std::vector<u8>& bytes) {
        if (offset < HBIN)
            hive.poke(offset, bytes);
        else
            far.emplace_back(offset, bytes);
    });
    writeFile(path, hive.finish());

    const int file = open(path.c_str(), O_WRONLY);
    ASSERT_GE(file, 0);
    bool written = true;
    const auto put = [&](u64 offset, const std::vector<u8>& bytes) {
        written = written && pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset + 4096)) ==
                                 static_cast<ssize_t>(bytes.size());
    };
    const auto words = [](std::initializer_list<u32> numbers) {
        std::vector<u8> bytes;
        for (const u32 number : numbers)
            for (const u8 byte : numberBytes(number)) bytes.push_back(byte);
        return bytes;
    };
    written = ftruncate(file, static_cast<off_t>(u64{AREA} + 4096)) == 0;
    for (u32 at = HBIN; at < AREA; at += HBIN) {
        put(at, words({0x6E696268, at, HBIN}));
        put(at + 32, words({0U - (HBIN - 32)}));
    }
    // The last hbin: three cells of 4096 bytes and one with the rest.
    for (u32 i = 0; i < 3; ++i) put(place + i * 4096, words({0U - 4096U}));
    put(place + 3 * 4096, words({0U - (HBIN - 32 - 3 * 4096)}));
    for (const auto& [offset, bytes] : far) put(offset, bytes);
    close(file);
    if (!written) GTEST_SKIP() << "no room for a sparse file of 1 GiB";
    expectSmall(probe("read 1 " + path));
    expectSmall(probe("read 5 " + path));
}

/// A hive of `parents` times 50 keys with 20 values each.
void writeWideHive(const std::string& path, u32 parents) {
    KeyPlan root{.name = u"R"};
    const auto name = [](u32 number) {
        const std::string digits = std::to_string(100000 + number);
        return std::u16string(digits.begin(), digits.end());
    };
    for (u32 i = 0; i < parents; ++i) {
        KeyPlan parent{.name = name(i)};
        for (u32 j = 0; j < 50; ++j) {
            KeyPlan key{.name = name(j)};
            for (u32 k = 0; k < 20; ++k)
                key.values.push_back({.name = name(k), .data = patternBytes(k * 8, i + j)});
            parent.keys.push_back(std::move(key));
        }
        root.keys.push_back(std::move(parent));
    }
    HiveBuilder hive(5);
    hive.build(root);
    writeFile(path, hive.finish());
}

TEST(BigHive, ExportingManyValuesTakesNoMoreMemoryThanExportingFew) {
    const TempDir directory;
    const std::string few = directory.file("few.hive");
    const std::string many = directory.file("many.hive");
    writeWideHive(few, 10);    // 10,000 values
    writeWideHive(many, 150);  // 150,000 values
    for (const std::string mode : {"1", "5"}) {
        const Outcome small = probe("export " + mode + " " + few);
        const Outcome large = probe("export " + mode + " " + many);
        ASSERT_EQ(small.exitCode, 0);
        ASSERT_EQ(large.exitCode, 0);
        EXPECT_GT(large.bytes, 14 * small.bytes);
        // What grows at all is the table of hbins (20 bytes each) and the weak links of the keys on the way.
        EXPECT_LT(large.peakKiB, small.peakKiB + 768);
        EXPECT_LT(large.peakKiB, LIMIT_KIB);
    }
}

}  // namespace
