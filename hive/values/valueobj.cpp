#include "hive/values/valueobj.h"

#include "hive/hivelog.h"
#include "hive/keys/keyobj.h"
#include "hive/nameencoding.h"

namespace Libraries::Files::Hive {

ValueObj::ValueObj(Ref<RegistryHiveObj> hive, u32 recordOfs, Ref<KeyObj> parent)
    : _hive(std::move(hive)),
      _parent(std::move(parent)),
      _recordOfs(recordOfs),
      _isV13(_hive->versionMinor() == 3),
      _readOnly(_hive->readonly()) {
    _valid = loadRecord();
}

ValueObj::~ValueObj() = default;

bool ValueObj::loadRecord() {
    const RecordView record = _hive->cacheLoadRecord(_recordOfs);
    if (!record) {
        log(3, Channel::hive, "Failed to get hive record for value: ", _recordOfs);
        return false;
    }
    if (record.signature() != hive_record_vk::SIGNATURE) {
        log(4, Channel::hive, "Value record is no vk record: ", _recordOfs);
        return false;
    }
    assertCondition(record.size() <= 0, "-static_cast<s32>(L32ToHost(hr->size)) >= 0",
                    "Libraries::Files::Hive::ValueObj::ValueObj");
    const auto vk = record.as<hive_record_vk>();
    if (u64{L16ToHost(vk.nameLength)} + sizeof(vk) > record.usedSize()) {
        log(4, Channel::hive, "Name of value exceeds length of record");
        log(1, Channel::hive, "Record: size ", static_cast<s32>(L32ToHost(static_cast<u32>(vk.size))),
            " name length ", L16ToHost(vk.nameLength), " data size ", L32ToHost(vk.dataSize), " data ",
            L32ToHost(vk.data_or_offset), " type ", L32ToHost(vk.type), " flags ", L16ToHost(vk.flags));
        return false;
    }
    const Ref<String> name =
        decodeName(record, sizeof(vk), L16ToHost(vk.nameLength),
                   (L16ToHost(vk.flags) & hive_record_vk::FLAG_COMPRESSED_NAME) != 0, _hive->codepage());
    _name.set(name);
    if (!name)
        log(3, Channel::hive,
            "Name of value could not be converted from codepaged name to Ref<String>. value:", _recordOfs);
    _type = static_cast<ValueType>(L32ToHost(vk.type));
    const u32 dataSize = L32ToHost(vk.dataSize);
    _dataSize = dataSize & ~hive_record_vk::FLAG_RESIDENT;
    _dataResident = (dataSize & hive_record_vk::FLAG_RESIDENT) != 0 || _dataSize == 0;
    if (_dataResident && _dataSize > sizeof(vk.data_or_offset)) {
        log(4, Channel::hive, "Invalid length of data! Data is resident, size is: ", _dataSize.load());
        Error::set(ErrorCode::inconsistentData);
        return false;
    }
    _recordData = vk;
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
