#pragma once

#include <functional>

#include "tool/base.h"

namespace HiveCtl {

/// A byte store one can only read from front to end, over an open descriptor: standard input, a pipe, a file.
/// Not thread-safe.
class FdSource final : public Object, public virtual Interfaces::Stripe {
 public:
    /// The descriptor stays the caller's. `observer` is called after each read with the number of bytes read
    /// so far.
    FdSource(int fd, std::function<void(u64)> observer) : _fd(fd), _observer(std::move(observer)) {}

    u32 elementSize() override { return 1; }
    u64 seek(u64) override { return _position; }
    u64 pos() override { return _position; }
    u64 read(Interfaces::ShPtr destination, u64 count, u32 unused = 0) override;
    u64 write(Interfaces::ShPtr, u64, u32) override { return notSupported(); }
    u64 trim(u64, u32) override { return notSupported(); }
    u64 clear(u64, u32) override { return notSupported(); }
    u64 elementCount() override { return maxElementCount(); }  // where the end is shows only there
    u64 maxElementCount() override { return ~u64{0} >> 1; }
    u64 minElementCount() override { return 0; }
    u64 setElementCount(u64) override { return elementCount(); }
    Interfaces::ShHandle map(Ref<Interfaces::SharedMemory> memory) override { return {memory, nullptr, 0}; }
    void unmap(Interfaces::ShHandle) override {}

 private:
    static u64 notSupported();

    const int _fd;
    u64 _position = 0;
    std::function<void(u64)> _observer;
};

}  // namespace HiveCtl
