#pragma once

#include <functional>

#include "tool/base.h"

namespace HiveCtl {

/// A byte store one can only add to, over an open descriptor: standard output, a pipe, a file written from
/// front to end. It cannot shorten or move back, which an export to an empty target never asks for. Not
/// thread-safe.
class FdStripe final : public Object, public virtual Interfaces::Stripe {
 public:
    /// `held`: the bytes the target has already, at whose end the descriptor stands. The descriptor stays the
    /// caller's.
    explicit FdStripe(int fd, u64 held = 0) : _fd(fd), _count(held) {}

    /// Called after each write with the number of bytes held.
    void setObserver(std::function<void(u64)> observer) { _observer = std::move(observer); }
    /// The errno value of the first write that failed; 0 when none has.
    int writeError() const { return _writeError; }

    u32 elementSize() override { return 1; }
    u64 seek(u64) override { return _count; }
    u64 pos() override { return _count; }
    u64 read(Interfaces::ShPtr, u64, u32) override { return notSupported(); }
    u64 write(Interfaces::ShPtr source, u64 count, u32 unused = 0) override;
    u64 trim(u64, u32) override { return notSupported(); }
    u64 clear(u64, u32) override { return notSupported(); }
    u64 elementCount() override { return _count; }
    u64 maxElementCount() override { return ~u64{0} >> 1; }
    u64 minElementCount() override { return _count; }
    u64 setElementCount(u64) override { return _count; }
    Interfaces::ShHandle map(Ref<Interfaces::SharedMemory> memory) override { return {memory, nullptr, 0}; }
    void unmap(Interfaces::ShHandle) override {}

 private:
    static u64 notSupported();

    const int _fd;
    u64 _count;
    int _writeError = 0;
    std::function<void(u64)> _observer;
};

/// Writes all of it, as often as that takes; 0, or the errno value of the failure, with the bytes written
/// before it in `done`.
int writeAll(int fd, const void* data, u64 count, u64& done);

}  // namespace HiveCtl
