// read_bench: how fast a hive of about 50,000 keys and 100,000 values is read. Workloads:
//   open        open the hive and its root key
//   lookup      find a key three levels down by its path, and one of its values, in an open hive
//   lookupCold  the same, opening the hive anew each time
//   keys        walk all keys
//   values      walk all keys and values and read all data
//   export      write all of it as registry export text to memory that is not kept
// Each but lookupCold runs checked (read-only) and unchecked (read-only, unsafe).

#include <benchmark/benchmark.h>
#include <sys/utsname.h>

#include <cstdio>
#include <thread>

#include "hive/hivefile.h"
#include "regfile/regfileutil.h"
#include "regfile/util.h"
#include "tests/support/hivebuilder.h"
#include "tests/support/memorystripe.h"

namespace {

using namespace HiveTest;  // NOLINT
using Interfaces::ShPtr;
using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::Key;
using Libraries::Files::Hive::RegFileUtil;
using Libraries::Files::Hive::Util;
using Platform::String;

constexpr u32 GROUPS = 25;
constexpr u32 KEYS_IN_GROUP = 50;
constexpr u32 KEYS_BELOW = 40;

std::u16string name(const char16_t* head, u32 number) {
    const std::string digits = std::to_string(10000 + number);
    return head + std::u16string(digits.begin(), digits.end());
}

KeyPlan plan() {
    KeyPlan root{.name = u"R"};
    for (u32 i = 0; i < GROUPS; ++i) {
        KeyPlan group{.name = name(u"Group", i)};
        for (u32 j = 0; j < KEYS_IN_GROUP; ++j) {
            KeyPlan key{.name = name(u"Key", j)};
            for (u32 k = 0; k < KEYS_BELOW; ++k)
                key.keys.push_back(
                    {.name = name(u"Below", k),
                     .values = {{.name = u"Text", .type = 1, .data = utf16Bytes(u"a text of some length")},
                                {.name = u"Bytes", .type = 3, .data = patternBytes(64, k)}}});
            group.keys.push_back(std::move(key));
        }
        root.keys.push_back(std::move(group));
    }
    return root;
}

const std::vector<u8>& file() {
    static const std::vector<u8> bytes = [] {
        HiveBuilder hive(5);
        hive.setHbinSize(16384);
        hive.build(plan());
        return hive.finish();
    }();
    return bytes;
}

Ref<MemoryStripe> store() {
    static const Ref<MemoryStripe> stripe = Platform::makeRef<MemoryStripe>(file());
    return stripe;
}

Ref<HiveFile> openHive(u32 mode) {
    return HiveFile::open(Ref<Interfaces::Stripe>(store()), mode, HiveFile::hiveCodepageLatin1);
}

u32 modeOf(const benchmark::State& state) {
    return static_cast<u32>(state.range(0));
}

void open(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(openHive(modeOf(state))->root());
}

bool lookUp(const Ref<HiveFile>& hive, u32 number) {
    const std::u16string path = name(u"group", number % GROUPS) + u"/" +
                                name(u"KEY", number / GROUPS % KEYS_IN_GROUP) + u"/" +
                                name(u"below", number % KEYS_BELOW);
    const Ref<Key> key = Util::openPath(hive->root(), String::create(path));
    return key && key->value(String::from8("bytes"));
}

void lookup(benchmark::State& state) {
    const Ref<HiveFile> hive = openHive(modeOf(state));
    const Ref<Key> root = hive->root();
    u32 number = 0;
    for (auto _ : state)
        if (!lookUp(hive, number++)) return state.SkipWithError("not found");
}

void lookupCold(benchmark::State& state) {
    u32 number = 0;
    for (auto _ : state)
        if (!lookUp(openHive(modeOf(state)), number++)) return state.SkipWithError("not found");
}

/// Walks a branch; returns the number of keys (and reads all data when there is a buffer for it).
u64 walk(const Ref<Key>& key, u8* buffer, u64& bytes) {
    if (buffer) {
        const auto values = key->valueIterator();
        while (const auto value = values->next()) bytes += value->read(ShPtr(buffer), 0, value->size());
    }
    u64 count = 1;
    const auto keys = key->keyIterator();
    while (const auto subkey = keys->next()) count += walk(subkey, buffer, bytes);
    return count;
}

void walkAll(benchmark::State& state, bool readData) {
    const Ref<HiveFile> hive = openHive(modeOf(state));
    std::vector<u8> buffer(65536);
    u64 keys = 0;
    u64 bytes = 0;
    for (auto _ : state) keys = walk(hive->root(), readData ? buffer.data() : nullptr, bytes);
    if (keys < 50000 || (readData && bytes == 0)) state.SkipWithError("not all keys were read");
    state.SetItemsProcessed(static_cast<int64_t>(keys) * static_cast<int64_t>(state.iterations()));
}

void keys(benchmark::State& state) {
    walkAll(state, false);
}

void values(benchmark::State& state) {
    walkAll(state, true);
}

void exportAll(benchmark::State& state) {
    const Ref<HiveFile> hive = openHive(modeOf(state));
    const auto target = Platform::makeRef<MemoryStripe>();
    for (auto _ : state)
        if (!RegFileUtil::exportRegFile(hive->root(), Ref<Interfaces::Stripe>(target), String::create(),
                                        RegFileUtil::exportDefault, nullptr, false))
            return state.SkipWithError("export failed");
    state.SetBytesProcessed(
        static_cast<int64_t>(target->elementCount() * static_cast<u64>(state.iterations())));
}

void bothModes(benchmark::internal::Benchmark* workload) {
    workload->ArgName("mode")
        ->Arg(HiveFile::modeReadOnly)
        ->Arg(HiveFile::modeReadOnly | HiveFile::modeUnsafe);
}

BENCHMARK(open)->Apply(bothModes);
BENCHMARK(lookup)->Apply(bothModes);
BENCHMARK(lookupCold)->Arg(HiveFile::modeReadOnly);
BENCHMARK(keys)->Apply(bothModes)->Unit(benchmark::kMillisecond);
BENCHMARK(values)->Apply(bothModes)->Unit(benchmark::kMillisecond);
BENCHMARK(exportAll)->Apply(bothModes)->Unit(benchmark::kMillisecond)->Name("export");

void printSetUp() {
    utsname system{};
    uname(&system);
    std::fprintf(stderr, "hive: %zu bytes, version 1.5, hbins of 16384 bytes, %u keys, %u values\n",
                 file().size(), GROUPS * (1 + KEYS_IN_GROUP * (1 + KEYS_BELOW)) + 1,
                 GROUPS * KEYS_IN_GROUP * KEYS_BELOW * 2);
    std::fprintf(stderr, "machine: %s %s, %u processors; compiler: %s\n", system.sysname, system.machine,
                 std::thread::hardware_concurrency(), __VERSION__);
#if !defined(__OPTIMIZE__)
    std::fprintf(stderr, "WARNING: built without optimisation, the numbers mean nothing\n");
#endif
}

}  // namespace

int main(int argc, char** argv) {
    printSetUp();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
