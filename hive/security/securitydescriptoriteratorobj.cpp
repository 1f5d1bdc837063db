#include "hive/security/securitydescriptoriteratorobj.h"

#include "hive/hivelog.h"
#include "hive/security/securitydescriptorobj.h"

namespace Libraries::Files::Hive {

SecurityDescriptorIteratorObj::SecurityDescriptorIteratorObj(Ref<RegistryHiveObj> hive, u32 startCell)
    : _hive(std::move(hive)), _start(startCell), _current(startCell) {}

bool SecurityDescriptorIteratorObj::rewind() {
    _current = _start;
    _marker = INVALID_RECORD;
    _steps = 0;
    _stride = 1;
    return true;
}

Ref<SecurityDescriptor> SecurityDescriptorIteratorObj::next() {
    if (_current == INVALID_RECORD) return nullptr;
    const MonGuard guard(_hive->monitor());
    Ref<SecurityDescriptorObj> descriptor = SecurityDescriptorObj::create(_hive, _current);
    if (!descriptor) {
        _current = INVALID_RECORD;
        return nullptr;
    }
    const RecordView record = _hive->cacheLoadRecord(_current);
    if (!record) return nullptr;
    _current = following(record);
    return descriptor;
}

/// The record to visit after `record`, or none at the ring's end.
u32 SecurityDescriptorIteratorObj::following(const RecordView& record) {
    const u32 flink = L32ToHost(record.as<hive_record_sk>().flink);
    if (flink == 0 || flink == INVALID_RECORD) {
        log(3, Channel::securityIterator, "Invalid offset in sk at ", _current);
        return INVALID_RECORD;
    }
    if (flink == _start) return INVALID_RECORD;
    if (flink == _marker) {
        log(3, Channel::securityIterator,
            "Ring of sk records does not return to its start, record: ", _current);
        return INVALID_RECORD;
    }
    if (++_steps == _stride) {
        _marker = flink;
        _stride *= 2;
        _steps = 0;
    }
    return flink;
}

}  // namespace Libraries::Files::Hive
