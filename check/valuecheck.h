#pragma once

#include "check/checkcontext.h"

namespace Libraries::Files::Hive {

/// Checks the values of keys: value lists, value records, names, and where the data lies.
class ValueCheck {
 public:
    explicit ValueCheck(CheckContext& context) : _context(context) {}

    /// `list` and `count` are what the key record says.
    void check(u32 key, u32 list, u32 count);

 private:
    struct Named {
        u64 hash;  // of the upper-case name
        u32 record;
        u32 place;  // in the list
    };

    void checkValue(u32 record, u32 list, u32 place);
    void checkData(u32 value, const hive_record_vk& vk);
    void checkBigData(u32 value, u32 record, u32 size);
    void checkFragment(u32 fragment, u32 list, u64 index, u32 count, u32 size);
    void findDoubles();
    int compareNames(const Named& left, const Named& right);

    CheckContext& _context;
    Array<Named> _named;  // the values of the key at hand
    std::u16string _name, _otherName;
};

}  // namespace Libraries::Files::Hive
