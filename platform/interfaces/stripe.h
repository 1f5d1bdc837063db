#pragma once

#include "platform/system/shmem.h"

/// The platform's byte-store interfaces. Elements are counted from 0; all counts and positions are in
/// elements.
namespace Interfaces {

using Platform::Ref;
using Platform::RefCount;
using Platform::SharedMemory;
using Platform::ShHandle;
using Platform::ShPtr;
using Platform::u32;
using Platform::u64;

/// Anything made of elements of one size.
class Data : public virtual RefCount {
 public:
    /// Size of one element in bytes.
    virtual u32 elementSize() = 0;
};

/// Elements read and written at a position that moves along. One stream is for one user at a time.
class Stream : public virtual Data {
 public:
    /// Moves the position, at most to the end; returns the new position.
    virtual u64 seek(u64 position) = 0;
    virtual u64 pos() = 0;
    /// Copies up to `count` elements and advances; returns how many, fewer at the end or on failure (error
    /// code set). The last argument is not used.
    virtual u64 read(ShPtr destination, u64 count, u32 unused = 0) = 0;
    virtual u64 write(ShPtr source, u64 count, u32 unused = 0) = 0;
    /// Removes elements at the position / overwrites them with zeros; 0 with error 0x10002 where not
    /// supported.
    virtual u64 trim(u64 count, u32 unused = 0) = 0;
    virtual u64 clear(u64 count, u32 unused = 0) = 0;
};

/// A range of elements whose length may be changed within limits.
class Extent : public virtual RefCount {
 public:
    virtual u64 elementCount() = 0;
    virtual u64 maxElementCount() = 0;
    virtual u64 minElementCount() = 0;
    /// Changes the length; returns the length in force afterwards, which differs from `count` on failure.
    /// In a store that holds a hive, those it adds are zero: new hbins are not read back.
    virtual u64 setElementCount(u64 count) = 0;
    /// A handle on the extent mapped over `memory`; carries no address where the extent cannot be mapped.
    virtual ShHandle map(Ref<SharedMemory> memory) = 0;
    virtual void unmap(ShHandle handle) = 0;
};

/// A byte store: a stream over an extent.
class Stripe : public virtual Stream, public virtual Extent {
 public:
    /// Reads `count` elements from `position` on in one step, where the store can; returns how many came, 0
    /// where it cannot. Anything but `count` says nothing of the store's contents: seek and read then tell.
    /// The position is undefined afterwards.
    virtual u64 readAt([[maybe_unused]] u64 position, [[maybe_unused]] ShPtr destination,
                       [[maybe_unused]] u64 count) {
        return 0;
    }
};

}  // namespace Interfaces
