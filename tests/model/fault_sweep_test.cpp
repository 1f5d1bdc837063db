// Every call of the store and every allocation of a script fails in turn.

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "tests/model/faultscripts.h"
#include "tests/support/hivecheck.h"

namespace {

using namespace HiveTest;  // NOLINT
using Platform::Heap;

struct Case {
    u32 script, minor;
};

std::vector<Case> cases() {
    std::vector<Case> all;
    for (u32 script = 0; script < std::size(faultScripts); ++script)
        for (const u32 minor : {3u, 5u}) all.push_back({script, minor});
    return all;
}

std::string nameOf(const testing::TestParamInfo<Case>& test) {
    return faultScripts[test.param.script].name + std::string("V1") + std::to_string(test.param.minor);
}

constexpr u32 modes[] = {HiveFile::modeReadWrite, HiveFile::modeWriteThrough};

class FaultSweep : public testing::TestWithParam<Case> {
 protected:
    const FaultScript& script = faultScripts[GetParam().script];
    const std::vector<u8> file = faultStart(GetParam().minor);

    void SetUp() override { ASSERT_EQ(hiveFaults(file), std::vector<std::string>()); }
};

/// What must hold after any one failure: what was not touched, now and for the next who opens the file; what
/// succeeded; and that the hive goes on working.
void expectIntact(FaultSession& session, bool lasts) {
    session.checkExpected("now");
    session.checkKept("now");
    EXPECT_TRUE(!session.held || session.held->createValue(text(u"later"), Value::valueQword));
    EXPECT_TRUE(session.hive->flush());
    session.close();
    session.open();
    session.checkKept("reopened");
    if (lasts) session.checkExpected("reopened");
}

/// How far the failures lie apart: `most` of them spread evenly, or with HIVE_FAULTS=all every one.
u64 stepFor(u64 calls, u64 most) {
    const char* const setting = std::getenv("HIVE_FAULTS");
    return setting && std::string_view(setting) == "all" ? 1 : calls / most + 1;
}

TEST_P(FaultSweep, EverySingleCallOfTheStore) {
    u64 injected = 0;
    for (const u32 mode : modes)
        for (u32 kind = FailingStripe::seeks; kind <= FailingStripe::resizes; kind *= 2) {
            FaultSession clean(file, mode);
            clean.failing->count(kind);
            script.run(clean);
            const u64 calls = clean.failing->operations();
            clean.checkExpected("undisturbed");
            clean.close();
            ASSERT_EQ(hiveFaults(clean.store->bytes()), std::vector<std::string>());
            const u64 step = stepFor(calls, 20);
            for (u64 call = kind % step; call < calls && !HasFailure(); call += step, ++injected) {
                SCOPED_TRACE(testing::Message()
                             << "mode " << mode << ", kind " << kind << ", call " << call << " of " << calls);
                LogCapture log;
                FaultSession session(file, mode);
                session.failing->failAt(call, kind);
                script.run(session);
                EXPECT_EQ(session.failing->failures(), 1u);
                expectIntact(session, script.lasts);
                if (HasFailure()) std::cerr << log.text();
            }
        }
    std::cout << "injected " << injected << " failures of the store\n";
}

/// Runs in a child process: the one allocation fails, and those behind it too when `lasting`.
[[noreturn]] void runWithoutMemory(FaultSession& session, const FaultScript& script, u64 call, bool lasting,
                                   int output) {
    dup2(output, STDOUT_FILENO);
    session.memoryFails = true;
    Heap::failAt(call, lasting);
    script.run(session);
    Heap::failAt(0);
    expectIntact(session, script.lasts);
    session.close();
    std::exit(testing::Test::HasFailure() ? 2 : 0);  // leaks are looked for on the way out
}

struct Ending {
    int status = 0;
    std::string output;
};

template <typename Child>
Ending inChild(Child child) {
    int ends[2];
    std::fflush(stdout);
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    const pid_t id = fork();
    if (id == 0) child(ends[1]);
    close(ends[1]);
    Ending ending;
    char buffer[4096];
    for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;)
        ending.output.append(buffer, static_cast<std::size_t>(got));
    close(ends[0]);
    waitpid(id, &ending.status, 0);
    return ending;
}

u64 allocationsOf(const FaultScript& script, const std::vector<u8>& file, u32 mode) {
    constexpr u64 many = u64{1} << 40;
    FaultSession session(file, mode);
    Heap::failAt(many);
    script.run(session);
    const u64 calls = many - Heap::callsToFailure();
    Heap::failAt(0);
    return calls;
}

TEST_P(FaultSweep, EveryAllocation) {
    u64 ended = 0, failed = 0;
    for (const u32 mode : modes) {
        const u64 calls = allocationsOf(script, file, mode);
        const u64 step = stepFor(calls, 40);
        for (u64 call = 1 + GetParam().minor % step; call <= calls && !HasFailure(); call += step) {
            const bool lasting = (call / step) % 4 == 0;
            SCOPED_TRACE(testing::Message() << "mode " << mode << ", allocation " << call << " of " << calls);
            FaultSession session(file, mode);
            const Ending ending =
                inChild([&](int output) { runWithoutMemory(session, script, call, lasting, output); });
            if (WIFEXITED(ending.status) && WEXITSTATUS(ending.status) == 1) {
                EXPECT_EQ(ending.output, "out of memory");
                ++ended;
            } else {
                EXPECT_EQ(ending.status, 0) << ending.output;
                ++failed;
            }
            session.close();  // it has nothing to write
            session.open();
            session.checkKept("after the process");
        }
    }
    std::cout << "injected " << ended + failed << " failures of memory: " << ended << " ended the process, "
              << failed << " were reported\n";
}

INSTANTIATE_TEST_SUITE_P(All, FaultSweep, testing::ValuesIn(cases()), nameOf);

}  // namespace
