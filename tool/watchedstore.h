#pragma once

#include "tool/base.h"

namespace HiveCtl {

/// Passes everything on to another store and remembers why it first could not write or grow: the library
/// tells only what it could not do for want of it. Not thread-safe.
class WatchedStore final : public Object, public virtual Interfaces::Stripe {
 public:
    explicit WatchedStore(Ref<Interfaces::Stripe> store) : _store(std::move(store)) {}

    /// The error code of the first failure; 0 when there was none.
    u32 failure() const { return _failure; }

    u32 elementSize() override { return _store->elementSize(); }
    u64 seek(u64 position) override { return _store->seek(position); }
    u64 pos() override { return _store->pos(); }
    u64 read(Interfaces::ShPtr to, u64 count, u32 unused = 0) override {
        return _store->read(to, count, unused);
    }
    u64 write(Interfaces::ShPtr from, u64 count, u32 unused = 0) override {
        return noted(_store->write(from, count, unused), count);
    }
    u64 trim(u64 count, u32 unused = 0) override { return _store->trim(count, unused); }
    u64 clear(u64 count, u32 unused = 0) override { return _store->clear(count, unused); }
    u64 elementCount() override { return _store->elementCount(); }
    u64 maxElementCount() override { return _store->maxElementCount(); }
    u64 minElementCount() override { return _store->minElementCount(); }
    u64 setElementCount(u64 count) override { return noted(_store->setElementCount(count), count); }
    Interfaces::ShHandle map(Ref<Interfaces::SharedMemory> memory) override { return _store->map(memory); }
    void unmap(Interfaces::ShHandle handle) override { _store->unmap(handle); }

 private:
    u64 noted(u64 result, u64 wanted) {
        if (result != wanted && !_failure) _failure = Error::get();
        return result;
    }

    const Ref<Interfaces::Stripe> _store;
    u32 _failure = 0;
};

}  // namespace HiveCtl
