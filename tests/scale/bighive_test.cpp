#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/support/hivebuilder.h"
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

TEST(BigHive, ReadingAPathOfOneGibibyteTakesLittleMemory) {
    // In mode and bytes of an hbin.
    for (const char* const run : {"1 4096", "5 4096", "1 1048576", "5 1048576"}) {
        const Outcome outcome = probe(std::string("sparse ") + run);
        EXPECT_EQ(outcome.exitCode, 0);
        EXPECT_GT(outcome.peakKiB, 0);
        EXPECT_LT(outcome.peakKiB, LIMIT_KIB);
    }
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
