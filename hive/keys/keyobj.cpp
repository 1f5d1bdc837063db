#include "hive/keys/keyobj.h"

#include "hive/hivelog.h"
#include "hive/keys/keyiteratorobj.h"
#include "hive/keys/valueiteratorobj.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

KeyObj::KeyObj(Ref<RegistryHiveObj> hive, u32 recordOfs, Ref<KeyObj> parent, const Ref<String>& likelyName)
    : _hive(std::move(hive)),
      _parent(std::move(parent)),
      _recordOfs(recordOfs),
      _depth(_parent ? _parent->_depth + 1 : 0),
      _codepage(_hive->codepage()),
      _readOnly(_hive->readonly()) {
    if (!_parent) _known = _hive->knownKeys().root();
    _valid = loadRecord(likelyName);
}

KeyObj::KeyObj(Ref<KnownKey> known, u32 place, Ref<KeyObj> above)
    : _hive(above->_hive),
      _parent(std::move(above)),
      _knownParent(std::move(known)),
      _known(_knownParent->subkeys()[place].key),
      _place(place),
      _recordOfs(_knownParent->subkeys()[place].record),
      _depth(_knownParent->depth() + 1),
      _codepage(_hive->codepage()),
      _readOnly(true) {
    _valid = loadRecord(nullptr);
}

KeyObj::~KeyObj() = default;

bool KeyObj::loadRecord(const Ref<String>& likelyName) {
    if (_known) {
        _name.set(_known->name());
        takeRecord(_known->record());
        _subkeysLoaded = true;
        return true;
    }
    KeyRecord record;
    if (!record.load(*_hive, _recordOfs, _depth)) return false;
    // The root key is nameless: paths begin below it, whatever its record says.
    _name.set(_depth == 0 ? String::create() : record.name(likelyName));
    takeRecord(record.fixedPart());
    return true;
}

void KeyObj::takeRecord(const hive_record_nk& record) {
    const auto cellOrNone = [](u32 field) {
        return L32ToHost(field) == INVALID_RECORD ? 0 : L32ToHost(field);
    };
    _record = record;
    _numOfKeys = L32ToHost(_record.numOfKeys);
    _keyListCell = cellOrNone(_record.keyList);
    _numOfValues = L32ToHost(_record.numOfValues);
    _valueListCell = cellOrNone(_record.valueList);
    _listType = _hive->versionMinor() == 3 ? keyListLF : keyListLH;
}

Ref<KeyObj> KeyObj::parent() {
    const MonGuard guard(_hive->monitor());
    return _knownParent ? openKnown(_knownParent, _parent) : _parent;
}

void KeyObj::setParent(Ref<KeyObj> parent) {
    _parent = std::move(parent);
    const u32 oldDepth = _depth;
    _depth = _parent ? _parent->_depth + 1 : 0;
    if (_depth == oldDepth) return;
    // A key that a move left in two lists is the child of one of them only: lists may name each other then.
    for (u32 i = 0; i < _keyList.size(); ++i)
        if (const Ref<KeyObj> live = _keyList.at(i).key.lock(); live && live->_parent.get() == this)
            live->setParent(Ref<KeyObj>(this));
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
