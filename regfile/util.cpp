#include "regfile/util.h"

#include "hive/pathnotation.h"
#include "platform/iochar/stringutil.h"

namespace Libraries::Files::Hive {

Ref<String> Util::regPathToWindowsStyle(const Ref<String>& path) {
    return pathToWindowsStyle(path);
}

Ref<String> Util::regPathFromWindowsStyle(const Ref<String>& path) {
    return pathFromWindowsStyle(path);
}

namespace {

/// The names on a path; null with the error code set when there is nothing to split.
Ref<TVector<Ref<String>>> splitPath(const Ref<Key>& start, const Ref<String>& path) {
    if (!start || !path) {
        Error::set(ErrorCode::nullArgument);
        return nullptr;
    }
    if (path->isEmpty()) {  // on purpose: scripts that build paths find their mistake, and "/" names the
                            // start key
        Error::set(ErrorCode::wrongArgument);
        return nullptr;
    }
    return StringUtil::split(pathToWindowsStyle(path), u'\\');
}

}  // namespace

Ref<Key> Util::openPath(const Ref<Key>& start, const Ref<String>& path) {
    const auto names = splitPath(start, path);
    if (!names) return nullptr;
    Ref<Key> current = start;
    for (const Ref<String>& name : *names) {
        current = current->key(name);
        if (current) continue;
        Error::set(ErrorCode::noSuchKey);
        return nullptr;
    }
    return current;
}

}  // namespace Libraries::Files::Hive
