#pragma once

#include <array>

#include "hive/format.h"

namespace Libraries::Files::Hive {

/// The vk records that were last freed or named anew. Value lists remember names, and in a damaged hive a
/// record may stand in several lists: what they remember of these records is no longer true.
class ValueChanges {
 public:
    void add(u32 record) { _records[place(_count++)] = record; }
    /// How many there have been.
    u64 count() const { return _count; }
    /// Whether those from number `since` on are all still known.
    bool knownSince(u64 since) const { return _count - since <= _records.size(); }
    /// REQUIRES: knownSince(number), number < count().
    u32 at(u64 number) const { return _records[place(number)]; }

 private:
    static std::size_t place(u64 number) { return number % RECORDS; }

    static constexpr std::size_t RECORDS = 8;
    std::array<u32, RECORDS> _records{};
    u64 _count = 0;
};

}  // namespace Libraries::Files::Hive
