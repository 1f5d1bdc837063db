#pragma once

#include <array>
#include <span>

#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

/// What the records of a value say, copied: for those who look at many values once and need no object for
/// each.
class ValueCopy {
 public:
    /// Copies the value at `offset`. False, without a log line or an error code, where anything stands in the
    /// way: a record that is not at hand or not sound, a name or data that does not stand there as it is.
    /// Its object then tells. REQUIRES the hive's monitor held, and that the hive is read-only.
    bool take(RegistryHiveObj& hive, u32 offset);

    Value::ValueType type() const { return _type; }
    std::u16string_view name() const { return {_name.data(), _nameLength}; }
    std::span<const u8> data() const { return {_data.data(), _dataSize}; }

 private:
    static constexpr u32 MAX_NAME = 256;

    Value::ValueType _type = Value::valueNone;
    u32 _nameLength = 0;
    u32 _dataSize = 0;
    std::array<char16_t, MAX_NAME> _name;
    std::array<u8, hive_record_vk::V1_5_MAX_DATA_WITHOUT_DB> _data;
};

}  // namespace Libraries::Files::Hive
