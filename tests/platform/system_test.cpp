#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <thread>

#include "platform/syslog/log.h"
#include "platform/system/error.h"
#include "platform/system/heap.h"
#include "platform/system/mon.h"
#include "platform/system/shmem.h"
#include "platform/system/vector.h"
#include "tests/support/failingstripe.h"
#include "tests/support/logcapture.h"

using namespace Platform;

namespace {

class Thing final : public Object {
 public:
    explicit Thing(std::atomic<int>& alive) : _alive(alive) { ++_alive; }
    ~Thing() override { --_alive; }

 private:
    std::atomic<int>& _alive;
};

TEST(WeakRef, ManyThreadsShareOneProxyAndNeverResurrect) {
    for (int round = 0; round < 300; ++round) {
        std::atomic<int> alive = 0;
        std::atomic<bool> go = false;
        Ref<Thing> first = makeRef<Thing>(alive);
        std::vector<GcProxy*> proxies(8);
        std::vector<std::thread> threads;
        for (auto& proxy : proxies)
            threads.emplace_back([&go, &proxy, strong = first]() mutable {
                while (!go) std::this_thread::yield();
                const WeakRef<Thing> weak(strong);
                proxy = strong->gcproxy();
                strong.reset();
                bool gone = false;
                for (int tries = 0; tries < 200; ++tries) {
                    const Ref<Thing> locked = weak.lock();
                    EXPECT_FALSE(gone && locked) << tries;
                    gone = !locked;
                    const WeakRef<Thing> other(locked);
                    EXPECT_EQ(bool(other.lock()), !gone);
                }
            });
        first.reset();
        go = true;
        for (auto& thread : threads) thread.join();
        ASSERT_EQ(alive, 0);
        for (const auto* proxy : proxies) ASSERT_EQ(proxy, proxies[0]);
    }
}

/// A monitor held by a thread that was alone when it entered; and then many that want it.
TEST(Mon, KeepsOutThreadsThatStartWhileItIsHeld) {
    const Ref<Mon> mon = Mon::create();
    u64 count = 0;  // changed only in the monitor
    std::vector<std::thread> threads;
    {
        const MonGuard outer(mon);
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&] {
                for (int again = 0; again < 20000; ++again) {
                    const MonGuard guard(*mon);
                    const MonGuard nested(*mon);
                    count = count + 1;
                }
            });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(count, 0U);
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(count, 80000U);
}

TEST(Memory, IsZeroedKeptByPointersGuardedAndRefused) {
    const u64 page = static_cast<u64>(::sysconf(_SC_PAGESIZE));
    for (const u64 size : {u64{1}, page - 1, page, page + 1, u64{1} << (sizeof(void*) == 8 ? 36 : 30)}) {
        Ref<SharedMemory> memory = ShMem::create(size);
        ASSERT_TRUE(memory);
        EXPECT_EQ(memory->size(), size);
        u8* const bytes = memory->address();
        EXPECT_EQ(bytes[0] | bytes[size - 1], 0);
        const ShPtr last(memory, size - 1);
        memory.reset();
        *last.address() = 7;
        EXPECT_EQ(bytes[size - 1], 7);
        const u64 usable = (size + page - 1) / page * page;
        EXPECT_DEATH(bytes[usable] = 1, "") << size;
    }
    for (const u64 size : {u64{1} << 62, (u64{1} << 63) - 1, u64{1} << 63, ~u64{0}}) {
        Error::set(0);
        EXPECT_FALSE(ShMem::create(size));
        EXPECT_EQ(Error::get(), 0x20000u + ENOMEM);
    }
    EXPECT_EQ(Heap::alloc(~u64{0}), nullptr);
    const auto grow = [] {
        ::dup2(STDERR_FILENO, STDOUT_FILENO);  // the message is on the standard output
        ArrayAllocator<u64>().allocate(SIZE_MAX / 4);
    };
    EXPECT_EXIT(grow(), testing::ExitedWithCode(1), "^out of memory$");
}

TEST(String, EveryUnitIsUppercasedAsTheCharacterDatabaseSays) {
    std::ifstream data("/usr/share/unicode/UnicodeData.txt");
    if (!data) GTEST_SKIP() << "the character database is not installed";
    std::vector<u64> upper(0x110000), lower(0x110000);
    for (std::string line; std::getline(data, line);) {
        std::string fields[15];
        for (u64 i = 0, at = 0; i < 15; at = line.find(';', at) + 1)
            fields[i++] = line.substr(at, line.find(';', at) - at);
        const auto code = [&](u32 field) { return std::strtoul(fields[field].c_str(), nullptr, 16); };
        upper[code(0)] = code(12);
        lower[code(0)] = code(13);
    }
    u32 mapped = 0;
    for (u32 unit = 0; unit <= 0xFFFF; ++unit) {
        const bool pair = upper[unit] != 0 && upper[unit] <= 0xFFFF && lower[upper[unit]] == unit;
        mapped += pair;
        ASSERT_EQ(String::upperUnit(static_cast<char16_t>(unit)), pair ? upper[unit] : unit) << unit;
    }
    EXPECT_GT(mapped, 1000u);
}

TEST(String, ComparesByUpperUnitsAndConvertsWhatTheTargetCanHold) {
    // '_' lies between the upper-case and the lower-case letters.
    const std::u16string ascending[] = {{u"A\0b", 3}, {u"a\0C", 3}, u"AB",     u"a_",    u"SS",
                                        u"\u00DF",    u"\u017F",    u"\xD800", u"\xE000"};
    for (u64 i = 1; i < std::size(ascending); ++i) {
        const auto left = String::create(ascending[i - 1]), right = String::create(ascending[i]);
        EXPECT_EQ(left->compareUpper(right), -1) << i;
        EXPECT_EQ(right->compareUpper(left), 1) << i;
        EXPECT_FALSE(left->equalUpper(right)) << i;
    }
    const auto lower = String::create(u"abc\u00E4\u00FF"), upper = String::create(u"ABC\u00C4\u0178");
    EXPECT_TRUE(lower->compareUpper(upper) == 0 && lower->equalUpper(upper));
    const auto lone = String::create(u"\xDC00x\xD83D\xDE00\xD83D");
    EXPECT_EQ(lone->to32(), std::u32string({0xDC00, U'x', 0x1F600, 0xD83D}));
    EXPECT_EQ(String::from32(std::u32string({0x10FFFF, 0x110000}))->view(), u"\U0010FFFF\uFFFD");
    EXPECT_EQ(String::create(u"\u00FF\u0100")->to8(), "\xFF?");
}

TEST(Log, LinesAndErrorCodesOfSeveralThreadsDoNotMix) {
    HiveTest::LogCapture logged;
    Error::set(0x1234);
    std::vector<std::thread> threads;
    for (u32 i = 0; i < 4; ++i)
        threads.emplace_back([i] {
            EXPECT_EQ(Error::get(), 0u);
            for (u32 line = 0; line < 200; ++line) log(1, SysLogFilter::defaultChannel, "a", i, "b", i, "c");
        });
    for (auto& thread : threads) thread.join();
    for (const char* line : {"a0h (0)b0h (0)c\n", "a1h (1)b1h (1)c\n", "a2h (2)b2h (2)c\n"})
        EXPECT_EQ(logged.count(std::string("1 Default: ") + line), 200u);
    // A printer that fails does not hide the error that is reported.
    const auto failing = makeRef<HiveTest::FailingStripe>(makeRef<HiveTest::MemoryStripe>());
    failing->failAt(0, HiveTest::FailingStripe::writes, true);
    SysLogStream::redirect(CharPrinter::create(CharWriter::create(failing, 0, CharWriter::LineEnd::lf)));
    log(4, SysLogFilter::defaultChannel, "lost");
    EXPECT_EQ(Error::get(), 0x1234u);
    EXPECT_GT(failing->failures(), 0u);
}

}  // namespace
