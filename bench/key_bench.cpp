// key_bench: seconds that very many subkeys take, in a version 1.5 hive in memory (or 1.3, named as
// argument).
//   tree   100 x 100 x 100 subkeys: created, found, enumerated in order, exported
//   wide   200,000 subkeys of one key, inserted in random order: the same
//   middle one insertion into the middle of 2,000 and of 200,000 subkeys, the mean of 1,000
// Exits with 1 when anything is not as it should be.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>

#include "hive/hivefile.h"
#include "regfile/regfileutil.h"
#include "tests/support/memorystripe.h"

namespace {

using namespace HiveTest;  // NOLINT
using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::Key;
using Libraries::Files::Hive::RegFileUtil;
using Platform::makeRef;
using Platform::String;

constexpr u32 FAN = 100;
constexpr u32 WIDE = 200000;

void need(bool good, const char* what) {
    if (good) return;
    std::fprintf(stderr, "failed: %s\n", what);
    std::exit(1);
}

Ref<String> name(u32 number) {
    std::string digits = std::to_string(10000000 + number);
    digits[0] = 'k';
    return String::from8(digits);
}

template <typename Work>
double seconds(Work work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

template <typename Work>
void timed(const char* what, Work work) {
    const double time = seconds(work);
    std::printf("%-28s %8.2f s\n", what, time);
}

struct BenchHive {
    explicit BenchHive(u32 minor) : store(makeRef<MemoryStripe>()) {
        store->setMaxElementCount(u64{1} << 32);
        hive = HiveFile::create(Ref<Interfaces::Stripe>(store), minor, HiveFile::modeReadWrite,
                                HiveFile::hiveCodepageLatin1, nullptr);
        need(bool(hive), "create the hive");
    }
    void reopen() {
        need(hive->flush(), "flush");
        hive = HiveFile::open(Ref<Interfaces::Stripe>(store), HiveFile::modeReadWrite,
                              HiveFile::hiveCodepageLatin1);
    }
    void exportAll() const {
        const auto target = makeRef<MemoryStripe>();
        need(RegFileUtil::exportRegFile(hive->root(), Ref<Interfaces::Stripe>(target), String::create(),
                                        RegFileUtil::exportDefault, nullptr, false),
             "export");
    }
    Ref<MemoryStripe> store;
    Ref<HiveFile> hive;
};

/// Every subkey down to `levels` below, in order; returns how many.
u32 enumerate(const Ref<Key>& key, u32 levels) {
    if (levels == 0) return 0;
    u32 count = 0;
    Ref<String> last;
    const auto keys = key->keyIterator();
    for (auto child = keys->next(); child; child = keys->next()) {
        const Ref<String> own = child->name();
        need(!last || last->compare(own) < 0, "order");
        last = own;
        count += 1 + enumerate(child, levels - 1);
    }
    return count;
}

void tree(u32 minor) {
    BenchHive bench(minor);
    const auto forAll = [&](auto leaf) {
        for (u32 i = 0; i < FAN * FAN; ++i) {
            const Ref<Key> top = bench.hive->root()->key(name(i / FAN));
            leaf(top, i % FAN);
        }
    };
    timed("tree: create 1,000,000", [&] {
        for (u32 i = 0; i < FAN; ++i) bench.hive->root()->createKey(name(i));
        forAll([](const Ref<Key>& top, u32 j) {
            const Ref<Key> middle = top->createKey(name(j));
            for (u32 k = 0; k < FAN; ++k) need(bool(middle->createKey(name(k))), "create");
        });
        bench.reopen();
    });
    timed("tree: find all", [&] {
        forAll([](const Ref<Key>& top, u32 j) {
            const Ref<Key> middle = top->key(name(j));
            for (u32 k = 0; k < FAN; ++k) need(bool(middle->key(name(k))), "find");
        });
    });
    timed("tree: enumerate",
          [&] { need(enumerate(bench.hive->root(), 3) == FAN + FAN * FAN + FAN * FAN * FAN, "enumerate"); });
    timed("tree: export", [&] { bench.exportAll(); });
}

void wide(u32 minor) {
    BenchHive bench(minor);
    std::vector<u32> numbers(WIDE);
    std::iota(numbers.begin(), numbers.end(), 0);
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(minor));
    timed("wide: create 200,000", [&] {
        const Ref<Key> root = bench.hive->root();
        for (const u32 number : numbers) need(bool(root->createKey(name(number))), "create");
    });
    bench.reopen();
    timed("wide: find all", [&] {
        const Ref<Key> root = bench.hive->root();
        for (const u32 number : numbers) need(bool(root->key(name(number))), "find");
    });
    timed("wide: enumerate", [&] { need(enumerate(bench.hive->root(), 1) == WIDE, "enumerate"); });
    timed("wide: export", [&] { bench.exportAll(); });
}

void middle(u32 minor) {
    for (const u32 count : {2000u, WIDE}) {
        BenchHive bench(minor);
        const Ref<Key> root = bench.hive->root();
        for (u32 i = 0; i < count; ++i) root->createKey(name(i * 20));
        const double time = seconds([&] {
            for (u32 i = 0; i < 1000; ++i)
                need(bool(root->createKey(name(count * 10 + i * 20 + 1 - 10000))), "create");
        });
        std::printf("middle: insert into %-7u %9.1f us\n", count, time * 1000);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const u32 minor = argc > 1 && std::string(argv[1]) == "1.3" ? 3 : 5;
#if !defined(__OPTIMIZE__)
    std::fprintf(stderr, "WARNING: built without optimisation, the numbers mean nothing\n");
#endif
    std::printf("version 1.%u\n", minor);
    tree(minor);
    wide(minor);
    middle(minor);
}
