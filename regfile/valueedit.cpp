#include "regfile/valueedit.h"

#include <optional>

#include "hive/keys/keyobj.h"
#include "hive/values/valueobj.h"
#include "platform/iochar/stringutil.h"

namespace Libraries::Files::Hive {

namespace {

/// Spacers of the data's own length it may take: the second lies behind the first, so its cell's offset
/// suffices, but the first may have filled a hole behind the second.
constexpr u32 MAX_SPACERS = 4;

/// Holds the monitor of a key's hive; nothing for a key that is no hive file's.
class HiveGuard {
 public:
    explicit HiveGuard(const Ref<Key>& key) {
        if (const Ref<KeyObj> own = refCast<KeyObj>(key)) _guard.emplace(own->hive()->monitor());
    }

 private:
    std::optional<MonGuard> _guard;
};

/// Values that take up room while another one is placed; gone with this object.
class Spacers {
 public:
    explicit Spacers(Ref<Key> key) : _key(std::move(key)) {}
    ~Spacers() {
        while (!_values.empty()) {
            _key->deleteValue(_values.back());
            _values.pop_back();
        }
    }
    Spacers(const Spacers&) = delete;
    Spacers& operator=(const Spacers&) = delete;

    bool add(u32 size) {
        const Ref<String> stem = String::create(u"spacer ");
        Ref<String> name;
        for (u64 i = 0; !name || _key->value(name); ++i) name = stem->concat(StrConv::str(i, 10));
        const Ref<Value> value = _key->createValue(name, Value::valueBinary);
        if (!value) return false;
        _values.push_back(value);
        return value->size(size) == size;
    }

 private:
    const Ref<Key> _key;
    Array<Ref<Value>> _values;
};

void appendUnit(Array<u8>& data, char16_t unit) {
    data.push_back(static_cast<u8>(unit));
    data.push_back(static_cast<u8>(unit >> 8));
}

bool write(const Ref<Value>& value, const void* data, u32 size) {
    return value->write(ShPtr::fromConst(data), 0, size) == size;
}

/// Gives the data another place, as far from the hive's start as it takes. A failure keeps the error code it
/// came with.
bool writeElsewhere(const Ref<Key>& key, const Ref<Value>& value, const void* data, u32 size) {
    const u32 code = Error::get();
    {
        Spacers spacers(key);
        for (u32 i = 0; i < MAX_SPACERS; ++i) {
            if (value->size(0) != 0 || !spacers.add(size) || value->size(size) != size) break;
            if (write(value, data, size)) return true;
        }
    }
    Error::set(code);
    return false;
}

}  // namespace

ValueEdit::Result ValueEdit::setData(const Ref<Key>& key, const Ref<Value>& value, const void* data,
                                     u32 size) {
    const HiveGuard guard(key);
    if (value->size(size) != size) return resizeFailed;
    return write(value, data, size) || writeElsewhere(key, value, data, size) ? done : writeFailed;
}

bool ValueEdit::setString(const Ref<Key>& key, const Ref<Value>& value, std::u16string_view text) {
    const HiveGuard guard(key);
    const auto own = refCast<ValueObj>(value);
    if (own ? own->setUnits(text) : value->setString(String::create(text))) return true;
    if (Error::get() != ErrorCode::shortWrite) return false;
    Array<u8> data;
    for (const char16_t unit : text.substr(0, text.find(u'\0'))) appendUnit(data, unit);
    appendUnit(data, 0);
    return writeElsewhere(key, value, data.data(), static_cast<u32>(data.size()));
}

bool ValueEdit::setStrings(const Ref<Key>& key, const Ref<Value>& value,
                           const Ref<TVector<Ref<String>>>& texts) {
    const HiveGuard guard(key);
    if (value->setStrings(texts)) return true;
    if (Error::get() != ErrorCode::shortWrite) return false;
    Array<u8> data;
    for (const Ref<String>& text : *texts) {
        for (const char16_t unit : text->view()) appendUnit(data, unit);
        appendUnit(data, 0);
    }
    appendUnit(data, 0);
    return writeElsewhere(key, value, data.data(), static_cast<u32>(data.size()));
}

bool ValueEdit::settleList(const Ref<Key>& key) {
    const HiveGuard guard(key);
    Spacers spacers(key);
    return spacers.add(0);
}

}  // namespace Libraries::Files::Hive
