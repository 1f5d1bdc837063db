#pragma once

#include "tests/support/teststripe.h"

namespace HiveTest {

/// Passes everything on to another store, counts the operations of chosen kinds and fails one of them, or all
/// from one on. A sweep first runs with nothing to fail, asks `operations()`, then fails each in turn.
class FailingStripe final : public Platform::Object, public virtual Interfaces::Stripe {
 public:
    /// What is counted and how it fails. A short kind moves half of what was asked for (rounded down) and
    /// takes the place of the whole kind when both are chosen.
    enum Kind : u32 {
        seeks = 1,  ///< the position stays and the answer is all ones
        reads = 2,  ///< nothing is moved
        shortReads = 4,
        writes = 8,
        shortWrites = 16,
        resizes = 32,  ///< the length stays
        allWhole = seeks | reads | writes | resizes,
    };
    /// The error code that every failure sets; no other code is like it.
    static constexpr u32 errorCode = 0xFA11ED;
    static constexpr u64 never = ~u64{0};

    explicit FailingStripe(Ref<Interfaces::Stripe> store) : _store(std::move(store)) {}

    /// Starts counting afresh; operation `index` (from 0) of these kinds fails, and all after it when
    /// `persistent`.
    void failAt(u64 index, u32 kinds = allWhole, bool persistent = false);
    /// Counts without failing.
    void count(u32 kinds = allWhole) { failAt(never, kinds); }
    u64 operations() const { return _operations; }
    u64 failures() const { return _failures; }

    u32 elementSize() override { return _store->elementSize(); }
    u64 seek(u64 position) override;
    u64 pos() override { return _store->pos(); }
    u64 read(Interfaces::ShPtr destination, u64 count, u32 unused = 0) override;
    u64 write(Interfaces::ShPtr source, u64 count, u32 unused = 0) override;
    u64 trim(u64 count, u32 unused = 0) override { return _store->trim(count, unused); }
    u64 clear(u64 count, u32 unused = 0) override { return _store->clear(count, unused); }
    u64 elementCount() override { return _store->elementCount(); }
    u64 maxElementCount() override { return _store->maxElementCount(); }
    u64 minElementCount() override { return _store->minElementCount(); }
    u64 setElementCount(u64 count) override;
    Interfaces::ShHandle map(Ref<Interfaces::SharedMemory> memory) override { return _store->map(memory); }
    void unmap(Interfaces::ShHandle handle) override { _store->unmap(handle); }

 private:
    /// Counts an operation when it is of these kinds; whether it is to fail.
    bool fails(u32 kinds);

    Ref<Interfaces::Stripe> _store;
    u32 _kinds = 0;
    u64 _failIndex = never;
    bool _persistent = false;
    u64 _operations = 0;
    u64 _failures = 0;
};

}  // namespace HiveTest
