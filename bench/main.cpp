// hive-bench: the same work on a hive and on the stores such a tree would otherwise be kept in. One benchmark
// for each row, store and size of the tree, named ROW/STORE/KEYS:
//   build   make a file of the tree and make it durable
//   lookup  open, find 100,000 keys by their paths, and read a value of each
//   walk    depth first, all keys, values and data
//   change  overwrite 100,000 values, delete and remake 50,000 values and 10,000 subtrees (fewer in a small
//   tree) export  write registry export text import  make a file of registry export text and make it durable
//   open    open a file of some size and read one value by its path (open/STORE/BYTES)
// Each runs once, so that a process of its own for each is possible (scripts/bench.sh), and looks at what
// came of it afterwards; the exit code is 1 when anything is not as it should be.
//
// Options besides Google Benchmark's: --dir=DIRECTORY where the files are made and left, --keys=N[,N...], and
// --big=BYTES for the row `open`, which is left out without it.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "bench/folding.h"
#include "bench/regtext.h"
#include "bench/store.h"
#include "platform/system/string.h"

namespace HiveBench {

void need(bool good, const char* what) {
    if (!good) throw std::runtime_error(std::string("failed to ") + what);
}

std::vector<std::unique_ptr<Store>> allStores() {
    std::vector<std::unique_ptr<Store>> stores;
    stores.push_back(newHiveStore());
#ifdef HIVE_BENCH_SQLITE
    stores.push_back(newSqliteStore());
#endif
#ifdef HIVE_BENCH_LMDB
    stores.push_back(newLmdbStore());
#endif
    return stores;
}

}  // namespace HiveBench

namespace {

using namespace HiveBench;  // NOLINT

bool failed = false;
std::string directory = ".";

constexpr u32 BIG_KEYS = 100000;
constexpr u32 BIG_KEY_BYTES = 350;  // a key and its values take about that, large data left aside

/// Runs a benchmark's body; whatever it throws fails the run.
template <typename Body>
void guarded(benchmark::State& state, Body body) {
    try {
        body();
    } catch (const std::exception& error) {
        state.SkipWithError(error.what());
        failed = true;
    }
}

const Tree& treeOf(u32 keys) {
    static std::map<u32, Tree> trees;
    const auto found = trees.find(keys);
    return found != trees.end() ? found->second : trees.emplace(keys, Tree(keys)).first->second;
}

u32 lookups(u32 keys) {
    return std::min<u32>(100000, keys * 10);
}

std::string fileOf(const Store& store, const std::string& stem) {
    return directory + "/" + stem + "." + store.name();
}

/// The store's file of the tree, made when missing.
std::string builtFile(Store& store, u32 keys) {
    std::string file = fileOf(store, "tree-" + std::to_string(keys));
    if (!std::filesystem::exists(file)) store.build(file, treeOf(keys));
    return file;
}

/// The keys of the tree in the order of their folded names, parents first.
void sortedBelow(const Tree& tree, u32 from, u32 end, std::vector<u32>& order) {
    std::vector<std::pair<std::u16string, u32>> siblings;
    for (u32 i = from; i < end; i = tree.keys()[i].end)
        siblings.emplace_back(Platform::String::create(tree.name(tree.keys()[i]))->upper()->view(), i);
    std::sort(siblings.begin(), siblings.end());
    for (const auto& [name, index] : siblings) {
        order.push_back(index);
        sortedBelow(tree, index + 1, tree.keys()[index].end, order);
    }
}

/// The tree's export text as the stores must write it, made when missing.
std::string wantedText(u32 keys) {
    std::string file = directory + "/tree-" + std::to_string(keys) + ".reg";
    if (std::filesystem::exists(file)) return file;
    const Tree& tree = treeOf(keys);
    std::vector<u32> order;
    sortedBelow(tree, 0, static_cast<u32>(tree.keys().size()), order);
    RegTextWriter writer(file + ".new");
    writer.section(u"\\");
    writer.endSection();
    for (const u32 index : order) {
        std::u16string path = u"\\\\" + tree.path(index);
        std::replace(path.begin(), path.end(), u'/', u'\\');
        writer.section(path);
        for (u32 i = index * VALUES_PER_KEY; i < (index + 1) * VALUES_PER_KEY; ++i) {
            const PlannedValue& value = tree.values()[i];
            writer.value(valueNames8()[value.name], value.type, tree.data(value));
        }
        writer.endSection();
    }
    writer.finish();
    std::filesystem::rename(file + ".new", file);
    return file;
}

bool sameBytes(const std::string& one, const std::string& other) {
    std::ifstream first(one, std::ios::binary);
    std::ifstream second(other, std::ios::binary);
    std::vector<char> left(1 << 20);
    std::vector<char> right(1 << 20);
    for (;;) {
        first.read(left.data(), static_cast<std::streamsize>(left.size()));
        second.read(right.data(), static_cast<std::streamsize>(right.size()));
        if (first.gcount() != second.gcount() ||
            std::memcmp(left.data(), right.data(), static_cast<std::size_t>(first.gcount())) != 0)
            return false;
        if (first.gcount() == 0) return true;
    }
}

/// The most memory this process has had, in KiB.
double peakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmHWM:" && status >> word) return std::stod(word);
    return 0;
}

void report(benchmark::State& state, u64 operations, const std::string& file) {
    state.counters["peakKiB"] = peakMemory();
    state.counters["operations"] = static_cast<double>(operations);
    state.counters["fileBytes"] = static_cast<double>(std::filesystem::file_size(file));
}

void checkTree(Store& store, const std::string& file, const Tree& tree) {
    need(store.walk(file) == tree.totals(store.utf8Names()), "find in the file what belongs there");
}

void build(benchmark::State& state, Store& store, u32 keys) {
    const Tree& tree = treeOf(keys);
    const std::string file = fileOf(store, "tree-" + std::to_string(keys));
    for (auto _ : state) store.build(file, tree);
    report(state, tree.keys().size() + tree.values().size(), file);
    checkTree(store, file, tree);
}

void lookup(benchmark::State& state, Store& store, u32 keys) {
    const Tree& tree = treeOf(keys);
    const std::vector<Query> queries = makeQueries(tree, lookups(keys), 1);
    const std::string file = builtFile(store, keys);
    u64 sum = 0;
    for (auto _ : state) sum = store.lookUp(file, queries);
    report(state, queries.size(), file);
    for (const Query& query : queries) {
        const PlannedValue& value = tree.values()[query.value];
        sum -= hashBytes(tree.data(value).data(), value.size, value.type);
    }
    need(sum == 0, "read the values that were written");
}

void walk(benchmark::State& state, Store& store, u32 keys) {
    const std::string file = builtFile(store, keys);
    Totals totals;
    for (auto _ : state) totals = store.walk(file);
    report(state, totals.keys + totals.values, file);
    need(totals == treeOf(keys).totals(store.utf8Names()), "read all that was written");
}

/// Copies a file, and leaves none of the copy to be written when the work on it is made durable.
void copyDurably(const std::string& from, const std::string& to) {
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
    const int file = open(to.c_str(), O_RDONLY | O_CLOEXEC);
    need(file >= 0 && fsync(file) == 0, "copy a file");
    close(file);
}

void change(benchmark::State& state, Store& store, u32 keys) {
    Tree tree(keys);
    const u32 tenths = std::min<u32>(keys, 100000) / 10;
    const Changes changes = makeChanges(tree, 10 * tenths, 5 * tenths, tenths);
    const std::string file = fileOf(store, "changed-" + std::to_string(keys));
    copyDurably(builtFile(store, keys), file);
    for (auto _ : state) store.change(file, changes);
    report(state, changes.operations(), file);
    checkTree(store, file, tree);
    std::filesystem::remove(file);
}

void exportText(benchmark::State& state, Store& store, u32 keys) {
    const std::string file = builtFile(store, keys);
    const std::string text = fileOf(store, "tree-" + std::to_string(keys)) + ".reg";
    for (auto _ : state) store.exportText(file, text);
    report(state, std::filesystem::file_size(text), file);
    need(sameBytes(text, wantedText(keys)), "write the text that belongs there");
    std::filesystem::remove(text);
}

void importText(benchmark::State& state, Store& store, u32 keys) {
    const std::string text = wantedText(keys);
    const std::string file = fileOf(store, "imported-" + std::to_string(keys));
    for (auto _ : state) store.importText(text, file);
    report(state, std::filesystem::file_size(text), file);
    checkTree(store, file, treeOf(keys));
    std::filesystem::remove(file);
}

/// Makes a file of about `bytes` bytes and, in a file beside it, a question about it with its answer: the run
/// that counts is to have no memory but its own, so it cannot know the tree.
void makeBig(Store& store, u64 bytes, const std::string& file) {
    const Tree small(BIG_KEYS);
    u64 binaries = 0;
    for (const PlannedValue& value : small.values()) binaries += value.type == 3;
    const u64 others = std::min(bytes, u64{BIG_KEYS} * BIG_KEY_BYTES);
    const Tree tree(BIG_KEYS, static_cast<u32>((bytes - others) / binaries + 1));
    store.build(file, tree);
    const Query query = makeQueries(tree, 1, 2).front();
    const PlannedValue& value = tree.values()[query.value];
    std::ofstream question(file + ".question");
    question << query.valueName << " " << hashBytes(tree.data(value).data(), value.size, value.type) << " "
             << query.path8 << "\n";
    need(bool(question.flush()), "write the question");
}

/// Opens a large file and reads one value by its path.
void openBig(benchmark::State& state, Store& store, u64 bytes) {
    const std::string file = fileOf(store, "big-" + std::to_string(bytes));
    if (!std::filesystem::exists(file + ".question")) makeBig(store, bytes, file);
    std::ifstream question(file + ".question");
    Query query{};
    u64 wanted = 0;
    question >> query.valueName >> wanted;
    question.get();
    std::getline(question, query.path8);
    appendUtf16(query.path, query.path8);
    u64 sum = 0;
    for (auto _ : state) sum = store.lookUp(file, {&query, 1});
    report(state, 1, file);
    need(wanted != 0 && sum == wanted, "read the value that was written");
}

void add(const std::string& name, const std::function<void(benchmark::State&)>& body) {
    benchmark::RegisterBenchmark(name.c_str(),
                                 [body](benchmark::State& state) { guarded(state, [&] { body(state); }); })
        ->Iterations(1)
        ->UseRealTime()
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond);
}

void addAll(const std::vector<std::unique_ptr<Store>>& stores, const std::vector<u32>& sizes, u64 big) {
    constexpr struct {
        const char* name;
        void (*run)(benchmark::State&, Store&, u32);
        bool text;
    } rows[] = {{"build", build, false},   {"lookup", lookup, false},    {"walk", walk, false},
                {"change", change, false}, {"export", exportText, true}, {"import", importText, true}};
    for (const u32 keys : sizes)
        for (const auto& row : rows)
            for (const auto& store : stores) {
                if (row.text && !store->hasText()) continue;
                add(std::string(row.name) + "/" + store->name() + "/" + std::to_string(keys),
                    [run = row.run, kept = store.get(), keys](benchmark::State& state) {
                        run(state, *kept, keys);
                    });
            }
    for (const auto& store : stores)
        if (big)
            add(std::string("open/") + store->name() + "/" + std::to_string(big),
                [kept = store.get(), big](benchmark::State& state) { openBig(state, *kept, big); });
}

}  // namespace

int main(int argc, char** argv) {
#if !defined(__OPTIMIZE__)
    std::cerr << "WARNING: built without optimisation, the numbers mean nothing\n";
#endif
    benchmark::Initialize(&argc, argv);
    std::vector<u32> sizes;
    u64 big = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument.starts_with("--dir=")) {
            directory = argument.substr(6);
        } else if (argument.starts_with("--big=")) {
            big = std::strtoull(argv[i] + 6, nullptr, 10);
        } else if (argument.starts_with("--keys=")) {
            for (const char* at = argv[i] + 6; *at++;)
                sizes.push_back(static_cast<u32>(std::strtoul(at, const_cast<char**>(&at), 10)));
        } else {
            std::cerr << "unknown argument: " << argument << "\n";
            return 2;
        }
    }
    if (sizes.empty() && !big) sizes = {100000};
    const auto stores = allStores();
    addAll(stores, sizes, big);
    const bool ran = benchmark::RunSpecifiedBenchmarks() > 0;
    benchmark::Shutdown();
    return ran && !failed ? 0 : 1;
}
