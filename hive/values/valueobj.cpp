#include "hive/values/valueobj.h"

#include "hive/keys/keyobj.h"
#include "hive/values/valuerecord.h"

namespace Libraries::Files::Hive {

ValueObj::ValueObj(Ref<RegistryHiveObj> hive, u32 recordOfs, Ref<KeyObj> parent,
                   const Ref<String>& likelyName)
    : _hive(std::move(hive)),
      _parent(std::move(parent)),
      _recordOfs(recordOfs),
      _isV13(_hive->versionMinor() == 3),
      _readOnly(_hive->readonly()) {
    ValueRecord record;
    _valid = record.load(*_hive, recordOfs) && takeRecord(record, likelyName);
}

ValueObj::ValueObj(const ValueRecord& record, Ref<KeyObj> parent, const Ref<String>& likelyName)
    : _hive(parent->hive()),
      _parent(std::move(parent)),
      _recordOfs(record.offset()),
      _isV13(_hive->versionMinor() == 3),
      _readOnly(_hive->readonly()) {
    _valid = takeRecord(record, likelyName);
}

ValueObj::~ValueObj() = default;

bool ValueObj::takeRecord(const ValueRecord& record, const Ref<String>& likelyName) {
    _name.set(record.name(likelyName));
    _recordData = record.fixedPart();
    _type = static_cast<ValueType>(L32ToHost(_recordData.type));
    _dataSize = record.dataSize();
    _dataResident = record.isResident();
    if (!record.checkDataLength()) return false;
    _canResize = (_hive->mode() & HiveFile::modeResizeAll) != 0 || _type == valueBinary;
    return true;
}

Ref<KeyObj> ValueObj::parent() const {
    return _parent;
}

void ValueObj::setParent(Ref<KeyObj> parent) {
    _parent = std::move(parent);
}

u32 ValueObj::size() {
    if (!_valid) {
        Error::set(ErrorCode::invalidObject);
        return 0;
    }
    return _dataSize;
}

u32 ValueObj::datasizeFormType(ValueType type) {
    switch (type) {
        case valueDword:
        case valueDwordBigEndian:
            return sizeof(u32);
        case valueQword:
            return sizeof(u64);
        default:
            return 0;
    }
}

}  // namespace Libraries::Files::Hive
