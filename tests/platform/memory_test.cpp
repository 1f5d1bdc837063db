// What happens where there is no memory; this program's operator new fails when told to.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>

#include "platform/iochar/stdio.h"
#include "platform/system/error.h"
#include "platform/system/heap.h"
#include "platform/system/shmem.h"
#include "platform/system/vector.h"

using namespace Platform;

namespace {
std::atomic<bool> noMemory{false};
}  // namespace

[[gnu::noinline]] void* operator new(std::size_t bytes) {
    void* const memory = noMemory ? nullptr : std::malloc(bytes ? bytes : 1);
    if (!memory) throw std::bad_alloc();
    return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

const Ref<String> longText = String::create(std::u16string(100, u'x'));

void withoutMemory(const std::function<void()>& operation, void (*takeAway)()) {
    dup2(STDERR_FILENO, STDOUT_FILENO);  // what death tests look at
    takeAway();
    operation();
    _exit(0);
}

TEST(OutOfMemory, EndsTheProcessWhereTheStandardLibraryThrows) {
    const std::function<void()> operations[] = {[] { longText->toUtf8(); }, [] { longText->to8(); },
                                                [] { longText->to32(); }};
    for (const auto& operation : operations)
        EXPECT_EXIT(withoutMemory(operation, [] { noMemory = true; }), testing::ExitedWithCode(1),
                    "^out of memory$");
}

TEST(OutOfMemory, EndsTheProcessForObjectsAndArraysForGood) {
    const std::function<void()> operations[] = {[] { longText->upper(); }, [] { longText->gcproxy(); },
                                                [] { StdIO::stdOutWriter(); }, [] { Array<u8>(100); },
                                                [] { Utf16Buffer(100, u'x'); }};
    for (const auto& operation : operations) {
        EXPECT_EXIT(withoutMemory(operation, [] { Heap::failAt(1); }), testing::ExitedWithCode(1),
                    "^out of memory$");
        EXPECT_EXIT(withoutMemory(operation, [] { Heap::failAt(1, true); }), testing::ExitedWithCode(1),
                    "^out of memory$");
    }
}

TEST(OutOfMemory, FailsBuffersAndSharedMemory) {
    Heap::failAt(2);
    EXPECT_TRUE(heapBuffer(1));
    EXPECT_FALSE(ShMem::create(1));
    EXPECT_GT(Error::get(), Error::systemBase);
    EXPECT_TRUE(heapBuffer(1));
    EXPECT_EQ(Heap::callsToFailure(), 0u);
    Heap::failAt(1, true);
    EXPECT_FALSE(heapBuffer(1));
    EXPECT_FALSE(heapBuffer(1));
    Heap::failAt(0);
    EXPECT_FALSE(heapBuffer(~u64{0}));
    EXPECT_TRUE(heapBuffer(0));
}

}  // namespace
