// allocate_bench: what a cell costs in a hive of many full hbins. Each run makes 200,000 allocations of mixed
// sizes, in a hive of 20 and of 20,000 full hbins; the time is that of one run.

#include <benchmark/benchmark.h>

#include "hive/registryhiveobj.h"
#include "tests/support/hivebuilder.h"
#include "tests/support/memorystripe.h"

namespace {

using namespace HiveTest;  // NOLINT
using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::INVALID_RECORD;
using Libraries::Files::Hive::RegistryHiveObj;

constexpr u32 CALLS = 200000;

std::vector<u8> fullHive(u32 hbins) {
    HiveImage image;
    while (hbins--) {
        image.addHbin(4096);
        image.allocate(4064);
    }
    return image.finish();
}

void allocate(benchmark::State& state) {
    const auto file = fullHive(static_cast<u32>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        const auto store = Platform::makeRef<MemoryStripe>(file);
        store->bytes().reserve(file.size() + (u64{256} << 20));  // growing the memory is not what is measured
        auto hive = Platform::makeRef<RegistryHiveObj>(store, HiveFile::modeReadWrite,
                                                       HiveFile::hiveCodepageLatin1, nullptr);
        hive->allocateRecord(8, nullptr);  // gets to know the hbins
        state.ResumeTiming();
        for (u32 i = 0; i < CALLS; ++i) {
            const u32 size = 8 + i * 2654435761u % 977;
            if (hive->allocateRecord(size, nullptr) == INVALID_RECORD) return state.SkipWithError("no cell");
        }
        state.PauseTiming();
        hive.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * CALLS);
}

BENCHMARK(allocate)->Arg(20)->Arg(20000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
