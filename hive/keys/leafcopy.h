#pragma once

#include <array>

#include "hive/values/valuebatch.h"

namespace Libraries::Files::Hive {

/// What the nk record of a key without subkeys says, copied: most keys are of this kind.
class LeafCopy {
 public:
    /// Copies the key at `offset`. False, without a log line or an error code, where it has subkeys or
    /// anything stands in the way, as in `ValueBatch::fill`; its object then tells. REQUIRES the hive's
    /// monitor held, and that the hive is read-only.
    bool take(RegistryHiveObj& hive, u32 offset);

    std::u16string_view name() const { return {_name.data(), _nameLength}; }
    const ValueListPlace& values() const { return _values; }

 private:
    ValueListPlace _values{};
    u32 _nameLength = 0;
    std::array<char16_t, 256> _name;
};

}  // namespace Libraries::Files::Hive
