#pragma once

#include "platform/system/object.h"

namespace Platform {

/// A block of mapped memory that objects and processes may share. Released with its last reference.
class PLATFORM_API SharedMemory final : public Object {
 public:
    ~SharedMemory() override;
    u64 size() const { return _size; }
    /// The mapping of the block into this process; `size()` bytes, readable and writable, valid while the
    /// block lives.
    u8* address() const { return _address; }

 private:
    friend class ShMem;
    SharedMemory(u8* address, u64 size, u64 reserved) : _address(address), _size(size), _reserved(reserved) {}

    u8* _address;
    u64 _size;
    u64 _reserved;  // bytes of address space taken, guard page included
};

class PLATFORM_API ShMem {
 public:
    /// A new zeroed block of `size` bytes (at least 1), followed by an inaccessible page: an access behind
    /// the block's last page faults instead of reaching foreign memory. Null with the error code set when
    /// there is no memory.
    static Ref<SharedMemory> create(u64 size);
    /// The same for memory that only this process looks at, in large pages where the system has them: for
    /// big blocks that are read here and there.
    static Ref<SharedMemory> createPrivate(u64 size);

 private:
    static Ref<SharedMemory> map(u64 size, int flags);
};

/// A mapping handle: the shared memory it belongs to and the mapped range (none when `address` is null).
struct ShHandle {
    Ref<SharedMemory> memory;
    u8* address = nullptr;
    u64 length = 0;
};

/// A pointer into shared memory or into a plain buffer, passed by value to data operations. It carries what
/// keeps shared memory alive; a plain buffer is the caller's to keep until the operation returns.
class ShPtr {
 public:
    ShPtr() = default;
    ShPtr(void* buffer) : _base(static_cast<u8*>(buffer)) {}  // NOLINT: any buffer serves
    ShPtr(Ref<SharedMemory> memory, u64 offset)
        : _memory(std::move(memory)), _base(_memory ? _memory->address() : nullptr), _offset(offset) {}
    /// For sources of a write: the operation only reads from it.
    static ShPtr fromConst(const void* buffer) { return ShPtr(const_cast<void*>(buffer)); }

    /// The address, null when the pointer is not set.
    u8* address() const { return _base ? _base + _offset : nullptr; }

 private:
    Ref<SharedMemory> _memory;
    u8* _base = nullptr;
    u64 _offset = 0;
};

}  // namespace Platform
