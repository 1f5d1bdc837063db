#pragma once

#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

/// A walk around the ring of sk records along their forward links. Not thread-safe: one walk is for one user
/// at a time.
class SecurityDescriptorIteratorObj final : public SecurityDescriptorIterator, public Object {
 public:
    SecurityDescriptorIteratorObj(Ref<RegistryHiveObj> hive, u32 startCell);

    bool rewind() override;
    Ref<SecurityDescriptor> next() override;

 private:
    u32 following(const RecordView& record);

    const Ref<RegistryHiveObj> _hive;
    const u32 _start;
    u32 _current;
    // Brent's cycle search: a record passed earlier, moved up each time the steps since then have doubled.
    // Meeting it again means a ring that the start is no part of.
    u32 _marker = INVALID_RECORD;
    u32 _steps = 0;
    u32 _stride = 1;
};

}  // namespace Libraries::Files::Hive
