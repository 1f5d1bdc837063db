#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "platform/system/error.h"
#include "platform/system/heap.h"
#include "platform/system/shmem.h"
#include "platform/system/vector.h"

using namespace Platform;

namespace {

class Thing final : public Object {
 public:
    explicit Thing(std::atomic<int>& alive) : _alive(alive) { ++_alive; }
    ~Thing() override { --_alive; }
    int name() const { return 1; }

 private:
    std::atomic<int>& _alive;
};

TEST(WeakRef, ManyThreadsShareOneProxyAndNeverResurrect) {
    for (int round = 0; round < 300; ++round) {
        std::atomic<int> alive = 0;
        std::atomic<bool> go = false;
        Ref<Thing> first = makeRef<Thing>(alive);
        std::vector<GcProxy*> proxies(3);
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
                    EXPECT_FALSE(gone && locked);
                    gone = !locked;
                    EXPECT_EQ(locked ? locked->name() : 1, 1);
                }
            });
        first.reset();
        go = true;
        for (auto& thread : threads) thread.join();
        ASSERT_EQ(alive, 0);
        for (const auto* proxy : proxies) ASSERT_EQ(proxy, proxies[0]);
    }
}

TEST(Error, EachThreadHasItsOwnCode) {
    Error::set(0x1234);
    std::thread([] { EXPECT_EQ(Error::get(), 0u); }).join();
    EXPECT_EQ(Error::get(), 0x1234u);
}

TEST(ShMem, IsZeroedKeptByPointersAndGuarded) {
    const u64 page = static_cast<u64>(::sysconf(_SC_PAGESIZE));
    for (const u64 size : {u64{1}, page - 1, page, page + 1, 5 * page}) {
        Ref<SharedMemory> memory = ShMem::create(size);
        ASSERT_TRUE(memory);
        EXPECT_EQ(memory->size(), size);
        u8* const bytes = memory->address();
        EXPECT_TRUE(std::all_of(bytes, bytes + size, [](u8 byte) { return byte == 0; }));
        const ShPtr last(memory, size - 1);
        memory.reset();
        *last.address() = 7;
        EXPECT_EQ(bytes[size - 1], 7);
        const u64 usable = (size + page - 1) / page * page;
        EXPECT_DEATH(bytes[usable] = 1, "") << size;
    }
}

TEST(Heap, LargeReservationsSucceedAndTheAbsurdIsRefused) {
    const Ref<SharedMemory> large = ShMem::create(u64{1} << 36);
    ASSERT_TRUE(large);
    large->address()[large->size() - 1] = 1;
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

}  // namespace
