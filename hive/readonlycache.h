#pragma once

#include "hive/recordview.h"
#include "platform/interfaces/stripe.h"
#include "platform/system/heap.h"

namespace Libraries::Files::Hive {

/// Windows of a file kept in memory, for reading a hive without looking at its hbins. A miss reads 64 KiB
/// more on either side, so that neighbouring records come from memory. Not thread-safe: the hive's monitor
/// must be held.
class ReadOnlyCache final : public Platform::Object {
 public:
    explicit ReadOnlyCache(Platform::Ref<Interfaces::Stripe> stripe);

    /// `length` bytes of the file from `position` on; null when they are not all inside the file or cannot be
    /// read. Valid until the next call.
    RecordView get(u64 position, u64 length);

 private:
    /// A stretch of the file in the block; the ranges lie there one behind the other, in this order.
    struct Range {
        u64 position;
        u64 length;
        u64 place;  // in the block
    };

    /// Makes room for `bytes` and gives its place in the block; false when there is no memory.
    bool makeRoom(u64 bytes, u64& place);
    void createBlock();
    RecordView view(u64 place) const;

    Platform::Ref<Interfaces::Stripe> _stripe;
    Platform::Ref<Platform::SharedMemory> _block;
    u64 _capacity;
    u64 _readBehind;
    u64 _readAhead;
    u64 _fileSize;
    u64 _used = 0;
    Platform::Array<Range> _ranges;
};

}  // namespace Libraries::Files::Hive
