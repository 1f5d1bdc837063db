#include <cstdlib>

#include "tests/support/hivemodel.h"
#include "tests/support/tempdir.h"

namespace {

using namespace HiveTest;  // NOLINT

/// Leaves a file for checks by other means, in the directory that HIVE_MODEL_FILES names.
void keepFile(const std::string& name, const std::vector<u8>& bytes) {
    if (const char* directory = std::getenv("HIVE_MODEL_FILES"))
        writeFile(std::string(directory) + "/" + name, bytes);
}

struct Case {
    u32 minor;
    bool avoidTrace;
};

class ValuesModel : public testing::TestWithParam<Case> {};

/// 20,000 operations with a reopening every few hundred, in both write modes side by side.
TEST_P(ValuesModel, AgreesAfterEveryReopening) {
    const auto [minor, avoidTrace] = GetParam();
    const u32 seed = minor * 2 + avoidTrace;
    HiveModel buffered(minor, 0, seed, avoidTrace);
    HiveModel through(minor, HiveFile::modeWriteThrough, seed, avoidTrace);
    u32 repaired = 0, repairedThrough = 0;
    std::vector<u8> file;
    for (u32 done = 0, segment = 0; done < 20000; done += segment) {
        segment = std::min(20000 - done, 150 + (done * 7 + seed) % 300);
        for (HiveModel* model : {&buffered, &through}) {
            model->run(segment);
            if (!avoidTrace && done + segment == 20000) model->leaveTrace();
        }
        file = buffered.close(repaired);
        ASSERT_TRUE(file == through.close(repairedThrough)) << "the write modes differ after " << done;
        buffered.open();
        through.open();
        if (HasFailure()) break;
    }
    EXPECT_EQ(repaired > 0, !avoidTrace);
    const std::string name = "values-1." + std::to_string(minor);
    keepFile(name + (avoidTrace ? "-sound.hive" : "-trace.hive"), file);
    if (avoidTrace) return;
    through.close(repaired);
    keepFile(name + "-repaired-sound.hive", buffered.close(repaired));
}

INSTANTIATE_TEST_SUITE_P(Both, ValuesModel,
                         testing::Values(Case{3, true}, Case{3, false}, Case{5, true}, Case{5, false}),
                         [](const auto& param) {
                             return std::string(param.param.minor == 3 ? "V13" : "V15") +
                                    (param.param.avoidTrace ? "WithoutTrace" : "WithTrace");
                         });

}  // namespace
