#include "regfile/regfileexporter.h"

#include "hive/hivelog.h"
#include "hive/plainpath.h"
#include "hive/values/valueobj.h"
#include "platform/iochar/stringutil.h"
#include "regfile/report.h"

namespace Libraries::Files::Hive {

namespace {

constexpr u64 FIRST_READ = 65536;
constexpr auto TOO_MUCH = "More keys and values than the hive can hold: ";
constexpr auto TOO_MUCH_DATA = "More data than the hive can hold: ";
constexpr auto NO_SUBKEYS = "Failed to read the subkeys of: ";
constexpr auto NO_VALUES = "Failed to read the values of: ";

/// The subkeys or values of a key, as they are when the walk gets to them: others may add and delete some
/// meanwhile. A list that cannot be read gives none, which must not pass for an empty one: the text would
/// look complete.
template <typename Iterator>
class Entries {
 public:
    explicit Entries(Ref<Iterator> iterator)
        : _iterator(std::move(iterator)), _unreadable(_iterator && _iterator->count() > 0) {}

    auto next() {
        auto entry = _iterator ? _iterator->next() : nullptr;
        if (entry || !_iterator || _iterator->count() == 0) _unreadable = false;
        return entry;
    }
    bool unreadable() const { return _unreadable; }

 private:
    const Ref<Iterator> _iterator;
    bool _unreadable;  // it said there are entries and has not given one
};

bool loadList(KeyObj& key) {
    const MonGuard guard(key.hive()->monitor());
    return key.initSubkeys();
}

}  // namespace

RegFileExporter::RegFileExporter(Ref<CharPrinter> out, Ref<CharPrinter> errorPrinter, bool flag,
                                 bool binaryOnly)
    : _text(std::move(out), binaryOnly), _errorPrinter(std::move(errorPrinter)), _flag(flag) {}

bool RegFileExporter::recursiveExport(const Ref<Key>& key, const Ref<String>& path) {
    _budget.emplace(key);
    _path = path->view();
    // A hive that does not change is walked by index.
    const Ref<KeyObj> own = PLAIN_PATH ? nullptr : refCast<KeyObj>(key);
    if (!own || !own->readOnly()) return exportKey(key);
    _hive = own->hive();
    return exportKey(own);
}

/// `_path` is the key's path up to its name, and is so again afterwards. The recursion ends with the hive's
/// own limit on the depth of keys: a key below it has no name.
template <typename AnyKey>
bool RegFileExporter::exportKey(const Ref<AnyKey>& key) {
    const Ref<String> name = key->name();
    if (!name)
        return fail(_errorPrinter ? "Invalid name of a subkey, parent:"
                                  : "Invalid name of a subkey, parent: ");
    if (!_budget->takeData(name->length())) return fail(TOO_MUCH);
    const std::size_t parentLength = _path.size();
    _path += name->view();
    _text.beginSection(_path);
    if (!exportValues(key)) return false;
    _text.endSection();
    if (!_text.good()) return false;  // told once, by whoever flushes the printer
    if (!exportSubkeys(key)) return false;
    _path.resize(parentLength);
    return true;
}

bool RegFileExporter::exportSubkeys(const Ref<Key>& key) {
    Entries<KeyIterator> entries(key->keyIterator());
    while (const Ref<Key> subkey = entries.next())
        if (!exportSubkey(subkey)) return false;
    return !entries.unreadable() || fail(NO_SUBKEYS);
}

bool RegFileExporter::exportSubkeys(const Ref<KeyObj>& key) {
    if (key->keys() && !loadList(*key)) return fail(NO_SUBKEYS);
    for (u32 i = 0; i < key->keys(); ++i) {
        if (key->copyLeaf(i, _leaf)) {
            if (!exportLeaf(*key, i)) return false;
            continue;
        }
        const Ref<KeyObj> subkey = key->key(i);
        if (!subkey) return i != 0 || fail(NO_SUBKEYS);
        if (!exportSubkey(subkey)) return false;
    }
    return true;
}

template <typename AnyKey>
bool RegFileExporter::exportSubkey(const Ref<AnyKey>& key) {
    if (!_budget->takeEntry()) return fail(TOO_MUCH);
    const std::size_t length = _path.size();
    _path += u'\\';
    if (!exportKey(key)) return false;
    _path.resize(length);
    return true;
}

bool RegFileExporter::exportValues(const Ref<Key>& key) {
    Entries<ValueIterator> entries(key->valueIterator());
    while (const Ref<Value> value = entries.next())
        if (!exportValue(value)) return false;
    return !entries.unreadable() || fail(NO_VALUES);
}

bool RegFileExporter::exportValues(const Ref<KeyObj>& key) {
    return exportListed(key->valueList(), [&key] { return key; });
}

/// As `exportSubkey` of the subkey of `parent` at `index`, from `_leaf`.
bool RegFileExporter::exportLeaf(KeyObj& parent, u32 index) {
    if (!_budget->takeEntry()) return fail(TOO_MUCH);
    const std::size_t length = _path.size();
    _path += u'\\';
    if (!_budget->takeData(_leaf.name().size())) return fail(TOO_MUCH);
    _path += _leaf.name();
    _text.beginSection(_path);
    Ref<KeyObj> key;
    if (!exportListed(_leaf.values(), [&] { return key ? key : key = parent.key(index); })) return false;
    _text.endSection();
    _path.resize(length);
    return _text.good();
}

/// Most values are written from their records; a value's object, which `keyObject()` gives, is built where
/// that cannot be done, and tells why if anything is wrong.
template <typename KeyObject>
bool RegFileExporter::exportListed(const ValueListPlace& list, KeyObject keyObject) {
    for (u32 i = 0; i < list.count;) {
        _values.fill(*_hive, list, i);
        const u32 end = i + static_cast<u32>(_values.entries().size());
        for (const ValueBatch::Entry& value : _values.entries()) {
            if (!hasPlainForm(value)) break;
            if (!exportCopy(value)) return false;
            ++i;
        }
        if (i == end && !_values.entries().empty()) continue;
        const Ref<KeyObj> key = keyObject();
        const Ref<ValueObj> value = key ? key->value(i) : nullptr;
        if (!value) return fail(NO_VALUES);
        if (!exportValue(value)) return false;
        ++i;
    }
    return true;
}

bool RegFileExporter::exportValue(const Ref<Value>& value) {
    if (!_budget->takeEntry()) return fail(TOO_MUCH);
    const Ref<String> name = value->name();
    if (!name)
        return fail(_errorPrinter ? "Invalid name of a value. key: " : "Invalid name of a value. parent: ");
    if (!_budget->takeData(name->length())) return fail(TOO_MUCH);
    return (!_text.binaryOnly() && exportAsText(value, name)) || exportAsBinary(value, name);
}

/// Whether the data is of the length its type asks for.
bool RegFileExporter::hasPlainForm(const ValueBatch::Entry& value) const {
    if (_text.binaryOnly()) return true;
    if (value.type == Value::valueString) return value.data.size() != 1;
    return value.type != Value::valueDword || value.data.size() == sizeof(u32);
}

/// As `exportValue`, from a copy. REQUIRES: hasPlainForm(value).
bool RegFileExporter::exportCopy(const ValueBatch::Entry& value) {
    if (!_budget->takeEntry() || !_budget->takeData(value.name.size())) return fail(TOO_MUCH);
    const std::span<const u8> data = value.data;
    if (!_text.binaryOnly() && value.type == Value::valueString) {
        _text.string(value.name, data);
    } else if (!_text.binaryOnly() && value.type == Value::valueDword) {
        u32 field;
        std::memcpy(&field, data.data(), sizeof(field));
        _text.dword(value.name, L32ToHost(field));
        Error::set(ErrorCode::none);  // as reading a number does
    } else {
        _text.beginBinary(value.name, value.type);
        if (!_budget->takeData(data.size())) return failData(TOO_MUCH_DATA, value.name);
        _text.endBinary(data);
    }
    return true;
}

/// Reports an error about the key whose path `_path` is; returns false.
bool RegFileExporter::fail(const char* message) const {
    return report(_errorPrinter, Channel::regExporter, message, String::create(_path));
}

/// The same about a value's data.
bool RegFileExporter::failData(const char* message, std::u16string_view valueName) const {
    return report(_errorPrinter, Channel::regExporter, message, placeOf(valueName));
}

/// Where a value stands, for messages.
Ref<String> RegFileExporter::placeOf(std::u16string_view valueName) const {
    return StringUtil::joined({_path, u"/", valueName});
}

/// Writes a string or dword value in its readable form; false when it has none, so that the binary one must
/// do.
bool RegFileExporter::exportAsText(const Ref<Value>& value, const Ref<String>& name) {
    if (value->type() == Value::valueString) {
        const Ref<String> text = value->string(MAX_TEXT_LENGTH);
        if (!text) {
            reportFallback("string", placeOf(name->view()));
            return false;
        }
        _text.string(name->view(), text->view());
        return true;
    }
    if (value->type() != Value::valueDword) return false;
    const u64 number = value->number();
    if (number == ~u64{0}) {
        reportFallback("dword", placeOf(name->view()));
        return false;
    }
    _text.dword(name->view(), number);
    return true;
}

bool RegFileExporter::exportAsBinary(const Ref<Value>& value, const Ref<String>& name) {
    _text.beginBinary(name->view(), value->type());
    const Ref<Interfaces::Stripe> data = value->binary();
    const u64 count = data ? data->elementCount() : 0;
    if (data)
        assertCondition(data->elementSize() == 1, "bin->elementSize() == 1",
                        "Libraries::Files::Hive::RegFileExporter::recursiveExport", 169);
    if (!_budget->takeData(count)) return failData(TOO_MUCH_DATA, name->view());
    Array<u8> bytes;
    if (!data || !readData(*data, count, bytes))
        return failData("Failed to read binary data of: ", name->view());
    _text.endBinary(bytes);
    return true;
}

/// Reads all data, in pieces: the buffer grows only as bytes do come, whatever length a damaged record
/// claims.
bool RegFileExporter::readData(Interfaces::Stripe& data, u64 count, Array<u8>& bytes) const {
    while (bytes.size() < count) {
        const u64 have = bytes.size();
        const u64 piece = std::min(count - have, std::max<u64>(have, FIRST_READ));
        bytes.resize(toSize(have + piece));
        if (data.read(ShPtr(bytes.data() + have), piece) != piece) return false;
    }
    return true;
}

void RegFileExporter::reportFallback(const char* kind, const Ref<String>& place) {
    if (!_errorPrinter) {
        log(2, Channel::regExporter, "Invalid ", kind, " value, using binary fallback: ", place);
        return;
    }
    report(_errorPrinter, Channel::regExporter, "Invalid ", kind, " value: ", place);
    report(_errorPrinter, Channel::regExporter, "Using binary fallback");
}

}  // namespace Libraries::Files::Hive
