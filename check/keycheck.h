#pragma once

#include "check/securitycheck.h"
#include "check/valuecheck.h"

namespace Libraries::Files::Hive {

/// Checks the tree of keys and, key by key, all that hangs on it. Keys that wait for their turn stand on a
/// list of their own, so that depth costs no stack.
class KeyCheck {
 public:
    KeyCheck(CheckContext& context, SecurityCheck& security)
        : _context(context), _security(security), _values(context) {}

    /// False when there is no root key.
    bool run(u32 root);
    /// The root key's security record.
    u32 rootSecurity() const { return _rootSecurity; }

 private:
    struct Pending {
        u32 record;
        u32 depth;
    };

    void checkKey(const Pending& key);
    void checkClassName(u32 key, u32 record, u16 length);
    void checkSubkeys(const Pending& key, u32 list, u32 count);
    void checkList(const Pending& key, u32 list, u32 owner, bool top);
    void checkVersion(u32 list, const std::string& kind, bool top);
    void checkEntry(const Pending& key, u32 list, const hive_list_entry& entry, const std::string& kind);
    bool openKey(u32 record, u32 owner, hive_record_nk& nk);
    void checkOrder(u32 record);
    void checkHint(u32 record, const hive_list_entry& entry, bool compressed);
    void checkHash(u32 record, u32 stored);

    CheckContext& _context;
    SecurityCheck& _security;
    ValueCheck _values;
    Array<Pending> _pending;
    u32 _rootSecurity = 0;
    // Of the list at hand.
    u32 _listed = 0;
    bool _hasPrevious = false;
    bool _nameKnown = false;
    std::u16string _name, _upper, _previous;
};

}  // namespace Libraries::Files::Hive
