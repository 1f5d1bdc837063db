#include <algorithm>

#include "hive/hivelog.h"
#include "hive/keys/keyobj.h"
#include "hive/keys/valueiteratorobj.h"
#include "hive/plainpath.h"
#include "hive/recordbuilder.h"
#include "hive/values/valueobj.h"
#include "hive/values/valuerecord.h"

namespace Libraries::Files::Hive {

namespace {

/// Bytes of a value list record, which is also where its entry number `values` begins.
u32 valueListSize(u32 values) {
    return values * OFFSET_ENTRY_SIZE + static_cast<u32>(sizeof(hive_record));
}

}  // namespace

bool KeyObj::initValues() {
    if (!_valid) return false;
    if (_values.size() == _numOfValues) return true;
    const RecordView record = _hive->cacheLoadRecord(_valueListCell);
    if (!record) return false;
    assertCondition(record.size() <= 0, "-static_cast<s32>(L32ToHost(hr->common.size)) >= 0",
                    "Libraries::Files::Hive::KeyObj::initValues");
    if (u64{_numOfValues} * OFFSET_ENTRY_SIZE + sizeof(hive_record) > record.absoluteSize()) {
        log(3, Channel::hive, "Value list record is too small, key: ", _recordOfs);
        return ErrorCode::fail(ErrorCode::badValueList);
    }
    _values.clear();
    _values.reserve(_numOfValues);
    for (u32 i = 0; i < _numOfValues; ++i)
        _values.push_back({record.u32At(sizeof(hive_record) + u64{i} * OFFSET_ENTRY_SIZE), 0, false, {}});
    return true;
}

Ref<ValueObj> KeyObj::value(u32 index) {
    const MonGuard guard(_hive->monitor());
    return openValue(index, ValueRecord(), nullptr);
}

/// The value at an index. What is at hand saves work: its `record`, loaded or not, and the name it is likely
/// to have (may be null).
Ref<ValueObj> KeyObj::openValue(u32 index, const ValueRecord& record, const Ref<String>& likelyName) {
    if (!_valid || index >= _numOfValues || !initValues()) return nullptr;
    assertCondition(_values.size() == _numOfValues, "_values.size() == _numOfValues",
                    "Libraries::Files::Hive::KeyObj::value");
    if (index >= _values.size()) return nullptr;
    ValueEntry& entry = _values[index];
    if (Ref<ValueObj> live = entry.value.lock()) return live;
    auto built = record.isLoaded() ? makeRef<ValueObj>(record, Ref<KeyObj>(this), likelyName)
                                   : makeRef<ValueObj>(_hive, entry.record, Ref<KeyObj>(this), likelyName);
    if (built->valid())
        entry.value = WeakRef<ValueObj>(built);
    else
        log(3, Channel::hive, "New created ValueObj not valid");
    return built;
}

Ref<Value> KeyObj::value(Ref<String> name) {
    const MonGuard guard(_hive->monitor());
    if (!_valid) return nullptr;
    if (!name) {
        Error::set(ErrorCode::nullArgument);
        return nullptr;
    }
    const u32 nameHash = ValueRecord::hashOf(name->view());
    forgetChangedValues();
    _valueMissed = !PLAIN_PATH;
    for (u32 i = 0; i < _numOfValues; ++i) {
        const bool listed = initValues();
        bool readable = listed;
        ValueRecord record;
        const bool mayBe = !listed || mayBeNamed(i, nameHash, record, readable);
        // What has to be opened, or has no readable name, is looked at each time, and may say so.
        if (mayBe || !_values[i].nameKnown) _valueMissed = false;
        if (!mayBe) continue;
        const Ref<ValueObj> candidate = readable ? openValue(i, record, name) : nullptr;
        if (!candidate || !candidate->valid()) {
            log(3, Channel::hive, "Failed to get value with index: ", i);
            if (!listed) return nullptr;  // the reason is in the error code
            continue;
        }
        const Ref<String> candidateName = candidate->name();
        if (candidateName && candidateName->equalUpper(name)) return candidate;
    }
    Error::set(ErrorCode::noSuchValue);
    return nullptr;
}

Ref<Value> KeyObj::createValue(Ref<String> name, Value::ValueType type) {
    const MonGuard guard(_hive->monitor());
    _valueMissed = false;
    return createMissingValue(name, type);
}

Ref<Value> KeyObj::createMissingValue(const Ref<String>& name, Value::ValueType type) {
    const bool searched = std::exchange(_valueMissed, false);
    if (!canChange()) return nullptr;
    if (!name) {
        Error::set(ErrorCode::nullArgument);
        return nullptr;
    }
    if (searched) {
        Error::set(ErrorCode::noSuchValue);  // as the search would
    } else if (value(name)) {
        Error::set(ErrorCode::valueExists);
        return nullptr;
    }
    const Ref<ValueObj> created = ValueObj::createValue(_hive, Ref<KeyObj>(this), name, type);
    if (!created || !linkValue(created)) return nullptr;
    return created;
}

void KeyObj::forgetChangedValues() {
    const ValueChanges& changes = _hive->valueChanges();
    if (!changes.knownSince(_changesSeen)) {
        for (ValueEntry& entry : _values) entry.nameKnown = false;
        _changesSeen = changes.count();
    }
    for (; _changesSeen < changes.count(); ++_changesSeen)
        for (ValueEntry& entry : _values)
            if (entry.record == changes.at(_changesSeen)) entry.nameKnown = false;
}

/// Whether a value has to be opened to tell if its name is the one searched for. Looks at its record, with
/// the log lines and error codes of opening it, unless there is an object or the name's hash is known. When
/// the value cannot be opened, `readable` becomes false and the answer is true.
bool KeyObj::mayBeNamed(u32 index, u32 nameHash, ValueRecord& record, bool& readable) {
    if constexpr (PLAIN_PATH) return true;
    ValueEntry& entry = _values[index];
    if (!entry.nameKnown) {
        if (entry.value.lock()) return true;
        readable = record.load(*_hive, entry.record);
        entry.nameKnown = readable && record.nameHash(entry.nameHash);
        if (readable && !record.checkDataLength()) entry.nameKnown = readable = false;
        if (!readable) log(3, Channel::hive, "New created ValueObj not valid");
        if (!entry.nameKnown) return !readable;
    }
    return entry.nameHash == nameHash;
}

bool KeyObj::deleteValue(Ref<Value> value) {
    const MonGuard guard(_hive->monitor());
    if (!canChange()) return false;
    const Ref<ValueObj> own = refCast<ValueObj>(value);
    if (!own) return ErrorCode::fail(ErrorCode::wrongArgument);
    return unlinkValue(own) && own->selfDelete();
}

bool KeyObj::linkValue(const Ref<ValueObj>& value) {
    if (!canChange() || !initValues()) return false;
    const u32 count = _numOfValues;
    const u32 cell =
        count == 0 ? _hive->allocateRecord(valueListSize(1), nullptr)
                   : _hive->resizeRecord(_valueListCell, valueListSize(count + 1), true, nullptr, false);
    if (cell == INVALID_RECORD) return false;
    _valueListCell = cell;
    const u32 entry = HostToL32(value->recordOfs());
    if (!_hive->writeRecord(cell, &entry, valueListSize(count), sizeof(entry))) return false;
    _numOfValues += 1;
    const Ref<String> name = value->name();
    if (_values.empty()) _values.reserve(4);  // mostly there are a few
    _values.push_back({value->recordOfs(), name ? ValueRecord::hashOf(name->view()) : 0, bool(name),
                       WeakRef<ValueObj>(value)});
    if (!syncValueList(cell)) return false;
    for (const auto& weak : _valueIterators)
        if (const Ref<ValueIteratorObj> iterator = weak.lock()) iterator->insertedAt(count);
    return true;
}

bool KeyObj::unlinkValue(const Ref<ValueObj>& value) {
    if (!canChange() || !initValues()) return false;
    const auto found = std::find_if(_values.begin(), _values.end(), [&](const ValueEntry& entry) {
        return entry.value.refersTo(value.get());
    });
    if (found == _values.end()) return ErrorCode::fail(ErrorCode::wrongArgument);
    const auto index = static_cast<u32>(found - _values.begin());
    const u32 count = --_numOfValues;
    _values.erase(found);
    const u32 cell =
        _hive->resizeRecord(_valueListCell, count ? valueListSize(count) : 0, true, nullptr, false);
    if (cell == INVALID_RECORD) return false;
    _valueListCell = cell;
    if (!rewriteValueList(index) || !syncValueList(count ? cell : INVALID_RECORD)) return false;
    for (const auto& weak : _valueIterators)
        if (const Ref<ValueIteratorObj> iterator = weak.lock()) iterator->removedAt(index);
    return true;
}

/// Writes the list anew after the entry at `removed` went. When that was the last but one of the old list
/// nothing is written: the record keeps the removed entry in its last slot, and the old last one falls off. A
/// fixed rule, which files already written and the programs that compare them rely on; only the list in
/// memory is right then.
bool KeyObj::rewriteValueList(u32 removed) {
    const u32 count = _numOfValues;
    if (count == 0 || removed == count - 1) return true;
    RecordBuilder offsets;
    for (const ValueEntry& entry : _values) offsets.put32(entry.record);
    return _hive->writeRecord(_valueListCell, offsets.data(), sizeof(hive_record), offsets.size());
}

/// Brings the nk record in step with the value list; `cell` is its value list field.
bool KeyObj::syncValueList(u32 cell) {
    _record.numOfValues = HostToL32(_numOfValues);
    _record.valueList = HostToL32(cell);
    return syncKeyRecord();
}

}  // namespace Libraries::Files::Hive
