#include "hive/hivelog.h"
#include "hive/keys/keyobj.h"
#include "hive/nameencoding.h"
#include "hive/recordbuilder.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

namespace {

/// A vk record's layout with the name's form filled in, and the name behind it.
RecordBuilder buildRecord(hive_record_vk vk, const HeapBuffer& name, u64 nameLength, bool compressed) {
    const u16 otherFlags = L16ToHost(vk.flags) & static_cast<u16>(~hive_record_vk::FLAG_COMPRESSED_NAME);
    const u16 nameFlag = compressed ? hive_record_vk::FLAG_COMPRESSED_NAME : u16{0};
    vk.flags = HostToL16(static_cast<u16>(otherFlags | nameFlag));
    vk.nameLength = HostToL16(static_cast<u16>(nameLength));
    RecordBuilder record;
    record.putLayout(vk);
    record.put(name.get(), nameLength);
    return record;
}

bool assertNameLength(u64 length, const char* function) {
    return assertCondition(length <= MAX_STORED_NAME, "nameLength <= ((u16)0xffffU)", function);
}

}  // namespace

Ref<ValueObj> ValueObj::createValue(const Ref<RegistryHiveObj>& hive, const Ref<KeyObj>& parent,
                                    const Ref<String>& name, ValueType type) {
    u64 nameLength = MAX_STORED_NAME;
    bool compressed = false;
    HeapBuffer storedName;
    if (name->length() <= MAX_VALUE_NAME_LENGTH)
        storedName = hive->stringToRegName(name, nameLength, compressed);
    if (!storedName) {
        Error::set(ErrorCode::valueNameTooLong);
        return nullptr;
    }
    assertNameLength(nameLength, "Libraries::Files::Hive::ValueObj::createValue");
    hive_record_vk vk{};
    Mem::copy(vk.signature, hive_record_vk::SIGNATURE, sizeof(vk.signature));
    vk.dataSize = HostToL32(hive_record_vk::FLAG_RESIDENT);
    vk.type = HostToL32(type);
    const RecordBuilder record = buildRecord(vk, storedName, nameLength, compressed);
    const u32 cell = hive->allocateRecord(record.recordSize(), nullptr);
    if (cell == INVALID_RECORD) return nullptr;
    // A failed write shows in the next step: the cell then holds no vk record, or this one in memory at
    // least.
    hive->writeRecord(cell, record.data(), RECORD_HEAD_SIZE, record.size());
    auto value = makeRef<ValueObj>(hive, cell, parent, name);
    if (!value->valid()) {
        log(3, Channel::hive, "New initialized value is not valid, record =", cell);
        return nullptr;
    }
    const u32 dataSize = datasizeFormType(type);
    if (dataSize != 0 && value->size(dataSize) != dataSize) {
        log(3, Channel::hive, "Failed to initial resize new record, record =", cell);
        return nullptr;
    }
    return value;
}

u32 ValueObj::setName(const Ref<String>& name) {
    const MonGuard guard(_hive->monitor());
    if (!_valid) {
        Error::set(ErrorCode::invalidObject);
        return INVALID_RECORD;
    }
    if (name->length() > MAX_VALUE_NAME_LENGTH) {
        Error::set(ErrorCode::badValueName);
        return INVALID_RECORD;
    }
    if (const Ref<String> old = _name.get(); old && old->equal(name)) return _recordOfs;
    u64 nameLength = MAX_STORED_NAME;
    bool compressed = false;
    const HeapBuffer storedName = _hive->stringToRegName(name, nameLength, compressed);
    if (!storedName) {
        Error::set(ErrorCode::badValueName);
        return 0;  // not the 0xFFFFFFFF of the other failures: callers tell them apart
    }
    assertNameLength(nameLength, "Libraries::Files::Hive::ValueObj::setName");
    RecordBuilder record = buildRecord(_recordData, storedName, nameLength, compressed);
    record.put16(0);  // two bytes more than the record needs, in cells already written too
    _hive->valueChanges().add(_recordOfs);
    const u32 cell = _hive->resizeRecord(_recordOfs, record.recordSize(), false, nullptr, false);
    if (cell == INVALID_RECORD) return 0;
    if (!_hive->writeRecord(cell, record.data(), RECORD_HEAD_SIZE, record.size())) return 0;
    Mem::copy(reinterpret_cast<u8*>(&_recordData) + RECORD_HEAD_SIZE, record.data(),
              sizeof(_recordData) - RECORD_HEAD_SIZE);
    _recordOfs = cell;
    _name.set(name);
    return cell;
}

bool ValueObj::selfDelete() {
    const MonGuard guard(_hive->monitor());
    if (!_valid || !freeAllExtents()) return false;
    _valid = false;
    _extents.clear();
    _hive->valueChanges().add(_recordOfs);
    if (!_hive->releaseRecord(_recordOfs)) return false;
    _recordOfs = 0;
    return true;
}

}  // namespace Libraries::Files::Hive
