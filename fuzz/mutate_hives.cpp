// mutate_hives: changes a few random bytes of hives again and again and reads each result in full, in every
// mode. Fails when a mutant stops the process, hangs, takes too much time or memory, or gets written to.
//
// The mutants are read in child processes, so that one that stops its process is named and the run goes on.
// A mutant is known by the seed and its number alone and can be read again with --only.

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <optional>
#include <thread>

#include "fuzz/hiveshapes.h"
#include "fuzz/mutation.h"
#include "fuzz/walkhive.h"
#include "hive/hivefile.h"
#include "tests/support/memorystripe.h"

namespace {

using namespace HiveFuzz;  // NOLINT
using HiveTest::MemoryStripe;
using Libraries::Files::Hive::HiveFile;

#if defined(__SANITIZE_ADDRESS__)
constexpr long MAX_RSS_MIB = 900;  // the sanitizer keeps freed memory back
#else
constexpr long MAX_RSS_MIB = 96;
#endif
constexpr u64 MAX_CPU_MS = 2000;
constexpr u64 HANG_SECONDS = 30;
constexpr int MAX_REPORTS = 10;
constexpr u64 BASE_BLOCK = 4096;

struct Options {
    u64 count = 100000;
    u64 seed = 1;
    u64 jobs = 1;
    u64 samplePeriod = 40;  // each that many mutants one is of a sample file
    std::optional<u64> only;
    std::vector<std::string> samples;
};

struct Subject {
    HiveShape shape;
    Mutator mutator;
    explicit Subject(HiveShape of) : shape(std::move(of)), mutator(shape.file) {}
};

/// What a child tells its parent; in memory that both see.
struct Progress {
    volatile u64 current;  // the mutant being read
    volatile u64 done;
    volatile u64 opened;
    volatile u64 faults;
    volatile u64 slowestMicros;
    volatile u64 slowest;
};

u64 cpuMicros() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<u64>(now.tv_sec) * 1000000 + static_cast<u64>(now.tv_nsec) / 1000;
}

class Run {
 public:
    Run(const Options& options, std::vector<Subject> builders, std::vector<Subject> samples)
        : _options(options), _builders(std::move(builders)), _samples(std::move(samples)) {}

    /// Reads mutant `number`. False, with a line on the standard output, when it broke a rule.
    bool read(u64 number, Progress& progress, bool talk) const {
        std::seed_seq seed{_options.seed, number, number >> 32};
        std::mt19937_64 random(seed);
        const Subject& subject = choose(number);
        const std::vector<ByteChange> changes = subject.mutator.choose(subject.shape.file, random);
        const auto store = Platform::makeRef<MemoryStripe>(mutant(subject, changes, random() % 8 != 0));
        std::optional<LogToNowhere> log;
        if (random() % 16 == 0) log.emplace();
        if (talk)
            std::printf("mutant %" PRIu64 " of \"%s\": %s\n", number, subject.shape.name.c_str(),
                        Mutator::describe(changes).c_str());
        const u64 start = cpuMicros();
        const u32 fallback = random() % 2 ? HiveFile::modeLinearFallback : 0U;
        bool opened = false;
        u64 untilExport = random() % 3;
        for (const u32 mode :
             {HiveFile::modeReadOnly | fallback, HiveFile::modeReadOnly | HiveFile::modeUnsafe,
              HiveFile::modeReadWrite | fallback}) {
            const WalkCounts counts = walkHive(store, mode, untilExport-- == 0);
            opened = counts.opened;
            if (talk) tell(mode, counts);
        }
        const u64 taken = cpuMicros() - start;
        if (taken > progress.slowestMicros) {
            progress.slowestMicros = taken;
            progress.slowest = number;
        }
        progress.opened = progress.opened + (opened ? 1 : 0);
        if (taken > MAX_CPU_MS * 1000) return fault(number, "took " + std::to_string(taken / 1000) + " ms");
        if (store->counters.writes || store->counters.resizes) return fault(number, "was written to");
        return true;
    }

    bool fault(u64 number, const std::string& what) const {
        const Subject& subject = choose(number);
        std::printf("FAULT: a mutant of \"%s\" %s; again with: --seed %" PRIu64 " --only %" PRIu64 "\n",
                    subject.shape.name.c_str(), what.c_str(), _options.seed, number);
        std::fflush(stdout);
        return false;
    }

    const Options& options() const { return _options; }

 private:
    const Subject& choose(u64 number) const {
        if (!_samples.empty() && number % _options.samplePeriod == 0)
            return _samples[number / _options.samplePeriod % _samples.size()];
        return _builders[number % _builders.size()];
    }

    static std::vector<u8> mutant(const Subject& subject, const std::vector<ByteChange>& changes,
                                  bool repair) {
        std::vector<u8> file = subject.shape.file;
        bool baseBlock = false;
        for (const ByteChange& change : changes) {
            file[change.at] = change.after;
            baseBlock = baseBlock || change.at < BASE_BLOCK;
        }
        if (repair && baseBlock) repairBaseBlock(file);
        return file;
    }

    static void tell(u32 mode, const WalkCounts& counts) {
        std::printf("  mode %x: %s, %" PRIu64 " keys, %" PRIu64 " values, %" PRIu64 " bytes of data, %" PRIu64
                    " descriptors, %" PRIu64 " failures\n",
                    mode, counts.opened ? "open" : "refused", counts.keys, counts.values, counts.dataBytes,
                    counts.descriptors, counts.failures);
    }

    const Options _options;
    const std::vector<Subject> _builders;
    const std::vector<Subject> _samples;
};

/// One child process after the other, each reading the mutants `job`, `job` + jobs, ...
class Job {
 public:
    Job(const Run& run, u64 job) : _run(run), _next(job) {
        void* memory =
            mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) std::abort();
        _progress = new (memory) Progress{};
        start();
    }

    /// Looks after the child; true while there is one.
    bool watch() {
        if (!_child) return false;
        if (_progress->current != _lastSeen) {
            _lastSeen = _progress->current;
            _seenAt = std::chrono::steady_clock::now();
        } else if (std::chrono::steady_clock::now() - _seenAt > std::chrono::seconds(HANG_SECONDS)) {
            kill(_child, SIGKILL);
        }
        int status = 0;
        rusage usage{};
        if (wait4(_child, &status, WNOHANG, &usage) != _child) return true;
        _child = 0;
        peakKiB = std::max(peakKiB, usage.ru_maxrss);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return false;
        ++stops;
        _run.fault(_progress->current,
                   WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL ? "hung" : "stopped the process");
        _next = _progress->current + _run.options().jobs;
        if (stops < MAX_REPORTS) start();
        return _child != 0;
    }

    const Progress& progress() const { return *_progress; }
    int stops = 0;
    long peakKiB = 0;

 private:
    void start() {
        std::fflush(stdout);
        _lastSeen = ~u64{0};
        _seenAt = std::chrono::steady_clock::now();
        _child = fork();
        if (_child < 0) std::abort();
        if (_child > 0) return;
        for (u64 i = _next; i < _run.options().count; i += _run.options().jobs) {
            _progress->current = i;
            if (!_run.read(i, *_progress, false)) _progress->faults = _progress->faults + 1;
            _progress->done = _progress->done + 1;
        }
        std::_Exit(0);
    }

    const Run& _run;
    u64 _next;
    pid_t _child = 0;
    Progress* _progress;
    u64 _lastSeen = 0;
    std::chrono::steady_clock::time_point _seenAt;
};

int runAll(const Run& run) {
    const auto start = std::chrono::steady_clock::now();
    std::vector<Job> jobs;
    for (u64 j = 0; j < run.options().jobs; ++j) jobs.emplace_back(run, j);
    u64 told = 0;
    for (bool alive = true; alive;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        alive = false;
        u64 done = 0;
        for (Job& job : jobs) {
            alive = job.watch() || alive;
            done += job.progress().done;
        }
        if (done < told + run.options().count / 20) continue;
        told = done;
        std::printf("  %" PRIu64 " mutants read\n", done);
        std::fflush(stdout);
    }
    u64 done = 0, opened = 0, faults = 0, slowest = 0, slowestMicros = 0;
    long peak = 0;
    for (const Job& job : jobs) {
        done += job.progress().done;
        opened += job.progress().opened;
        faults += job.progress().faults + static_cast<u64>(job.stops);
        peak = std::max(peak, job.peakKiB / 1024);
        if (job.progress().slowestMicros < slowestMicros) continue;
        slowestMicros = job.progress().slowestMicros;
        slowest = job.progress().slowest;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("%" PRIu64 " mutants in %.1f s (%.0f a second), %" PRIu64
                " opened in the last mode; slowest %" PRIu64
                " ms of CPU "
                "time (number %" PRIu64 "); peak memory %ld MiB; %" PRIu64 " faults\n",
                done, seconds, static_cast<double>(done) / seconds, opened, slowestMicros / 1000, slowest,
                peak, faults);
    if (peak > MAX_RSS_MIB) {
        std::printf("FAULT: peak memory above %ld MiB\n", MAX_RSS_MIB);
        ++faults;
    }
    return faults || done != run.options().count ? 1 : 0;
}

Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.rfind("--", 0) != 0) {
            options.samples.push_back(word);
            continue;
        }
        const u64 number = i + 1 < argc ? std::strtoull(argv[++i], nullptr, 10) : 0;
        if (word == "--count") {
            options.count = number;
        } else if (word == "--seed") {
            options.seed = number;
        } else if (word == "--jobs" && number > 0) {
            options.jobs = number;
        } else if (word == "--sample-period" && number > 0) {
            options.samplePeriod = number;
        } else if (word == "--only") {
            options.only = number;
        } else {
            std::fprintf(stderr,
                         "usage: mutate_hives [--count N] [--seed N] [--jobs N] [--sample-period N] "
                         "[--only N] [HIVE...]\n");
            std::exit(2);
        }
    }
    return options;
}

std::vector<u8> readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<u8> bytes{std::istreambuf_iterator<char>(file), {}};
    if (bytes.size() > BASE_BLOCK) return bytes;
    std::fprintf(stderr, "mutate_hives: cannot read a hive from %s\n", path.c_str());
    std::exit(2);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    std::vector<Subject> builders;
    for (HiveShape& shape : hiveShapes()) builders.emplace_back(std::move(shape));
    std::vector<Subject> samples;
    for (const std::string& path : options.samples) samples.emplace_back(HiveShape{path, readFile(path)});
    for (const auto* subjects : {&builders, &samples}) {
        for (const Subject& subject : *subjects) {  // a hive that is refused unchanged tests nothing
            const auto store = Platform::makeRef<MemoryStripe>(subject.shape.file);
            const WalkCounts counts = walkHive(store, HiveFile::modeReadOnly);
            std::printf("%s: %zu bytes, %" PRIu64 " keys, %" PRIu64 " values, %" PRIu64 " failures\n",
                        subject.shape.name.c_str(), subject.shape.file.size(), counts.keys, counts.values,
                        counts.failures);
            if (counts.keys < 1 || counts.values < 1) return 1;
        }
    }
    const Run run(options, std::move(builders), std::move(samples));
    if (!options.only) return runAll(run);
    Progress progress{};
    return run.read(*options.only, progress, true) ? 0 : 1;
}
