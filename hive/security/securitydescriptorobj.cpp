#include "hive/security/securitydescriptorobj.h"

#include "hive/hivelog.h"

namespace Libraries::Files::Hive {

namespace {

bool isSk(const RecordView& record) {
    return B16ToHost(record.as<hive_record_sk>().type) == hive_record_sk::SIGNATURE;
}

u64 neededSize(const RecordView& record) {
    return u64{L32ToHost(record.as<hive_record_sk>().descriptorSize)} + sizeof(hive_record_sk);
}

}  // namespace

Ref<SecurityDescriptorObj> SecurityDescriptorObj::create(const Ref<RegistryHiveObj>& hive, u32 cell) {
    const RecordView record = hive->cacheLoadRecord(cell);
    if (!record || record.size() >= 0 || !isSk(record) || record.usedSize() < sizeof(hive_record_sk))
        return nullptr;
    return makeRef<SecurityDescriptorObj>(hive, cell);
}

/// The checks `get` and `set` share. Their assertion lines carry fixed numbers that log filters know.
bool SecurityDescriptorObj::check(const RecordView& record, int firstLine, const char* function) const {
    return assertCondition(bool(record), "rec != nullptr", function, firstLine, Channel::security) &&
           assertCondition(isSk(record), "B16ToHost(rec->common.type) == hive_record_sk::SIGNATURE", function,
                           firstLine + 1, Channel::security) &&
           assertCondition(record.size() < 0 && record.usedSize() >= sizeof(hive_record_sk),
                           "(-static_cast<s32>(L32ToHost(rec->common.size)) >= ((uword) "
                           "&(((hive_record_sk*)0)->descriptor)))",
                           function, firstLine + 2, Channel::security) &&
           neededSize(record) <= record.usedSize();
}

Ref<TConstArray<unsigned char>> SecurityDescriptorObj::get() {
    const MonGuard guard(_hive->monitor());
    const RecordView record = _hive->cacheLoadRecord(_cell);
    if (!check(record, 76, "Libraries::Files::Hive::SecurityDescriptorObj::get")) return nullptr;
    const u32 length = L32ToHost(record.as<hive_record_sk>().descriptorSize);
    if (length == 0) return nullptr;
    Array<u8> bytes(length);
    record.copy(bytes.data(), sizeof(hive_record_sk), length);
    return makeRef<TConstArray<unsigned char>>(bytes.data(), u64{length});
}

bool SecurityDescriptorObj::set(const void* data, u32 length) {
    const MonGuard guard(_hive->monitor());
    const RecordView record = _hive->cacheLoadRecord(_cell);
    if (!check(record, 94, "Libraries::Files::Hive::SecurityDescriptorObj::set")) return false;
    if (length != L32ToHost(record.as<hive_record_sk>().descriptorSize)) return false;
    return _hive->writeRecord(_cell, data, sizeof(hive_record_sk), length);
}

u32 SecurityDescriptorObj::users() {
    const MonGuard guard(_hive->monitor());
    const RecordView record = _hive->cacheLoadRecord(_cell);
    return record && isSk(record) ? L32ToHost(record.as<hive_record_sk>().refCount) : 0;
}

}  // namespace Libraries::Files::Hive
