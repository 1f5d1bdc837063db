#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "platform/system/error.h"
#include "platform/system/heap.h"
#include "platform/system/mon.h"
#include "platform/system/shmem.h"
#include "platform/system/vector.h"

using namespace Platform;

namespace {

class Named : public virtual RefCount {
 public:
    virtual int name() const = 0;
};
class Sized : public virtual RefCount {
 public:
    virtual int size() const = 0;
};
class Thing final : public Object, public Named, public Sized {
 public:
    explicit Thing(std::atomic<int>& alive) : _alive(alive) { ++_alive; }
    ~Thing() override { --_alive; }
    int name() const override { return 1; }
    int size() const override { return 2; }

 private:
    std::atomic<int>& _alive;
};

TEST(Ref, AllInterfacesShareOneCount) {
    std::atomic<int> alive = 0;
    Ref<Named> named = makeRef<Thing>(alive);
    Ref<Sized> sized = refCast<Sized>(named);
    WeakRef<Thing> weak(refCast<Thing>(named));
    ASSERT_TRUE(sized);
    named.reset();
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(sized->size(), 2);
    EXPECT_TRUE(weak.lock());
    sized = Ref<Sized>(sized);
    EXPECT_EQ(alive, 1);
    sized.reset();
    EXPECT_EQ(alive, 0);
    EXPECT_FALSE(weak.lock());
    EXPECT_FALSE(WeakRef<Thing>().lock());
    EXPECT_FALSE(refCast<Sized>(Ref<RefCount>(Mon::create())));
}

TEST(WeakRef, NeverResurrectsWhileTheLastReferenceGoes) {
    for (int round = 0; round < 300; ++round) {
        std::atomic<int> alive = 0;
        std::atomic<bool> go = false;
        Ref<Thing> strong = makeRef<Thing>(alive);
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([&go, weak = WeakRef<Thing>(strong)] {
                while (!go) std::this_thread::yield();
                bool gone = false;
                for (int tries = 0; tries < 200; ++tries) {
                    const Ref<Thing> locked = weak.lock();
                    EXPECT_FALSE(gone && locked);
                    gone = !locked;
                    EXPECT_EQ(locked ? locked->name() : 1, 1);
                }
            });
        go = true;
        strong.reset();
        for (auto& thread : threads) thread.join();
        ASSERT_EQ(alive, 0);
    }
}

TEST(WeakRef, ProxyIsMadeOnceByManyThreads) {
    std::atomic<int> alive = 0;
    const Ref<Thing> thing = makeRef<Thing>(alive);
    std::vector<GcProxy*> proxies(4);
    std::vector<std::thread> threads;
    for (auto& proxy : proxies) threads.emplace_back([&] { proxy = thing->gcproxy(); });
    for (auto& thread : threads) thread.join();
    for (const auto* proxy : proxies) EXPECT_EQ(proxy, thing->gcproxy());
}

TEST(Error, EachThreadHasItsOwnCode) {
    Error::set(0x1234);
    std::thread([] {
        EXPECT_EQ(Error::get(), 0u);
        Error::setSystem(ENOENT);
        EXPECT_EQ(Error::get(), 0x20000u + ENOENT);
    }).join();
    EXPECT_EQ(Error::get(), 0x1234u);
}

TEST(Mon, HoldsOffOtherThreadsUntilTheOutermostLeave) {
    const Ref<Mon> mon = Mon::create();
    std::atomic<bool> entered = false;
    mon->enter();
    std::thread other([&] {
        const MonGuard guard(mon);
        entered = true;
    });
    { const MonGuard inner(mon); }
    std::this_thread::yield();
    EXPECT_FALSE(entered);
    mon->leave();
    other.join();
    EXPECT_TRUE(entered);
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
    EXPECT_EQ(ShPtr().address(), nullptr);
    EXPECT_EQ(ShPtr(Ref<SharedMemory>(), 5).address(), nullptr);
}

TEST(ShMem, ReservesMuchAndRefusesTheAbsurd) {
    const Ref<SharedMemory> large = ShMem::create(u64{1} << 36);
    ASSERT_TRUE(large);
    large->address()[large->size() - 1] = 1;
    for (const u64 size : {u64{1} << 62, (u64{1} << 63) - 1, u64{1} << 63, ~u64{0}}) {
        Error::set(0);
        EXPECT_FALSE(ShMem::create(size));
        EXPECT_EQ(Error::get(), 0x20000u + ENOMEM);
    }
    EXPECT_FALSE(ShMem::create(0));
}

TEST(Heap, RefusesTheAbsurdAndArraysEndTheProcess) {
    EXPECT_EQ(Heap::alloc(~u64{0}), nullptr);
    EXPECT_TRUE(heapBuffer(0));
    const auto grow = [] {
        ::dup2(STDERR_FILENO, STDOUT_FILENO);  // the message is on the standard output
        ArrayAllocator<u64>().allocate(SIZE_MAX / 4);
    };
    EXPECT_EXIT(grow(), testing::ExitedWithCode(1), "^out of memory$");
}

}  // namespace
