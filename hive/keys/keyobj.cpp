#include "hive/keys/keyobj.h"

#include "hive/hivelog.h"
#include "hive/keys/keyiteratorobj.h"
#include "hive/keys/valueiteratorobj.h"
#include "hive/nameencoding.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

KeyObj::KeyObj(Ref<RegistryHiveObj> hive, u32 recordOfs, Ref<KeyObj> parent)
    : _hive(std::move(hive)),
      _parent(std::move(parent)),
      _recordOfs(recordOfs),
      _depth(_parent ? _parent->_depth + 1 : 0),
      _codepage(_hive->codepage()),
      _readOnly(_hive->readonly()) {
    _valid = loadRecord();
    if (!_valid) Error::set(ErrorCode::badKeyRecord);
}

KeyObj::~KeyObj() = default;

bool KeyObj::loadRecord() {
    if (_depth > MAX_KEY_DEPTH) {
        log(4, Channel::hive, "Key tree is too deep, key: ", _recordOfs);
        return false;
    }
    const RecordView record = _hive->cacheLoadRecord(_recordOfs);
    if (!record) {
        log(3, Channel::hive, "Failed to get hive record for key: ", _recordOfs);
        return false;
    }
    if (record.signature() != hive_record_nk::SIGNATURE) {
        log(3, Channel::hive, "Key record is no nk record: ", record.signature());
        return false;
    }
    assertCondition(record.size() <= 0, "-static_cast<s32>(L32ToHost(hr->size)) >= 0",
                    "Libraries::Files::Hive::KeyObj::KeyObj");
    const auto nk = record.as<hive_record_nk>();
    if (u64{L16ToHost(nk.nameLength)} + sizeof(nk) > record.absoluteSize()) {
        log(3, Channel::hive, "Name of key exceeds length of record");
        return false;
    }
    readName(record, nk);
    const auto cellOrNone = [](u32 field) {
        return L32ToHost(field) == INVALID_RECORD ? 0 : L32ToHost(field);
    };
    _numOfKeys = L32ToHost(nk.numOfKeys);
    _keyListCell = cellOrNone(nk.keyList);
    _numOfValues = L32ToHost(nk.numOfValues);
    _valueListCell = cellOrNone(nk.valueList);
    _record = nk;
    _listType = _hive->versionMinor() == 3 ? keyListLF : keyListLH;
    return true;
}

void KeyObj::readName(const RecordView& record, const hive_record_nk& nk) {
    if (!_parent) {
        // The root key is nameless: paths begin below it, whatever its record says.
        _name.set(String::create());
        return;
    }
    const bool compressed = (L16ToHost(nk.flags) & hive_record_nk::FLAG_COMPRESSED_NAME) != 0;
    const Ref<String> name = decodeName(record, sizeof(nk), L16ToHost(nk.nameLength), compressed, _codepage);
    _name.set(name);
    if (!name)
        log(3, Channel::hive,
            "Name of key could not be converted from codepaged name to Ref<String>. key:", _recordOfs);
}

void KeyObj::setParent(Ref<KeyObj> parent) {
    _parent = std::move(parent);
    const u32 oldDepth = _depth;
    _depth = _parent ? _parent->_depth + 1 : 0;
    if (_depth == oldDepth) return;
    for (u32 i = 0; i < _keyList.size(); ++i)
        if (const Ref<KeyObj> live = _keyList.at(i).key.lock()) live->setParent(Ref<KeyObj>(this));
}

bool KeyObj::syncKeyRecord() {
    const auto* fixedPart = reinterpret_cast<const u8*>(&_record) + sizeof(_record.size);
    return _hive->writeRecord(_recordOfs, fixedPart, sizeof(_record.size),
                              sizeof(_record) - sizeof(_record.size));
}

/// What every changing operation asks first; false with the error code set on a read-only key.
bool KeyObj::canChange() const {
    return _valid && (!_readOnly || ErrorCode::fail(ErrorCode::readOnly));
}

}  // namespace Libraries::Files::Hive
