#include "hive/keys/keyrecord.h"

#include "hive/hivelog.h"
#include "hive/nameencoding.h"

namespace Libraries::Files::Hive {

bool KeyRecord::load(RegistryHiveObj& hive, u32 offset, u32 depth) {
    _offset = offset;
    _codepage = hive.codepage();
    return check(hive, depth) || ErrorCode::fail(ErrorCode::badKeyRecord);
}

bool KeyRecord::check(RegistryHiveObj& hive, u32 depth) {
    if (depth > MAX_DEPTH) {
        log(4, Channel::hive, "Key tree is too deep, key: ", _offset);
        return false;
    }
    _view = hive.cacheLoadRecord(_offset);
    if (!_view) {
        log(3, Channel::hive, "Failed to get hive record for key: ", _offset);
        return false;
    }
    if (!_view.isOf(hive_record_nk::SIGNATURE)) {
        log(3, Channel::hive, "Key record is no nk record: ", _view.signature());
        return false;
    }
    assertCondition(_view.size() <= 0, "-static_cast<s32>(L32ToHost(hr->size)) >= 0",
                    "Libraries::Files::Hive::KeyObj::KeyObj");
    _nk = _view.as<hive_record_nk>();
    if (u64{L16ToHost(_nk.nameLength)} + sizeof(_nk) > _view.absoluteSize()) {
        log(3, Channel::hive, "Name of key exceeds length of record");
        return false;
    }
    return true;
}

bool KeyRecord::peek(RegistryHiveObj& hive, u32 offset) {
    _offset = offset;
    _codepage = hive.codepage();
    _view = hive.peekRecord(offset);
    if (!_view || !_view.isOf(hive_record_nk::SIGNATURE)) return false;
    _nk = _view.as<hive_record_nk>();
    return u64{L16ToHost(_nk.nameLength)} + sizeof(_nk) <= _view.absoluteSize();
}

bool KeyRecord::copyName(std::span<char16_t> units, u32& length) const {
    return copyPlainName(_view, sizeof(_nk), L16ToHost(_nk.nameLength), isCompressed(), _codepage, units,
                         length);
}

Ref<String> KeyRecord::name(const Ref<String>& likely) const {
    const u16 length = L16ToHost(_nk.nameLength);
    if (likely && isDecodedName(likely->view(), _view, sizeof(_nk), length, isCompressed(), _codepage))
        return likely;
    const Ref<String> name = decodedName();
    if (!name)
        log(3, Channel::hive,
            "Name of key could not be converted from codepaged name to Ref<String>. key:", _offset);
    return name;
}

Ref<String> KeyRecord::decodedName() const {
    return decodeName(_view, sizeof(_nk), L16ToHost(_nk.nameLength), isCompressed(), _codepage);
}

bool KeyRecord::compareName(const FoldedName& other, int& order, bool& isEmpty) const {
    const bool plain = plainName([&](u64 length, auto unitAt) {
        isEmpty = length == 0;
        order = other.compareOther(length, unitAt);
    });
    if (plain) return true;
    const Ref<String> own = decodedName();
    if (!own) return false;
    isEmpty = own->isEmpty();
    order = other.compareOther(own->view());
    return true;
}

}  // namespace Libraries::Files::Hive
