#include "regfile/regfileimporthandler.h"

#include <cstring>

#include "hive/errorcodes.h"
#include "hive/hivelog.h"
#include "hive/keys/keyobj.h"
#include "hive/plainpath.h"
#include "platform/iochar/stringutil.h"
#include "regfile/util.h"
#include "regfile/valueedit.h"

namespace Libraries::Files::Hive {

namespace {

/// Whether the hive would keep the whole name: it cuts names at a NUL, and could end up with two keys or
/// values of one name.
bool storable(const Ref<String>& name) {
    if (name->view().find(u'\0') == std::u16string_view::npos) return true;
    Error::set(ErrorCode::badKeyName);
    return false;
}

/// A key whose hive's monitor is held, so that what a search told goes on being true; of another kind of key
/// nothing is known.
class HeldKey {
 public:
    explicit HeldKey(const Ref<Key>& key) : _own(refCast<KeyObj>(key)) {
        if (_own) _guard.emplace(_own->hive()->monitor());
    }
    KeyObj* own() const { return _own.get(); }

 private:
    const Ref<KeyObj> _own;
    std::optional<MonGuard> _guard;
};

}  // namespace

RegFileImportHandler::RegFileImportHandler(Ref<RegistryHive> hive, const Ref<String>& prefix,
                                           Ref<CharPrinter> errorPrinter, bool verbose)
    : _hive(std::move(hive)),
      _errorPrinter(std::move(errorPrinter)),
      _prefix(prefix->isEmpty() ? prefix : prefix->concat(String::create(u"\\"))),
      _verbose(verbose) {}

bool RegFileImportHandler::begin(Ref<RefCount>) {
    return true;
}

Ref<String> RegFileImportHandler::where() const {
    if (!_source || _source->line() == 0) return String::create();
    return StringUtil::joined({u"line ", StrConv::str(_source->line(), 10)->view(), u": "});
}

/// A piece as text: numbers as the log writes them, or for readers of the printer's line.
Ref<String> RegFileImportHandler::textOf(const Piece& piece) const {
    Ref<String> head = String::from8(piece.text);
    if (piece.number) {
        const Ref<String> hexadecimal = StrConv::str(*piece.number, 16);
        const Ref<String> decimal = StrConv::str(*piece.number, 10);
        head = head->concat(_errorPrinter
                                ? StringUtil::joined({u"0x", hexadecimal->view()})
                                : StringUtil::joined({hexadecimal->view(), u"h (", decimal->view(), u")"}));
    }
    return piece.subject ? StringUtil::joined({head->view(), piece.subject->view()}) : head;
}

/// Reports an error: on the printer as one line, else message and details as lines of the log. Returns false.
bool RegFileImportHandler::fail(std::initializer_list<Piece> message, std::initializer_list<Piece> details) {
    if (!_errorPrinter && !SysLogFilter::enabled(3, Channel::regImporter))
        return false;  // nor then the details
    Ref<String> text = where();
    for (const Piece& piece : message) text = text->concat(textOf(piece));
    if (!_errorPrinter) {
        log(3, Channel::regImporter, text);
        for (const Piece& piece : details) log(1, Channel::regImporter, textOf(piece));
        return false;
    }
    bool blankStands = text->view().ends_with(u' ');  // most messages end in one
    for (const Piece& piece : details) {
        if (!blankStands) text = text->concat(String::create(u" "));
        text = text->concat(textOf(piece));
        blankStands = false;
    }
    _errorPrinter->print(text);
    _errorPrinter->endLine();
    return false;
}

void RegFileImportHandler::note(const char* text, const Ref<String>& subject) const {
    log(1, Channel::regImporter, text, subject);
}

bool RegFileImportHandler::failWithCode(const char* message, const Ref<String>& path) {
    return fail({{message}}, {{"Path: ", path}, {"Error: ", nullptr, Error::get()}});
}

bool RegFileImportHandler::line(Ref<String> text) {
    if (_versionLine) return fail({{"Unexpected value: ", text}}, {});
    _versionLine = text;
    note("Reg file version: ", text);
    return true;
}

/// Done with a section's values: deletions among them may have left the key's value list unsettled.
void RegFileImportHandler::settle() {
    if (_listUnsettled && _current) ValueEdit::settleList(_current);
    _listUnsettled = false;
}

bool RegFileImportHandler::sectionUnits(std::u16string_view name) {
    settle();
    if (!_versionLine) return fail({{"Invalid regfile, section before version string"}}, {});
    const bool deletion = name.starts_with(u'-');
    if (deletion) name.remove_prefix(1);
    if (!name.starts_with(_prefix->view())) return failPrefix(String::create(name));
    name.remove_prefix(toSize(_prefix->length()));
    return deletion ? deleteSection(String::create(name)) : enterSection(name);
}

bool RegFileImportHandler::failPrefix(const Ref<String>& name) {
    if (_errorPrinter)
        return fail({{"Prefix mismatch while importing reg file"}}, {{"Key: ", name}, {"Prefix: ", _prefix}});
    note("Key: ", name);
    note("Prefix: ", _prefix);
    return fail({{"Prefix mismatch"}}, {});
}

/// Makes the key at `path` current, creating what is missing. The key of the section before is held until the
/// new one is reached: with it live all its ancestors, which most sections share, and with them their loaded
/// lists. Keys on the way to both need not be looked up again.
bool RegFileImportHandler::enterSection(std::u16string_view path) {
    Ref<Key> key = _hive->root();
    if (!key) return fail({{"Failed to get root key"}}, {});
    if (!(key == _root)) _steps.clear();
    _root = key;
    std::size_t depth = 0;
    for (std::size_t end, start = 0; start < path.size(); start = end + 1) {
        end = std::min(path.find(u'\\', start), path.size());
        const std::u16string_view element = path.substr(start, end - start);
        if (element.empty()) continue;
        if (depth == _steps.size() || !isStep(_steps[depth], element)) {
            _steps.resize(depth);
            const Ref<String> name = String::create(element);
            const Ref<Key> child = openOrCreate(key, name, path);
            if (!child) return false;
            _steps.push_back({name, child, child->name()});
        }
        key = _steps[depth++].key;
    }
    _steps.resize(depth);
    _current = key;
    return true;
}

/// Whether a look-up of the element would lead to this key again.
bool RegFileImportHandler::isStep(const Step& step, std::u16string_view element) {
    const std::u16string_view own = step.element->view();
    return !PLAIN_PATH && own.size() == element.size() &&
           std::memcmp(own.data(), element.data(), own.size() * sizeof(char16_t)) == 0 && step.name &&
           step.key->name() == step.name;
}

Ref<Key> RegFileImportHandler::openOrCreate(const Ref<Key>& key, const Ref<String>& name,
                                            std::u16string_view path) {
    Ref<Key> child;
    {
        const HeldKey held(_verbose ? nullptr : key);  // not while the caller's printer is at work
        if ((child = key->key(name))) return child;
        if (_verbose) note("Create new key: ", String::create(path));
        if (storable(name)) child = held.own() ? held.own()->createMissingKey(name) : key->createKey(name);
    }
    if (child)
        ++_counts.keysCreated;
    else
        failWithCode("Failed to create key: ", String::create(path));
    return child;
}

/// Deletes the key at `path`, if it exists. No key is current afterwards, so that values below such a line
/// are refused.
bool RegFileImportHandler::deleteSection(const Ref<String>& path) {
    Ref<Key> key = _hive->root();
    if (!key) return fail({{"Failed to get root key"}}, {});
    _current = nullptr;
    _steps.clear();
    Ref<Key> parent;
    const auto names = StringUtil::split(path, u'\\');
    for (const Ref<String>& name : *names) {
        parent = key;
        key = parent->key(name);
        if (key) continue;
        // A list that cannot be read must not pass for one without the key.
        return Error::get() == ErrorCode::noSuchKey || failWithCode("Failed to delete key: ", path);
    }
    if (!Util::recursiveKeyDelete(parent, key, &_counts.keysDeleted))
        return failWithCode("Failed to delete key: ", path);
    return true;
}

bool RegFileImportHandler::valueUnits(std::u16string_view label, std::u16string_view data) {
    Ref<String> name;
    if (label.starts_with(u'@'))
        name = String::create();
    else if (label.size() >= 3 && label.starts_with(u'"') && label.ends_with(u'"'))
        name = String::create(label.substr(1, label.size() - 2));
    else
        return failWithData("Unexpected value: ", String::create(label), data);
    if (!_current) return fail({{"Invalid regfile, first value before first key"}}, {});
    if (data.empty()) return fail({{"Found empty value in regfile, name = ", name}}, {});
    if (data == u"-") {
        const Ref<Value> old = _current->value(name);
        if (!old && Error::get() != ErrorCode::noSuchValue)
            return fail({{"Failed to remove old value: ", name}}, {});
        if (!old) return true;
        _counts.valuesDeleted += _current->deleteValue(old);
        _listUnsettled = true;
        return true;
    }
    if (data.starts_with(u'"')) return setString(name, data);
    if (data.starts_with(u"dword:")) return setDword(name, data);
    if (data.starts_with(u"hex")) return setBinary(name, data);
    return failWithData("Invalid value: ", name, data);
}

bool RegFileImportHandler::failWithData(const char* message, const Ref<String>& name,
                                        std::u16string_view data) {
    return fail({{message, name}}, {{"data: ", String::create(data)}});
}

/// The value of that name and type, reused or made; null with the reason reported.
Ref<Value> RegFileImportHandler::valueToSet(const Ref<String>& name, Value::ValueType type) {
    if (!assertCondition(bool(_current), "_current != 0",
                         "Libraries::Files::Hive::RegFileImportHandler::valueToSet"))
        return nullptr;
    std::optional<HeldKey> held(_current);
    if (const Ref<Value> old = _current->value(name)) {
        if (old->type() == type) return old;
        _listUnsettled = true;
        if (!_current->deleteValue(old)) {
            held.reset();
            fail({{"Failed to remove old value: ", name}}, {});
            return nullptr;
        }
    }
    Ref<Value> created;
    if (storable(name))
        created =
            held->own() ? held->own()->createMissingValue(name, type) : _current->createValue(name, type);
    held.reset();
    // The misspelling is what scripts that read import messages look for.
    if (!created) fail({{"Failed to craete value: ", name}, {" of type: ", nullptr, type}}, {});
    return created;
}

bool RegFileImportHandler::setString(const Ref<String>& name, std::u16string_view data) {
    if (data.size() < 2 || !data.ends_with(u'"')) return failWithData("Invalid string value: ", name, data);
    const Ref<Value> value = valueToSet(name, Value::valueString);
    if (!value) return false;
    // Taken as it stands, backslashes and quotes included: that is how export text is written.
    if (!ValueEdit::setString(_current, value, data.substr(1, data.size() - 2)))
        return fail({{"Failed to set string value: ", name}}, {});
    ++_counts.valuesSet;
    return true;
}

bool RegFileImportHandler::setDword(const Ref<String>& name, std::u16string_view data) {
    u64 number = 0;
    if (!StrConv::num(data.substr(6), number, 16)) return failWithData("Invalid dword value: ", name, data);
    const Ref<Value> value = valueToSet(name, Value::valueDword);
    if (!value) return false;
    if (!value->setNumber(number)) return fail({{"Failed to set dword value: ", name}}, {});
    ++_counts.valuesSet;
    return true;
}

bool RegFileImportHandler::setBinary(const Ref<String>& name, std::u16string_view data) {
    if (!parseHexData(data, _hex)) return failWithData("Invalid hex value: ", name, data);
    const Ref<Value> value = valueToSet(name, static_cast<Value::ValueType>(_hex.type));
    if (!value) return false;
    const auto size = static_cast<u32>(_hex.bytes.size());
    const ValueEdit::Result result = ValueEdit::setData(_current, value, _hex.bytes.data(), size);
    if (result == ValueEdit::resizeFailed) return fail({{"Failed to resize value: ", name}}, {});
    if (result == ValueEdit::writeFailed) return fail({{"Failed to write data of value: ", name}}, {});
    ++_counts.valuesSet;
    return true;
}

}  // namespace Libraries::Files::Hive
