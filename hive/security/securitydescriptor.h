#pragma once

#include "hive/base.h"

namespace Libraries::Files::Hive {

/// One security record of a hive: a self-relative security descriptor, shared by the keys that point to it.
class SecurityDescriptor : public virtual RefCount {
 public:
    /// A copy of the descriptor's bytes; null when the record is broken or the descriptor empty.
    virtual Ref<TConstArray<unsigned char>> get() = 0;
    /// Overwrites the descriptor in place; `length` must be its stored length, since many keys and both
    /// neighbours in the ring refer to the record where it stands.
    virtual bool set(const void* data, u32 length) = 0;
    /// Record offset of the record, and the number of keys it says it is used by (0 when it cannot be read).
    virtual u32 recordOfs() const = 0;
    virtual u32 users() = 0;
};

/// A walk around the ring of security records, beginning with the root key's.
class SecurityDescriptorIterator : public virtual RefCount {
 public:
    /// Back to the root key's record; always true.
    virtual bool rewind() = 0;
    /// The next record; null at the end of the walk, which every ring has: one that never returns to its
    /// start ends with a logged error.
    virtual Ref<SecurityDescriptor> next() = 0;
};

}  // namespace Libraries::Files::Hive
