// Runs a target over all files of the directories given, its seeds and what was kept, under any compiler.
// Where the target has a mutator of its own, each file also goes through some hundred changes, always the
// same ones.

#include "fuzz/target.h"
#include "tests/support/tempdir.h"

extern "C" [[gnu::weak]] std::size_t LLVMFuzzerCustomMutator(Platform::u8* data, std::size_t size,
                                                             std::size_t most, unsigned seed);

/// Stands in for libFuzzer's, which changes bytes at random.
extern "C" std::size_t LLVMFuzzerMutate(Platform::u8*, std::size_t size, std::size_t) {
    return size;
}

int main(int argc, char** argv) {
    constexpr unsigned MUTANTS = 200;
    unsigned inputs = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::exists(argv[i])) continue;  // a target of which nothing was kept
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::printf("%s\n", entry.path().c_str());
            std::fflush(stdout);
            const auto input = HiveTest::readFile(entry.path());
            LLVMFuzzerTestOneInput(input.data(), input.size());
            ++inputs;
            auto mutant = input;
            for (unsigned seed = 1; LLVMFuzzerCustomMutator && seed <= MUTANTS; ++seed, ++inputs) {
                if (seed % 8 == 1) mutant = input;
                mutant.resize(LLVMFuzzerCustomMutator(mutant.data(), mutant.size(), mutant.size(), seed));
                LLVMFuzzerTestOneInput(mutant.data(), mutant.size());
            }
        }
    }
    std::printf("%u inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
