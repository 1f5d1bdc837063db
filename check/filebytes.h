#pragma once

#include "hive/recordview.h"
#include "platform/interfaces/stripe.h"
#include "platform/system/heap.h"

namespace Libraries::Files::Hive {

using Platform::Ref;
using Platform::toSize;

/// A file's bytes in any order, through a cache of its pages that takes 16 MiB at most. What cannot be read
/// is 0.
class FileBytes {
 public:
    explicit FileBytes(Ref<Interfaces::Stripe> stripe);

    u64 size() const { return _size; }
    /// `length` bytes from `position` on. Valid until the next call.
    RecordView view(u64 position, u64 length);
    /// Whether the file gave fewer bytes than it said it has.
    bool cameShort() const { return _cameShort; }

 private:
    static constexpr u32 PAGE = 4096;  // small: records that follow one another may lie anywhere
    static constexpr u32 SLOTS = 4096;

    const u8* page(u64 number);

    Ref<Interfaces::Stripe> _stripe;
    u64 _size;
    Platform::HeapBuffer _pages;    // slot by slot; taken from the system as slots are used
    Platform::Array<u64> _numbers;  // the page in each slot
    Platform::Array<u8> _joined;
    bool _cameShort = false;
};

}  // namespace Libraries::Files::Hive
