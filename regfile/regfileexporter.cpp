#include "regfile/regfileexporter.h"

#include "hive/hivelog.h"
#include "platform/iochar/stringutil.h"
#include "regfile/report.h"

namespace Libraries::Files::Hive {

namespace {

constexpr u64 FIRST_READ = 65536;
constexpr auto TOO_MUCH = "More keys and values than the hive can hold: ";

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

}  // namespace

RegFileExporter::RegFileExporter(Ref<CharPrinter> out, Ref<CharPrinter> errorPrinter, bool flag,
                                 bool binaryOnly)
    : _text(std::move(out), binaryOnly), _errorPrinter(std::move(errorPrinter)), _flag(flag) {}

bool RegFileExporter::recursiveExport(const Ref<Key>& key, const Ref<String>& path) {
    _budget.emplace(key);
    _path = path->view();
    return exportKey(key);
}

/// `_path` is the key's path up to its name, and is so again afterwards. The recursion ends with the hive's
/// own limit on the depth of keys: a key below it has no name.
bool RegFileExporter::exportKey(const Ref<Key>& key) {
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
    const std::size_t length = _path.size();
    while (const Ref<Key> subkey = entries.next()) {
        if (!_budget->takeEntry()) return fail(TOO_MUCH);
        _path += u'\\';
        if (!exportKey(subkey)) return false;
        _path.resize(length);
    }
    return !entries.unreadable() || fail("Failed to read the subkeys of: ");
}

bool RegFileExporter::exportValues(const Ref<Key>& key) {
    Entries<ValueIterator> entries(key->valueIterator());
    while (const Ref<Value> value = entries.next()) {
        if (!_budget->takeEntry()) return fail(TOO_MUCH);
        const Ref<String> name = value->name();
        if (!name)
            return fail(_errorPrinter ? "Invalid name of a value. key: "
                                      : "Invalid name of a value. parent: ");
        if (!_budget->takeData(name->length())) return fail(TOO_MUCH);
        if ((_text.binaryOnly() || !exportAsText(value, name)) && !exportAsBinary(value, name)) return false;
    }
    return !entries.unreadable() || fail("Failed to read the values of: ");
}

/// Reports an error about the key whose path `_path` is; returns false.
bool RegFileExporter::fail(const char* message) const {
    return report(_errorPrinter, Channel::regExporter, message, String::create(_path));
}

/// Where a value stands, for messages.
Ref<String> RegFileExporter::placeOf(const Ref<Value>& value) const {
    const Ref<String> name = value->name();
    return StringUtil::joined({_path, u"/", name ? name->view() : std::u16string_view()});
}

/// Writes a string or dword value in its readable form; false when it has none, so that the binary one must
/// do.
bool RegFileExporter::exportAsText(const Ref<Value>& value, const Ref<String>& name) {
    if (value->type() == Value::valueString) {
        const Ref<String> text = value->string(MAX_TEXT_LENGTH);
        if (!text) {
            reportFallback("string", placeOf(value));
            return false;
        }
        _text.string(name->view(), text->view());
        return true;
    }
    if (value->type() != Value::valueDword) return false;
    const u64 number = value->number();
    if (number == ~u64{0}) {
        reportFallback("dword", placeOf(value));
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
    if (!_budget->takeData(count))
        return report(_errorPrinter, Channel::regExporter,
                      "More data than the hive can hold: ", placeOf(value));
    Array<u8> bytes;
    if (!data || !readData(*data, count, bytes))
        return report(_errorPrinter, Channel::regExporter, "Failed to read binary data of: ", placeOf(value));
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
