// Runs a target over all files of the directories given: its seeds and what was kept, under any compiler.

#include "fuzz/target.h"
#include "tests/support/tempdir.h"

int main(int argc, char** argv) {
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::exists(argv[i])) continue;  // a target of which nothing was kept
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::printf("%s\n", entry.path().c_str());
            std::fflush(stdout);
            const auto input = HiveTest::readFile(entry.path());
            LLVMFuzzerTestOneInput(input.data(), input.size());
            ++inputs;
        }
    }
    std::printf("%d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
