#pragma once

#include "hive/base.h"

namespace Libraries::Files::Hive {

class ValueObj;

/// A value's data as a byte store. Of a fixed length, unless the value's `canResize()` lets it grow and
/// shrink.
///
/// Not thread-safe: one stripe is for one user at a time.
class StripeValue final : public Object, public virtual Interfaces::Stripe {
 public:
    explicit StripeValue(Ref<ValueObj> value);

    u32 elementSize() override { return 1; }
    u64 seek(u64 position) override;
    u64 pos() override { return _position; }
    /// As `ValueObj::read`: the count is cut to the whole length, so that a read behind the start may run
    /// past the end. Error: 0x8446 a count above 32 bits; so `write`.
    u64 read(ShPtr destination, u64 count, u32 unused = 0) override;
    u64 write(ShPtr source, u64 count, u32 unused = 0) override;
    u64 trim(u64 count, u32 unused = 0) override;
    u64 clear(u64 count, u32 unused = 0) override;
    u64 elementCount() override;
    u64 maxElementCount() override;
    u64 minElementCount() override;
    u64 setElementCount(u64 count) override;
    ShHandle map(Ref<SharedMemory> memory) override;
    void unmap(ShHandle handle) override;

 private:
    const Ref<ValueObj> _value;
    u32 _position = 0;
};

}  // namespace Libraries::Files::Hive
