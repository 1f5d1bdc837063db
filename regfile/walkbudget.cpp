#include "regfile/walkbudget.h"

#include "hive/keys/keyobj.h"

namespace Libraries::Files::Hive {

WalkBudget::WalkBudget(const Ref<Key>& start) {
    const Ref<KeyObj> key = refCast<KeyObj>(start);
    if (!key) return;
    const MonGuard guard(key->hive()->monitor());
    const u64 size = key->hive()->hbinsSize();
    _entries = size / OFFSET_ENTRY_SIZE;  // each entry takes 4 bytes of some list at least
    _bytes = 2 * size;                    // a last fragment may claim more than its cell holds
}

}  // namespace Libraries::Files::Hive
