#include "tool/walk.h"

#include "tool/errortext.h"
#include "tool/failure.h"
#include "tool/keypath.h"
#include "tool/output.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace ErrorCode = Libraries::Files::Hive::ErrorCode;

namespace {

constexpr const char* CODE_PAGE_HINT = ": its name has characters the code page lacks; try --codepage";

std::string entryText(const char* kind, const KeyAt& at, u32 index) {
    return std::string("cannot read ") + kind + " " + std::to_string(u64{index} + 1) + " of " +
           visible(shortened(at.path));
}

std::string listText(const char* kind, const KeyAt& at, u32 index, u32 count) {
    return "cannot read " + std::to_string(count - index) + " of " + std::to_string(count) + " " + kind +
           " of " + visible(shortened(at.path)) + ": " + errorText(Error::get());
}

}  // namespace

Ref<Key> Walk::nextSubkey(KeyIterator& subkeys, const KeyAt& at, u32 index, u32 count) {
    Error::set(ErrorCode::none);
    Ref<Key> subkey = subkeys.next();
    if (!subkey) problem(listText("subkeys", at, index, count));
    takeEntry();
    return subkey;
}

Ref<Value> Walk::nextValue(ValueIterator& values, const KeyAt& at, u32 index, u32 count) {
    Error::set(ErrorCode::none);
    Ref<Value> value = values.next();
    if (!value) problem(listText("values", at, index, count));
    takeEntry();
    return value;
}

Ref<String> Walk::nameOf(const Ref<Key>& key, const KeyAt& at, u32 index) {
    Ref<String> name = key->name();
    if (name) return name;
    // Only a key with a record that could be read can be enumerated.
    if (key->keyIterator())
        problem(entryText("subkey", at, index) + CODE_PAGE_HINT);
    else
        problem(entryText("subkey", at, index) + ": its record is damaged, or lies too deep in the tree");
    return name;
}

Ref<String> Walk::nameOf(const Ref<Value>& value, const KeyAt& at, u32 index) {
    Ref<String> name = value->name();
    if (name) return name;
    Error::set(ErrorCode::none);
    const bool isValid = value->size() != 0 || Error::get() != ErrorCode::invalidObject;
    problem(entryText("value", at, index) + (isValid ? CODE_PAGE_HINT : ": its record is damaged"));
    return name;
}

std::u16string Walk::childPathOf(const KeyAt& at, const Ref<String>& name) {
    return childPath(at.path, name->view());
}

void Walk::unreadableData(const KeyAt& at, const Ref<String>& name) {
    const u32 code = Error::get();
    problem("cannot read the data of value " + shownValueName(name) + " of " + visible(shortened(at.path)) +
            ": " + errorText(code));
}

void Walk::takeEntry() {
    if (_budget.takeEntry()) return;
    throw Failure("stopped below " + visible(shortened(_start)) +
                  ": more keys and values than the file has room for, so its lists are damaged");
}

void Walk::problem(const std::string& text) {
    _complete = false;
    complain(text);
}

}  // namespace HiveCtl
