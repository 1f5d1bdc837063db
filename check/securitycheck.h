#pragma once

#include "check/checkcontext.h"

namespace Libraries::Files::Hive {

/// Counts the keys that use each security record, then checks the ring of these records.
class SecurityCheck {
 public:
    explicit SecurityCheck(CheckContext& context) : _context(context) {}

    /// The key names this security record.
    void use(u32 key, u32 record);
    /// Goes round the ring, from the root key's record on. To be called when all keys are counted.
    void checkRing(u32 root, u32 first);

 private:
    struct Users {
        u32 record;
        u32 keys;
        u32 first;  // one of the keys
    };

    void sumUp();
    u32 usersOf(u32 record) const;
    bool checkRecord(u32 record, u32 owner, u32& blink, u32& flink);
    void followRing(u32 root, u32 first);

    CheckContext& _context;
    Array<Users> _users;  // runs of keys with the same record; summed up: by record
};

}  // namespace Libraries::Files::Hive
