#include "regfile/util.h"

#include "hive/hivelog.h"
#include "hive/keys/keyobj.h"
#include "hive/pathnotation.h"

namespace Libraries::Files::Hive {

Ref<String> Util::regPathToWindowsStyle(const Ref<String>& path) {
    return pathToWindowsStyle(path);
}

Ref<String> Util::regPathFromWindowsStyle(const Ref<String>& path) {
    return pathFromWindowsStyle(path);
}

namespace {

/// Whether there is a path to follow; else false with the error code set.
bool checkPath(const Ref<Key>& start, const Ref<String>& path) {
    if (!start || !path) return ErrorCode::fail(ErrorCode::nullArgument);
    // On purpose: scripts that build paths find their mistake, and "/" names the start key.
    return !path->isEmpty() || ErrorCode::fail(ErrorCode::wrongArgument);
}

Ref<String> nameOf(const Ref<Key>& key) {
    const Ref<String> name = key->name();
    return name ? name : String::create();
}

/// Removes keys that a failed `openOrCreatePath` made: `created` is the key it began under, then each new
/// one. The walk starts one entry short, so the newest key, and with it all its parents, mostly stay; callers
/// retry the same path and rely on finding what was there.
void cleanUp(const Array<Ref<Key>>& created) {
    for (std::size_t i = created.size(); i-- > 2;) {
        if (created[i - 2]->deleteKey(created[i - 1])) continue;
        log(4, Channel::util, "Failed to remove key ", nameOf(created[i - 1]), " of key ",
            nameOf(created[i - 2]), " for cleanup");
        return;
    }
}

}  // namespace

Ref<Key> Util::openPath(const Ref<Key>& start, const Ref<String>& path) {
    if (!checkPath(start, path)) return nullptr;
    PathNames names(path);
    Ref<Key> current;
    if (const Ref<KeyObj> own = refCast<KeyObj>(start)) {
        current = own->findPath(names);
    } else {
        current = start;
        for (std::u16string_view name; current && names.next(name);)
            current = current->key(String::create(name));
    }
    if (!current) Error::set(ErrorCode::noSuchKey);
    return current;
}

Ref<Key> Util::openOrCreatePath(const Ref<Key>& start, const Ref<String>& path) {
    if (!checkPath(start, path)) return nullptr;
    Ref<Key> current = start;
    Array<Ref<Key>> created;
    PathNames names(path);
    for (std::u16string_view next; names.next(next);) {
        const Ref<String> name = String::create(next);
        Ref<Key> child = current->key(name);
        if (!child) {
            if (Error::get() == ErrorCode::noSuchKey) {
                child = current->createKey(name);
                if (!child) log(4, Channel::util, "Failed to create key ", name, " in key ", nameOf(current));
            }
            if (!child) {
                cleanUp(created);
                Error::set(ErrorCode::pathKeyFailed);
                return nullptr;
            }
            if (created.empty() || !(created.back() == current)) created.push_back(current);
            created.push_back(child);
        }
        current = child;
    }
    return current;
}

bool Util::recursiveKeyDelete(const Ref<Key>& parent, const Ref<Key>& key, u64* deletedKeys) {
    if (!parent || !key) {
        Error::set(ErrorCode::nullArgument);
        return false;
    }
    const Ref<String> name = nameOf(key);
    if (const Ref<KeyIterator> subkeys = key->keyIterator()) {
        while (const Ref<Key> child = subkeys->next()) {
            if (recursiveKeyDelete(key, child, deletedKeys)) continue;
            log(1, Channel::util, "Failed to recursive delete key: ", nameOf(child), " of parent: ", name);
            return false;
        }
    }
    if (const Ref<ValueIterator> values = key->valueIterator()) {
        while (const Ref<Value> value = values->next()) {
            if (key->deleteValue(value)) continue;
            const Ref<String> valueName = value->name();
            log(3, Channel::util, "Failed to delete value: ", valueName ? valueName : String::create());
            log(1, Channel::util, "Error: ", Error::get());
            return false;
        }
    }
    if (!parent->deleteKey(key)) {
        log(3, Channel::util, "Failed to delete key: ", name);
        log(1, Channel::util, "Error: ", Error::get());
        return false;
    }
    if (deletedKeys) ++*deletedKeys;
    return true;
}

}  // namespace Libraries::Files::Hive
