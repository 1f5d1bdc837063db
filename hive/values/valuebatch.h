#pragma once

#include <array>
#include <span>

#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

/// Where a key's values are listed.
struct ValueListPlace {
    u32 cell;   // of the value list
    u32 count;  // of its entries
};

/// Copies of what the records of some values say, one behind the other in a key's list: for those who look at
/// many values once and need no object for each.
class ValueBatch {
 public:
    struct Entry {
        Value::ValueType type;
        std::u16string_view name;
        std::span<const u8> data;
    };

    /// Takes the values of a list from index `first` on, as many as there is room for, up to one where
    /// anything stands in the way: a record that is not at hand or not sound, a name or data that does not
    /// stand there as it is. Its object then tells; here there is neither a log line nor an error code.
    /// REQUIRES: the hive is read-only.
    void fill(RegistryHiveObj& hive, const ValueListPlace& list, u32 first);

    /// Valid until the next `fill`.
    std::span<const Entry> entries() const { return {_entries.data(), _count}; }

 private:
    bool add(RegistryHiveObj& hive, u32 offset);

    static constexpr u32 ENTRIES = 16;
    static constexpr u32 NAME_UNITS = 512;

    u32 _count = 0;
    u32 _nameUnits = 0;
    u32 _dataBytes = 0;
    std::array<Entry, ENTRIES> _entries;
    std::array<char16_t, NAME_UNITS> _names;
    std::array<u8, hive_record_vk::V1_5_MAX_DATA_WITHOUT_DB> _data;
};

}  // namespace Libraries::Files::Hive
