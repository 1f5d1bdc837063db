#include "hive/hivelog.h"
#include "hive/keys/keyobj.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

bool KeyObj::initValues() {
    if (!_valid) return false;
    if (_values.size() == _numOfValues) return true;
    const RecordView record = _hive->cacheLoadRecord(_valueListCell);
    if (!record) return false;
    assertCondition(record.size() <= 0, "-static_cast<s32>(L32ToHost(hr->common.size)) >= 0",
                    "Libraries::Files::Hive::KeyObj::initValues");
    if (u64{_numOfValues} * OFFSET_ENTRY_SIZE + sizeof(hive_record) > record.absoluteSize()) {
        log(3, Channel::hive, "Value list record is too small, key: ", _recordOfs);
        return fail(ErrorCode::badValueList);
    }
    _values.clear();
    _values.reserve(_numOfValues);
    for (u32 i = 0; i < _numOfValues; ++i)
        _values.push_back({record.u32At(sizeof(hive_record) + u64{i} * OFFSET_ENTRY_SIZE), {}});
    return true;
}

Ref<ValueObj> KeyObj::value(u32 index) {
    if (!_valid || index >= _numOfValues) return nullptr;
    const MonGuard guard(_hive->mon());
    if (!initValues()) return nullptr;
    if (!assertCondition(_values.size() == _numOfValues, "_values.size() == _numOfValues",
                         "Libraries::Files::Hive::KeyObj::value") &&
        index >= _values.size())
        return nullptr;
    ValueEntry& entry = _values[index];
    if (Ref<ValueObj> live = entry.value.lock()) return live;
    auto built = makeRef<ValueObj>(_hive, entry.record, Ref<KeyObj>(this));
    if (built->valid())
        entry.value = WeakRef<ValueObj>(built);
    else
        log(3, Channel::hive, "New created ValueObj not valid");
    return built;
}

Ref<Value> KeyObj::value(Ref<String> name) {
    if (!_valid) return nullptr;
    if (!name) {
        Error::set(ErrorCode::nullArgument);
        return nullptr;
    }
    const MonGuard guard(_hive->mon());
    for (u32 i = 0; i < _numOfValues; ++i) {
        const Ref<ValueObj> candidate = value(i);
        if (!candidate || !candidate->valid()) {
            log(3, Channel::hive, "Failed to get value with index: ", i);
            if (_values.size() != _numOfValues) return nullptr;  // no list; the reason is in the error code
            continue;
        }
        const Ref<String> candidateName = candidate->name();
        if (candidateName && candidateName->equalUpper(name)) return candidate;
    }
    Error::set(ErrorCode::noSuchValue);
    return nullptr;
}

}  // namespace Libraries::Files::Hive
