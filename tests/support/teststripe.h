#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "platform/interfaces/stripe.h"

namespace HiveTest {

using Platform::Ref;
using Platform::u16;
using Platform::u32;
using Platform::u64;
using Platform::u8;

/// What the byte stores of the tests share: a position that is clamped to the size, writes that extend the
/// store at its end as a file's do, an upper limit, and counts of the calls. Not thread-safe.
class TestStripe : public Platform::Object, public virtual Interfaces::Stripe {
 public:
    struct Counters {
        u64 seeks = 0;
        u64 reads = 0;
        u64 writes = 0;
        u64 resizes = 0;
        u64 bytesRead = 0;
        u64 bytesWritten = 0;
    };
    Counters counters;
    /// Takes down position and length, in bytes, of every write.
    std::vector<std::pair<u64, u64>>* written = nullptr;

    /// The most elements that one call to `read` hands over.
    u64 mostAtOnce = ~u64{0};
    /// Run once, before the first transfer from element `interruptAt` on.
    std::function<void()> interrupt = {};
    u64 interruptAt = 0;

    /// The most elements the store may grow to; growing further fails with ENOSPC.
    void setMaxElementCount(u64 count) { _maxCount = count; }

    u32 elementSize() override { return _elementSize; }
    u64 seek(u64 position) override;
    u64 pos() override { return _position; }
    u64 read(Interfaces::ShPtr destination, u64 count, u32 unused = 0) override;
    u64 write(Interfaces::ShPtr source, u64 count, u32 unused = 0) override;
    u64 trim(u64 count, u32 unused = 0) override;
    u64 clear(u64 count, u32 unused = 0) override;
    u64 elementCount() override { return byteCount() / _elementSize; }
    u64 maxElementCount() override { return _maxCount; }
    u64 minElementCount() override { return 0; }
    u64 setElementCount(u64 count) override;
    Interfaces::ShHandle map(Ref<Interfaces::SharedMemory> memory) override { return {memory, nullptr, 0}; }
    void unmap(Interfaces::ShHandle) override {}

 protected:
    TestStripe(u32 elementSize, u64 maxCount) : _elementSize(elementSize), _maxCount(maxCount) {}

    // Everything below is in bytes; the ranges asked for lie inside the store.
    virtual u64 byteCount() const = 0;
    virtual void load(u64 position, u8* destination, u64 bytes) = 0;
    virtual void store(u64 position, const u8* source, u64 bytes) = 0;
    virtual void resize(u64 bytes) = 0;

 private:
    void transfer() {
        if (_position < interruptAt) return;
        if (const auto now = std::exchange(interrupt, nullptr)) now();
    }

    u32 _elementSize;
    u64 _maxCount;
    u64 _position = 0;
};

}  // namespace HiveTest
