#pragma once

#include <string>

#include "tool/context.h"
#include "tool/valuetext.h"

namespace HiveCtl {

/// Enumerates subkeys and values below one key for all commands that look at more than one. What cannot be
/// read is complained about, a line each, and left out; the rest goes on. A file whose lists run in circles
/// ends the walk with a Failure once more was met than the file has room for.
class Walk {
 public:
    explicit Walk(const KeyAt& start) : _start(start.path), _budget(start.key) {}

    /// Calls `visit(const KeyAt& subkey, const Ref<String>& name)` for every subkey.
    template <typename Visitor>
    void subkeys(const KeyAt& at, Visitor visit) {
        const Ref<KeyIterator> subkeys = at.key->keyIterator();
        for (u32 i = 0, count = subkeys ? subkeys->count() : 0; i < count; ++i) {
            const Ref<Key> subkey = nextSubkey(*subkeys, at, i, count);
            if (!subkey) break;
            if (const Ref<String> name = nameOf(subkey, at, i))
                visit(KeyAt{subkey, childPathOf(at, name)}, name);
        }
    }
    /// Calls `visit(const Ref<Value>& value, const Ref<String>& name)` for every value.
    template <typename Visitor>
    void values(const KeyAt& at, Visitor visit) {
        const Ref<ValueIterator> values = at.key->valueIterator();
        for (u32 i = 0, count = values ? values->count() : 0; i < count; ++i) {
            const Ref<Value> value = nextValue(*values, at, i, count);
            if (!value) break;
            if (const Ref<String> name = nameOf(value, at, i)) visit(value, name);
        }
    }

    /// Complains that a value's data cannot be read, for the reason in `Error::get()`.
    void unreadableData(const KeyAt& at, const Ref<String>& name);

    /// Bounds the data looked at.
    WalkBudget& budget() { return _budget; }
    /// `exitDone`, or `exitFailed` when something was left out.
    ExitCode exitCode() const { return _complete ? exitDone : exitFailed; }
    bool complete() const { return _complete; }

 private:
    Ref<Key> nextSubkey(KeyIterator& subkeys, const KeyAt& at, u32 index, u32 count);
    Ref<Value> nextValue(ValueIterator& values, const KeyAt& at, u32 index, u32 count);
    /// Null, with a complaint, when the entry or its name cannot be read.
    Ref<String> nameOf(const Ref<Key>& key, const KeyAt& at, u32 index);
    Ref<String> nameOf(const Ref<Value>& value, const KeyAt& at, u32 index);
    static std::u16string childPathOf(const KeyAt& at, const Ref<String>& name);
    void takeEntry();
    void problem(const std::string& text);

    const std::u16string _start;
    WalkBudget _budget;
    bool _complete = true;
};

}  // namespace HiveCtl
