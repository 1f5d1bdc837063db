#include "hive/keys/leafcopy.h"

#include "hive/keys/keyrecord.h"

namespace Libraries::Files::Hive {

bool LeafCopy::take(RegistryHiveObj& hive, u32 offset) {
    KeyRecord record;
    if (!record.peek(hive, offset)) return false;
    const hive_record_nk& key = record.fixedPart();
    _values = {L32ToHost(key.valueList), L32ToHost(key.numOfValues)};
    return key.numOfKeys == 0 && record.copyName(_name, _nameLength);
}

}  // namespace Libraries::Files::Hive
