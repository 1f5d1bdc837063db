#include "tool/naming.h"

#include "platform/iochar/stringutil.h"

namespace HiveCtl {

namespace {

template <typename IsTaken>
Ref<String> unusedName(IsTaken isTaken) {
    const Ref<String> stem = String::create(u"renamed ");
    for (u64 i = 0;; ++i) {
        Ref<String> name = stem->concat(StrConv::str(i, 10));
        if (!isTaken(name)) return name;
    }
}

}  // namespace

Ref<String> unusedValueName(const Ref<Key>& key) {
    return unusedName([&](const Ref<String>& name) { return bool(key->value(name)); });
}

Ref<String> unusedKeyName(const Ref<Key>& key) {
    return unusedName([&](const Ref<String>& name) { return bool(key->key(name)); });
}

}  // namespace HiveCtl
