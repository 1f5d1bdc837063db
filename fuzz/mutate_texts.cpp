// mutate_texts: changes bytes, lines and words of export texts again and again and imports each result into a
// small hive. Fails when an import stops the process or takes too long, or leaves a hive with faults.
//
// The texts are imported in child processes, so that one that stops its process is named and the run goes on.
// A mutant is known by the seed and its number alone and can be imported again with --only, which prints it.

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>

#include "fuzz/hiveshapes.h"
#include "fuzz/walkhive.h"
#include "hive/hivefile.h"
#include "regfile/regfileutil.h"
#include "tests/support/hivecheck.h"
#include "tests/support/memorystripe.h"

namespace {

using namespace HiveFuzz;  // NOLINT
using HiveTest::MemoryStripe;
using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::RegFileUtil;
using Platform::String;

constexpr u64 MAX_MILLIS = 2000;
constexpr u64 HANG_SECONDS = 30;
constexpr u64 MAX_TEXT = 20000;
constexpr int MAX_STOPS = 10;

/// Pieces of lines that mean something somewhere.
constexpr std::u16string_view WORDS[] = {
    u"[",
    u"]",
    u"[-",
    u"\\",
    u"\"",
    u"\"=",
    u"=",
    u"@=",
    u"=-",
    u"dword:",
    u"hex:",
    u"hex(",
    u"):",
    u"hex(7)",
    u"ffffffff",
    u"100000000",
    u",",
    u",\\\r\n  ",
    u"\r\n",
    u"\n",
    u"\r",
    u";",
    u"00,",
    u"[-\\]\r\n",
    u"[\\A]",
    u"[-\\A]",
    u"\"\"=\"\"",
    u"\xD800",
    std::u16string_view(u"\0", 1),
    u"\uFEFF",
    u"\u0436",
    u"@=hex(1):00,00\r\n",
};

struct Options {
    u64 count = 200000;
    u64 seed = 1;
    u64 jobs = 1;
    std::optional<u64> only;
};

/// What a child tells its parent; in memory that both see.
struct Progress {
    volatile u64 current;  // the mutant being imported
    volatile u64 done;
    volatile u64 whole;  // imports that came to the end
    volatile u64 faults;
    volatile u64 slowestMillis;
};

class Texts {
 public:
    /// The export texts of all small hives, in both forms, and empty hives to import them into.
    Texts() {
        for (const HiveShape& shape : hiveShapes())
            for (const auto options : {RegFileUtil::exportDefault, RegFileUtil::exportBinaryOnly}) {
                const auto hive = HiveFile::open(Platform::makeRef<MemoryStripe>(shape.file),
                                                 HiveFile::modeReadOnly, HiveFile::hiveCodepageLatin1);
                const auto target = Platform::makeRef<MemoryStripe>();
                RegFileUtil::exportRegFile(hive->root(), Ref<Interfaces::Stripe>(target), String::create(),
                                           options, nullptr, false);
                addText(target->bytes());
            }
        for (const u32 minor : {3U, 5U}) {
            const auto store = Platform::makeRef<MemoryStripe>();
            HiveFile::create(Ref<Interfaces::Stripe>(store), minor, HiveFile::modeReadWrite,
                             HiveFile::hiveCodepageLatin1, nullptr);
            _images.push_back(store->bytes());
        }
    }

    std::vector<u8> mutant(std::mt19937_64& random) const {
        const std::u16string& whole = _texts[random() % _texts.size()];
        // Long texts take long: mostly a part of one, cut out where values begin.
        const u64 length = random() % 64 ? 100 + random() % 1000 : MAX_TEXT;
        std::u16string text = whole.substr(0, length);
        if (whole.size() > length) {
            const u64 last = whole.size() - length;
            const u64 from = std::min(whole.find(u"\n\"", random() % last), last);
            const u64 end = whole.rfind(u"\n\"", from + length);
            text = u"v\r\n[\\A]\r\n" + whole.substr(from + 1, end > from + length ? length : end - from);
        }
        for (u64 changes = random() % 8; changes > 0; --changes) change(text, random);
        std::vector<u8> bytes = encode(text, random() % 5);
        for (u64 changes = random() % 4 ? 0 : 1 + random() % 4; changes > 0; --changes)
            if (!bytes.empty()) bytes[random() % bytes.size()] = static_cast<u8>(random());
        return bytes;
    }

    /// Imports one mutant; false, with a line on the standard output, when it broke a rule.
    bool importMutant(const Options& options, u64 number, Progress& progress, bool talk) const {
        std::seed_seq seed{options.seed, number, number >> 32};
        std::mt19937_64 random(seed);
        const std::vector<u8> text = mutant(random);
        if (talk) std::fwrite(text.data(), 1, text.size(), stdout);
        const auto store = Platform::makeRef<MemoryStripe>(_images[random() % _images.size()]);
        std::optional<LogToNowhere> log;
        if (random() % 32 == 0) log.emplace();
        const auto start = std::chrono::steady_clock::now();
        bool whole = false;
        if (const auto hive = HiveFile::open(store, HiveFile::modeReadWrite, HiveFile::hiveCodepageLatin1))
            whole = RegFileUtil::importRegFile(hive,
                                               Ref<Interfaces::Stripe>(Platform::makeRef<MemoryStripe>(text)),
                                               String::create(), nullptr, true);
        const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
        const auto millis = static_cast<u64>(taken.count());
        progress.slowestMillis = std::max(u64{progress.slowestMillis}, millis);
        progress.whole = progress.whole + (whole ? 1 : 0);
        if (talk) std::printf("\n%s in %.1f ms\n", whole ? "imported" : "refused", taken.count());
        if (millis > MAX_MILLIS) return fault(options, number, "took too long");
        const std::vector<std::string> faults = HiveTest::hiveFaults(store->bytes());
        if (talk) std::printf("%s\n", faults.empty() ? "sound" : faults[0].c_str());
        if (!faults.empty()) return fault(options, number, "left a hive with faults");
        return true;
    }

    static bool fault(const Options& options, u64 number, const char* what) {
        std::printf("FAULT: a mutant %s; again with: --seed %" PRIu64 " --only %" PRIu64 "\n", what,
                    options.seed, number);
        std::fflush(stdout);
        return false;
    }

 private:
    void addText(const std::vector<u8>& bytes) {
        std::u16string text;
        for (u64 i = 2; i + 1 < bytes.size(); i += 2)
            text += static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8);
        if (text.size() < 100) std::abort();  // an export that failed tests nothing
        _texts.push_back(std::move(text));
    }

    static std::pair<u64, u64> someLine(const std::u16string& text, std::mt19937_64& random) {
        const u64 at = random() % (text.size() + 1);
        const u64 before = at ? text.rfind(u'\n', at - 1) : std::u16string::npos;
        const u64 start = before == std::u16string::npos ? 0 : before + 1;
        const u64 end = std::min(text.find(u'\n', at), text.size());
        return {start, std::max(start, end) - start};
    }

    static void change(std::u16string& text, std::mt19937_64& random) {
        const u64 at = random() % (text.size() + 1);
        const auto [line, length] = someLine(text, random);
        const std::u16string_view word = WORDS[random() % std::size(WORDS)];
        const u64 kind = random() % 8;
        if (kind == 0) text.erase(at, 1 + random() % 8);
        if (kind == 1) text.insert(at, word);
        if (kind == 2) text.replace(at, word.size(), word);
        if (kind == 3) text.erase(line, length);
        if (kind == 4) text.insert(someLine(text, random).first, text.substr(line, length + 1));
        if (kind == 5) text.insert(line, word);
        if (kind == 6) text.insert(line + (length && text[line] == u'[' ? 1 : 0), u"-");
        const u64 equals = text.find(u'=', line);
        if (kind == 7 && equals < line + length)
            text.replace(equals + 1, random() % 2 ? line + length - equals - 1 : 0, word);
    }

    /// In UTF-16LE without and with mark, UTF-16BE, or UTF-8 with and without.
    static std::vector<u8> encode(std::u16string text, u64 encoding) {
        if (encoding % 4) text.insert(text.begin(), u'\uFEFF');
        if (encoding >= 3) {
            const std::string narrow = String::create(text)->toUtf8();
            return {narrow.begin(), narrow.end()};
        }
        std::vector<u8> bytes;
        for (const char16_t unit : text)
            for (const int shift : {encoding == 2 ? 8 : 0, encoding == 2 ? 0 : 8})
                bytes.push_back(static_cast<u8>(unit >> shift));
        return bytes;
    }

    std::vector<std::u16string> _texts;
    std::vector<std::vector<u8>> _images;
};

/// One child process after the other, each importing the mutants `job`, `job` + jobs, ...
class Job {
 public:
    Job(const Texts& texts, const Options& options, u64 job) : _texts(texts), _options(options), _next(job) {
        void* memory =
            mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) std::abort();
        progress = new (memory) Progress{};
        start();
    }

    /// Looks after the child; true while there is one.
    bool watch() {
        if (!_child) return false;
        const auto now = std::chrono::steady_clock::now();
        if (progress->current != _lastSeen) {
            _lastSeen = progress->current;
            _seenAt = now;
        } else if (now - _seenAt > std::chrono::seconds(HANG_SECONDS)) {
            kill(_child, SIGKILL);
        }
        int status = 0;
        if (waitpid(_child, &status, WNOHANG) != _child) return true;
        _child = 0;
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return false;
        const bool hung = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        Texts::fault(_options, progress->current, hung ? "hung" : "stopped the process");
        _next = progress->current + _options.jobs;
        if (++stops < MAX_STOPS) start();
        return _child != 0;
    }

    Progress* progress;
    int stops = 0;

 private:
    void start() {
        std::fflush(stdout);
        _lastSeen = ~u64{0};
        _seenAt = std::chrono::steady_clock::now();
        _child = fork();
        if (_child < 0) std::abort();
        if (_child > 0) return;
        for (u64 i = _next; i < _options.count; i += _options.jobs) {
            progress->current = i;
            if (!_texts.importMutant(_options, i, *progress, false)) progress->faults = progress->faults + 1;
            progress->done = progress->done + 1;
        }
        std::_Exit(0);
    }

    const Texts& _texts;
    const Options& _options;
    u64 _next;
    pid_t _child = 0;
    u64 _lastSeen = 0;
    std::chrono::steady_clock::time_point _seenAt;
};

int runAll(const Texts& texts, const Options& options) {
    const auto start = std::chrono::steady_clock::now();
    std::vector<Job> jobs;
    for (u64 j = 0; j < options.jobs; ++j) jobs.emplace_back(texts, options, j);
    for (bool alive = true; alive;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        alive = false;
        for (Job& job : jobs) alive = job.watch() || alive;
    }
    u64 done = 0, whole = 0, faults = 0, slowest = 0;
    for (const Job& job : jobs) {
        done += job.progress->done;
        whole += job.progress->whole;
        faults += job.progress->faults + static_cast<u64>(job.stops);
        slowest = std::max(slowest, u64{job.progress->slowestMillis});
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("%" PRIu64 " mutants in %.1f s, %" PRIu64 " imported to the end; slowest %" PRIu64
                " ms; %" PRIu64 " faults\n",
                done, seconds, whole, slowest, faults);
    return faults || done != options.count || !whole ? 1 : 0;
}

Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; i += 2) {
        const std::string word = argv[i];
        const u64 number = i + 1 < argc ? std::strtoull(argv[i + 1], nullptr, 10) : 0;
        if (word == "--count") {
            options.count = number;
        } else if (word == "--seed") {
            options.seed = number;
        } else if (word == "--jobs" && number > 0) {
            options.jobs = number;
        } else if (word == "--only") {
            options.only = number;
        } else {
            std::fprintf(stderr, "usage: mutate_texts [--count N] [--seed N] [--jobs N] [--only N]\n");
            std::exit(2);
        }
    }
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    const Texts texts;
    if (!options.only) return runAll(texts, options);
    Progress progress{};
    return texts.importMutant(options, *options.only, progress, true) ? 0 : 1;
}
