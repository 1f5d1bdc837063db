#include "hive/hivelog.h"
#include "hive/nameencoding.h"
#include "hive/values/stripevalue.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

namespace {

constexpr u64 NO_NUMBER = ~u64{0};

}  // namespace

/// Makes sure that the data's cells hold its length before anybody allocates room for it; true where there is
/// nothing to check.
bool ValueObj::dataIsThere() {
    if (_dataResident) return true;
    const bool there = isSingleForGood() ? bool(loadSingle()) : initExtents();
    return there && _dataSize <= _hive->hbinsSize();
}

/// The first `units` UTF-16 units of the data; false when they cannot all be read.
bool ValueObj::readUnits(u32 units, Utf16Buffer& text) {
    const u32 bytes = units * 2;
    text.resize(dataIsThere() ? units : 0);
    const u32 got = read(ShPtr(text.data()), 0, static_cast<u32>(text.size() * 2));
    if (got != bytes) {
        log(3, Channel::hive, "Wrong read result when reading string, record =", _recordOfs);
        if (_type == valueStrings) return false;
        log(1, Channel::hive, "string length (bytes):", bytes);
        log(1, Channel::hive, "read result:", got);
        return false;
    }
    if constexpr (!hostIsLittleEndian)
        for (char16_t& unit : text) unit = L16ToHost(unit);
    return true;
}

Ref<String> ValueObj::string(u32 maxLength) {
    const MonGuard guard(_hive->monitor());
    Utf16Buffer text;
    if (!_valid || (_type != valueString && _type != valueExpandString)) {
        ErrorCode::fail(_valid ? ErrorCode::wrongType : ErrorCode::invalidObject);
        return nullptr;
    }
    const u32 units = _dataSize / 2;
    if (units > maxLength || (units == 0 && _dataSize == 1)) {
        ErrorCode::fail(units > maxLength ? ErrorCode::tooLong : ErrorCode::oneByteString);
        return nullptr;
    }
    if (units == 0) return String::create();
    if (!readUnits(units, text)) return nullptr;
    text.resize(text.find_last_not_of(u'\0') + 1);
    return String::take(std::move(text));
}

Ref<TVector<Ref<String>>> ValueObj::strings(u32 maxLength) {
    const MonGuard guard(_hive->monitor());
    if (!_valid || _type != valueStrings) {
        ErrorCode::fail(_valid ? ErrorCode::wrongType : ErrorCode::invalidObject);
        return nullptr;
    }
    const u32 units = _dataSize / 2;
    Utf16Buffer text;
    if (units > maxLength) {
        ErrorCode::fail(ErrorCode::tooLong);
        return nullptr;
    }
    if (!readUnits(units, text)) return nullptr;
    // One NUL more than stored: lists whose last NUL is missing exist, and their readers rely on getting
    // them. For the same readers an empty string ends the list, whatever follows.
    text.push_back(u'\0');
    auto list = makeRef<TVector<Ref<String>>>();
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i]) continue;
        if (i == start) return list;
        list->append(String::create(std::u16string_view(text).substr(start, i - start)));
        start = i + 1;
    }
    log(3, Channel::hive, "String list not terminated!, record =", _recordOfs);
    ErrorCode::fail(ErrorCode::listNotTerminated);
    return nullptr;
}

u64 ValueObj::number() {
    const MonGuard guard(_hive->monitor());
    if (!_valid) {
        ErrorCode::fail(ErrorCode::invalidObject);
        return NO_NUMBER;
    }
    const u32 bytes = datasizeFormType(_type);
    if (bytes == 0 || _dataSize != bytes) {
        ErrorCode::fail(bytes == 0 ? ErrorCode::wrongType : ErrorCode::wrongNumberLength);
        return NO_NUMBER;
    }
    u64 raw = 0;
    if (!readAll(&raw, bytes)) {
        log(3, Channel::hive,
            bytes == sizeof(u64) ? "Wrong read result when reading u64 value, record ="
                                 : "Wrong read result when reading u32 value, record =",
            _recordOfs);
        ErrorCode::fail(ErrorCode::shortNumberRead);
        return NO_NUMBER;
    }
    Error::set(ErrorCode::none);  // a stored all-ones number is no failure
    if (_type == valueQword) return L64ToHost(raw);
    u32 word;
    std::memcpy(&word, &raw, sizeof(word));
    return _type == valueDwordBigEndian ? B32ToHost(word) : L32ToHost(word);
}

Ref<Interfaces::Stripe> ValueObj::binary() {
    if (!_valid) {
        ErrorCode::fail(ErrorCode::invalidObject);
        return nullptr;
    }
    return makeRef<StripeValue>(Ref<ValueObj>(this));
}

}  // namespace Libraries::Files::Hive
