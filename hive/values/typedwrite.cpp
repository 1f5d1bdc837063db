#include "hive/hivelog.h"
#include "hive/recordbuilder.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

namespace {

constexpr auto function = "Libraries::Files::Hive::ValueObj::setStrings";

}  // namespace

/// What every writer of typed data asks first, in this order; false with the error code set.
bool ValueObj::canSet(bool typeSuits) const {
    if (!_valid) return ErrorCode::fail(ErrorCode::invalidObject);
    if (_readOnly) return ErrorCode::fail(ErrorCode::readOnly);
    return typeSuits || ErrorCode::fail(ErrorCode::wrongType);
}

/// Makes the data exactly these bytes. The messages are followed by the record offset.
bool ValueObj::replaceData(const void* data, u32 bytes, const char* resizeFailure, const char* writeFailure) {
    if (size(bytes) != bytes) {
        log(3, Channel::hive, resizeFailure, _recordOfs);
        return false;
    }
    if (write(ShPtr::fromConst(data), 0, bytes) != bytes) {
        log(3, Channel::hive, writeFailure, _recordOfs);
        return ErrorCode::fail(ErrorCode::shortWrite);
    }
    return true;
}

bool ValueObj::setString(Ref<String> text) {
    return text ? setUnits(text->view()) : ErrorCode::fail(ErrorCode::nullArgument);
}

bool ValueObj::setUnits(std::u16string_view text) {
    const MonGuard guard(_hive->monitor());
    if (!canSet(_type == valueString || _type == valueExpandString)) return false;
    const std::u16string_view units = text.substr(0, text.find(u'\0'));
    if (units.size() >= UINT32_MAX / 2) return ErrorCode::fail(ErrorCode::tooLong);
    RecordBuilder data;
    data.putUnits(units);
    data.put16(0);
    return replaceData(data.data(), data.size(), "Failed to resize record to set string, record =",
                       "Failed to write new string, record =");
}

bool ValueObj::setStrings(Ref<TVector<Ref<String>>> texts) {
    const MonGuard guard(_hive->monitor());
    if (!texts) return ErrorCode::fail(ErrorCode::nullArgument);
    if (!canSet(_type == valueStrings)) return false;
    u64 room = 1;  // units, were each character to take two
    for (const Ref<String>& text : *texts) {
        if (!text) return ErrorCode::fail(ErrorCode::nullArgument);
        room += 2 * text->length() + 1;
    }
    if (room * 2 > UINT32_MAX) return ErrorCode::fail(ErrorCode::tooLong);
    RecordBuilder data;
    for (const Ref<String>& text : *texts) {
        data.putUnits(text->view());
        data.put16(0);
        assertCondition(data.size() / 2 - 1 < room, "current - 1 < max_len", function);
    }
    data.put16(0);
    return replaceData(data.data(), data.size(), "Failed to resize record to set string list, record =",
                       "Failed to write new string list, record =");
}

bool ValueObj::setNumber(u64 number) {
    const MonGuard guard(_hive->monitor());
    const u32 bytes = datasizeFormType(_type);
    if (!canSet(bytes != 0)) return false;
    if (_dataSize != bytes) return ErrorCode::fail(ErrorCode::wrongNumberLength);
    const bool wide = bytes == sizeof(u64);
    if (!wide && number > UINT32_MAX) return ErrorCode::fail(ErrorCode::numberTooLarge);
    const auto low = static_cast<u32>(number);
    const u64 wideField = HostToL64(number);
    const u32 field = _type == valueDwordBigEndian ? HostToB32(low) : HostToL32(low);
    const void* data = wide ? static_cast<const void*>(&wideField) : &field;
    if (write(ShPtr::fromConst(data), 0, bytes) != bytes) {
        log(3, Channel::hive,
            wide ? "Wrong write result when writing u64 value, record ="
                 : "Wrong write result when writing u32 value, record =",
            _recordOfs);
        return ErrorCode::fail(ErrorCode::shortWrite);
    }
    Error::set(ErrorCode::none);
    return true;
}

}  // namespace Libraries::Files::Hive
