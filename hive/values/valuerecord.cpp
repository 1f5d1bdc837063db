#include "hive/values/valuerecord.h"

#include "hive/hivelog.h"
#include "hive/nameencoding.h"

namespace Libraries::Files::Hive {

namespace {

constexpr u32 FIRST_HASH = 2166136261;

u32 hashedWith(u32 hash, char16_t unit) {
    return (hash ^ String::upperUnit(unit)) * 16777619;
}

}  // namespace

bool ValueRecord::load(RegistryHiveObj& hive, u32 offset) {
    _hive = &hive;
    _offset = offset;
    _codepage = hive.codepage();
    _view = hive.cacheLoadRecord(offset);
    if (!_view) {
        log(3, Channel::hive, "Failed to get hive record for value: ", offset);
        return false;
    }
    if (!_view.isOf(hive_record_vk::SIGNATURE)) {
        log(4, Channel::hive, "Value record is no vk record: ", offset);
        return false;
    }
    assertCondition(_view.size() <= 0, "-static_cast<s32>(L32ToHost(hr->size)) >= 0",
                    "Libraries::Files::Hive::ValueObj::ValueObj");
    _vk = _view.as<hive_record_vk>();
    if (u64{L16ToHost(_vk.nameLength)} + sizeof(_vk) > _view.usedSize()) {
        log(4, Channel::hive, "Name of value exceeds length of record");
        log(1, Channel::hive, "Record: size ", static_cast<s32>(L32ToHost(static_cast<u32>(_vk.size))),
            " name length ", L16ToHost(_vk.nameLength), " data size ", L32ToHost(_vk.dataSize), " data ",
            L32ToHost(_vk.data_or_offset), " type ", L32ToHost(_vk.type), " flags ", L16ToHost(_vk.flags));
        return false;
    }
    return true;
}

bool ValueRecord::peek(RegistryHiveObj& hive, u32 offset) {
    _hive = &hive;
    _offset = offset;
    _codepage = hive.codepage();
    _view = hive.peekRecord(offset);
    if (!_view || !_view.isOf(hive_record_vk::SIGNATURE)) return false;
    _vk = _view.as<hive_record_vk>();
    return u64{L16ToHost(_vk.nameLength)} + sizeof(_vk) <= _view.usedSize() && isDataLengthSound();
}

bool ValueRecord::checkDataLength() const {
    if (isDataLengthSound()) return true;
    log(4, Channel::hive, "Invalid length of data! Data is resident, size is: ", dataSize());
    return ErrorCode::fail(ErrorCode::inconsistentData);
}

Ref<String> ValueRecord::name(const Ref<String>& likely) const {
    const u16 length = L16ToHost(_vk.nameLength);
    const auto isName = [&](const Ref<String>& units) {
        return units && isDecodedName(units->view(), _view, sizeof(_vk), length, isCompressed(), _codepage);
    };
    if (isName(likely)) return likely;
    const u8* const stored = length <= NameCache::MAX_LENGTH ? _view.bytesAt(sizeof(_vk), length) : nullptr;
    Ref<String>* const kept = stored ? &_hive->valueNames().slot(stored, length) : nullptr;
    if (kept && isName(*kept)) return *kept;
    Ref<String> name = decodeName(_view, sizeof(_vk), length, isCompressed(), _codepage);
    if (kept && name) *kept = name;
    if (!name)
        log(3, Channel::hive,
            "Name of value could not be converted from codepaged name to Ref<String>. value:", _offset);
    return name;
}

bool ValueRecord::copyName(std::span<char16_t> units, u32& length) const {
    return copyPlainName(_view, sizeof(_vk), L16ToHost(_vk.nameLength), isCompressed(), _codepage, units,
                         length);
}

bool ValueRecord::nameHash(u32& hash) const {
    const u16 length = L16ToHost(_vk.nameLength);
    const u8* const bytes = _view.bytesAt(sizeof(_vk), length);
    if (bytes && isCompressed() && isPlainName(bytes, length, _codepage)) {
        hash = FIRST_HASH;
        for (u32 i = 0; i < length; ++i) hash = hashedWith(hash, bytes[i]);
        return true;
    }
    const Ref<String> own = name();
    if (own) hash = hashOf(own->view());
    return bool(own);
}

u32 ValueRecord::hashOf(std::u16string_view name) {
    u32 hash = FIRST_HASH;
    for (const char16_t unit : name) hash = hashedWith(hash, unit);
    return hash;
}

}  // namespace Libraries::Files::Hive
