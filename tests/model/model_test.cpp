// Random sequences of operations on keys and values against a tree of plain maps.

#include <cstdlib>
#include <random>

#include "tests/model/model.h"
#include "tests/support/tempdir.h"

using namespace HiveTest;

namespace {

constexpr u32 OPERATIONS = 40000;

Model::Choose randomly(u32 seed) {
    return [random = std::mt19937(seed)](u32 bound) mutable { return static_cast<u32>(random() % bound); };
}

/// Leaves a file for checks by other means, in the directory that HIVE_MODEL_FILES names.
void keepFile(u32 minor, const char* kind, const std::vector<u8>& bytes) {
    if (const char* directory = std::getenv("HIVE_MODEL_FILES"))
        writeFile(std::string(directory) + "/model-1." + std::to_string(minor) + kind, bytes);
}

/// In both write modes side by side, with a reopening every few hundred operations.
TEST(Model, RandomOperationsMatchInBothVersionsAndModes) {
    for (const u32 minor : {3u, 5u}) {
        SCOPED_TRACE(minor);
        Model buffered(minor, HiveFile::modeReadWrite, randomly(minor));
        Model through(minor, HiveFile::modeWriteThrough, randomly(minor));
        u32 repaired = 0, repairedThrough = 0;
        for (u32 done = 0, segment = 0; done < OPERATIONS && !HasFailure(); done += segment) {
            segment = std::min(OPERATIONS - done, 300 + done * 7 % 701);
            const bool last = done + segment == OPERATIONS;
            for (Model* model : {&buffered, &through}) {
                model->run(segment);
                if (last) model->leaveTrace();
            }
            const std::vector<u8> file = buffered.close(repaired);
            ASSERT_TRUE(file == through.close(repairedThrough)) << "the write modes differ after " << done;
            buffered.open();
            through.open();
            if (last) keepFile(minor, "-trace.hive", file);
        }
        EXPECT_GT(repaired, 10u);
        EXPECT_GT(buffered.most(), 1300u) << "no list grew beyond one record";
        keepFile(minor, "-sound.hive", buffered.close(repaired));
    }
}

}  // namespace
