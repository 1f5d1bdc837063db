#include <algorithm>

#include "hive/hivelog.h"
#include "hive/keys/keyobj.h"
#include "hive/plainpath.h"

namespace Libraries::Files::Hive {

namespace {

/// Reads the record of a subkey, with the log lines of building an object.
bool loadSubkey(RegistryHiveObj& hive, u32 offset, u32 depth, KeyRecord& record) {
    if (record.load(hive, offset, depth)) return true;
    log(3, Channel::hive, "New created KeyObj not valid");
    return false;
}

void logUnreadable(u32 index) {
    log(3, Channel::hive, "Failed to open sub key for binary search. key: ", index);
}

}  // namespace

/// Whether the list has an entry at an index; loads the list.
bool KeyObj::hasSubkey(u32 index) {
    if (!_valid || index >= _numOfKeys || !initSubkeys()) return false;
    const u64 size = _known ? _known->subkeys().size() : _keyList.size();
    assertCondition(size == _numOfKeys, "_keyList.size() == _numOfKeys",
                    "Libraries::Files::Hive::KeyObj::key");
    return index < size;
}

/// The object of the subkey at an index if anybody holds it. REQUIRES: hasSubkey(index).
Ref<KeyObj> KeyObj::liveSubkey(u32 index) {
    return _known ? _known->object(index) : _keyList.at(index).key.lock();
}

/// Has what a search finds out about this key and its subkeys known to later objects for it: where nothing
/// can change and a way leads from the root here through keys that are known.
void KeyObj::becomeKnown() {
    if (PLAIN_PATH || _known || !_readOnly || !_name.get()) return;
    const Ref<KnownKey> parent = _knownParent || !_parent ? _knownParent : _parent->_known;
    const bool reachable = _depth == 0 || (parent && _place != NO_INDEX);
    if (!reachable || _keyList.size() > KnownKeys::MAX_SUBKEYS || !_hive->knownKeys().hasRoom()) return;
    _known = makeRef<KnownKey>(_record, _name.get(), _keyList, parent, _place);
    _keyList.clear();
    _hive->knownKeys().add(_known);
}

Ref<KeyObj> KeyObj::key(u32 index) {
    const MonGuard guard(_hive->monitor());
    return hasSubkey(index) ? openSubkey(index) : nullptr;
}

bool KeyObj::copyLeaf(u32 index, LeafCopy& copy) {
    const MonGuard guard(_hive->monitor());
    if (PLAIN_PATH || !_valid || !_subkeysLoaded || _depth >= MAX_KEY_DEPTH) return false;
    const u64 listed = _known ? _known->subkeys().size() : _keyList.size();
    return index < listed && copy.take(*_hive, subkeyRecord(index));
}

/// The subkey at an index, which is likely to have this name (may be null). REQUIRES: hasSubkey(index).
Ref<KeyObj> KeyObj::openSubkey(u32 index, const Ref<String>& likelyName) {
    if (_known) return openKnownSubkey(_known, index, Ref<KeyObj>(this));
    SubkeyEntry& entry = _keyList.at(index);
    if (Ref<KeyObj> live = entry.key.lock()) return live;
    auto built = makeRef<KeyObj>(_hive, entry.record, Ref<KeyObj>(this), likelyName);
    built->_place = index;
    if (built->valid())
        entry.key = WeakRef<KeyObj>(built);
    else
        log(3, Channel::hive, "New created KeyObj not valid");
    return built;
}

/// The subkey at an index of a key that is known. `above` is its object or, where there is none, the nearest
/// above it. With none for the keys between, the subkey's object is a distant one, of which there are a few
/// at most; else they are made.
Ref<KeyObj> KeyObj::openKnownSubkey(const Ref<KnownKey>& known, u32 index, const Ref<KeyObj>& above) {
    RegistryHiveObj& hive = *above->_hive;
    hive.bringNear(known->subkeys()[index].record);  // which making the object takes as long as
    if (Ref<KeyObj> live = known->object(index)) return live;
    WeakRef<KeyObj>* const distant = above->_known == known ? nullptr : hive.knownKeys().roomForDistant();
    const Ref<KeyObj> parent = distant ? above : openKnown(known, above);
    if (!parent->_valid) return parent;
    auto built = makeRef<KeyObj>(known, index, parent);
    if (!built->_valid) {
        log(3, Channel::hive, "New created KeyObj not valid");
        return built;
    }
    hive.knownKeys().keepObject(*known, index, built);
    if (distant) *distant = WeakRef<KeyObj>(built);
    if (built->_known) built->holdFromBelow();
    return built;
}

/// The object of a key that is known; `above` as there.
Ref<KeyObj> KeyObj::openKnown(const Ref<KnownKey>& known, const Ref<KeyObj>& above) {
    if (above->_known == known || !known->parent()) return above;
    return openKnownSubkey(known->parent(), known->place(), above);
}

/// Has this new object held by the distant ones below it, as by all subkeys: a key keeps the objects of all
/// keys above it.
void KeyObj::holdFromBelow() {
    for (const WeakRef<KeyObj>& weak : _hive->knownKeys().distant()) {
        const Ref<KeyObj> key = weak.lock();
        if (!key || key->_parent->_depth >= _depth) continue;
        const KnownKey* above = key->_knownParent.get();
        while (above && above->depth() > _depth) above = above->parent().get();
        if (above == _known.get()) key->_parent = Ref<KeyObj>(this);
    }
}

/// How the upper-cased name of the subkey at `index` compares with `name`. It is seen in the record, with the
/// log lines and error codes of building an object; one that is there or has to be built becomes `object`.
/// A name that is null counts as empty. False when the subkey has no sound record.
bool KeyObj::compareSubkey(u32 index, const FoldedName& name, int& order, bool& isEmpty,
                           Ref<KeyObj>& object) {
    if (!hasSubkey(index)) return false;
    object = PLAIN_PATH ? openSubkey(index) : liveSubkey(index);
    if (!object) {
        KeyRecord record;
        if (!loadSubkey(*_hive, subkeyRecord(index), _depth + 1, record)) return false;
        if (record.compareName(name, order, isEmpty)) return true;
        object = openSubkey(index);  // which tells why it has no name
    }
    const Ref<String> own = object->name();
    isEmpty = !own || own->isEmpty();
    order = name.compareOther(own ? own->view() : std::u16string_view());
    return object->valid();
}

Ref<Key> KeyObj::key(Ref<String> name) {
    const MonGuard guard(_hive->monitor());
    if (!_valid) return nullptr;
    if (name) return binaryFindKey(name->view(), nullptr);
    Error::set(ErrorCode::nullArgument);
    return nullptr;
}

Ref<KeyObj> KeyObj::findPath(PathNames& names) {
    const MonGuard guard(_hive->monitor());
    Ref<KeyObj> current(this);      // of the key the names have led to, if there is an object
    Ref<KeyObj> nearest = current;  // the same, or the last one above it
    Ref<KnownKey> known = _known;   // of the key the names have led to, if it is known
    for (std::u16string_view name; names.next(name);) {
        u32 index = 0;
        const Outcome outcome =
            known ? searchKnown(*_hive, *known, FoldedName(name), index) : Outcome::irregular;
        if (outcome == Outcome::irregular) {
            if (!current) current = openKnown(known, nearest);
            current = current->_valid ? current->binaryFindKey(name, nullptr) : nullptr;
            if (!current) return nullptr;
            nearest = current;
            known = current->_known;
            continue;
        }
        if (outcome != Outcome::found) return nullptr;
        Ref<KnownKey> next = known->subkeys()[index].key;
        current = next ? known->object(index) : openFound(known, index, nearest);
        if (!next && !current) return nullptr;
        if (current) nearest = current;
        known = std::move(next);
    }
    if (!current) current = openKnown(known, nearest);
    return current->_valid ? current : nullptr;
}

/// The subkey at which a search in a known key ended; null, with a log line, when it is unreadable.
Ref<KeyObj> KeyObj::openFound(const Ref<KnownKey>& known, u32 index, const Ref<KeyObj>& above) {
    Ref<KeyObj> found = openKnownSubkey(known, index, above);
    if (found->_valid) return found;
    logUnreadable(index);
    return nullptr;
}

/// The search by halves in a key that is known, whose caller holds it; `place` as in `binaryFindKey`. Learns
/// the names it comes by. What those do not tell is irregular, and left, without a word, to the search among
/// objects.
KeyObj::Outcome KeyObj::searchKnown(RegistryHiveObj& hive, KnownKey& known, const FoldedName& name,
                                    u32& place) {
    u32 min = 0;
    u32 end = static_cast<u32>(known.subkeys().size());
    while (min < end) {
        const u32 mid = KnownKey::middle(min, end);
        if (!known.knowsName(mid)) {
            if (known.object(mid)) return Outcome::irregular;
            // Where the search goes on is not known before the record is here: have both records come.
            if (min < mid) hive.bringNear(known.subkeys()[KnownKey::middle(min, mid)].record);
            if (mid + 1 < end) hive.bringNear(known.subkeys()[KnownKey::middle(mid + 1, end)].record);
            KeyRecord record;
            if (!loadSubkey(hive, known.subkeys()[mid].record, known.depth() + 1, record)) {
                logUnreadable(mid);
                place = NO_INDEX;
                return Outcome::unreadable;
            }
            hive.knownKeys().keepName(known, mid, record);
            if (!known.knowsName(mid)) return Outcome::irregular;
        }
        const int order = known.compareName(mid, name);
        if (order == 0) {
            place = mid;
            return Outcome::found;
        }
        if (order < 0)
            min = mid + 1;
        else
            end = mid;
    }
    place = min;
    Error::set(ErrorCode::noSuchKey);
    return Outcome::missing;
}

/// Has the records on the way of a search brought near at once, instead of one after the other as it gets to
/// them. Where it will end the hash tells, most likely; nothing depends on that.
void KeyObj::foresee(const FoldedName& name) const {
    constexpr u64 enough = 64;  // with more entries, looking for the hash takes longer than the search
    if (PLAIN_PATH || _listType != keyListLH || _keyList.sublists() != 1) return;
    const Array<SubkeyEntry>& entries = _keyList.sublist(0).entries;
    if (entries.size() > enough) return;
    u32 hash = 0;
    for (const char16_t unit : name.view()) hash = hash * 37 + unit;
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [hash](const SubkeyEntry& entry) { return entry.hash.hash == hash; });
    if (found == entries.end()) return;
    const auto end = static_cast<u32>(found - entries.begin());
    u32 min = 0;
    u32 max = static_cast<u32>(entries.size()) - 1;
    for (u32 mid = max / 2; mid != end; mid = min + (max - min) / 2) {
        _hive->bringNear(entries[mid].record);
        if (mid < end)
            min = mid + 1;
        else
            max = mid - 1;
    }
    _hive->bringNear(found->record);
}

Ref<KeyObj> KeyObj::binaryFindKey(std::u16string_view name, u32* position) {
    constexpr auto function = "Libraries::Files::Hive::KeyObj::binaryFindKey";
    u32 unwanted = 0;
    u32& place = position ? *position : unwanted;
    const u32 round = _hive->cacheRound();
    bool saidNothing = !PLAIN_PATH;
    const auto missing = [&](u32 insertAt) {
        place = insertAt;
        Error::set(ErrorCode::noSuchKey);
        // Once more, all it looks at would be at hand.
        if (saidNothing && _hive->cacheRound() == round) _missedAt = insertAt;
        return Ref<KeyObj>();
    };
    _missedAt = NO_INDEX;
    if (_numOfKeys == 0) return missing(0);
    place = NO_INDEX;
    u32 min = 0;
    u32 max = _numOfKeys - 1;
    u32 mid = max / 2;
    const FoldedName wanted(name);
    const bool listed = initSubkeys();
    if (listed) {
        foresee(wanted);
        becomeKnown();
    }
    if (_known) {
        const Outcome outcome = searchKnown(*_hive, *_known, wanted, place);
        if (outcome == Outcome::found) return openFound(_known, place, Ref<KeyObj>(this));
        if (outcome != Outcome::irregular) return nullptr;
        place = NO_INDEX;
    }
    for (;;) {
        int order = 0;
        bool isEmpty = false;
        Ref<KeyObj> other;  // kept while a linear search may come by it again
        bool readable = listed && compareSubkey(mid, wanted, order, isEmpty, other);
        if (other && !other->name()) saidNothing = false;
        const bool fallBack = readable && isEmpty && (_hive->mode() & HiveFile::modeLinearFallback);
        const bool found = readable && order == 0 && !fallBack;
        if (found) {
            if (!other) other = openSubkey(mid);
            readable = other->valid();
        }
        if (!readable) {
            logUnreadable(mid);
            return nullptr;
        }
        if (fallBack) {
            log(3, Channel::hive, "Can't get name of other key for binary search, using linear fallback");
            return linearFindKey(name, position);
        }
        if (found) {
            place = mid;
            return other;
        }
        assertCondition(mid >= min && mid <= max, "mid >= min && mid <= max", function);
        if (order < 0) {
            if (mid == max) return missing(max + 1);
            assertCondition(min != max, "min != max", function);
            min = mid + 1;
        } else {
            if (mid == min) return missing(min);
            assertCondition(min != max, "min != max", function);
            max = mid - 1;
        }
        assertCondition(min <= max, "min <= max", function);
        mid = min + (max - min) / 2;
    }
}

Ref<KeyObj> KeyObj::linearFindKey(std::u16string_view name, u32* position) {
    if (!_valid) return nullptr;
    const FoldedName wanted(name);
    for (u32 i = 0; i < _numOfKeys; ++i) {
        const Ref<KeyObj> other = key(i);
        if (!other || !other->valid()) {
            log(3, Channel::hive, "Failed to get key with index: ", i);
            if (!_subkeysLoaded) break;  // no list, whatever number of subkeys the record claims
            continue;
        }
        const Ref<String> otherName = other->name();
        if (!otherName || wanted.compareOther(otherName->view()) != 0) continue;
        if (position) *position = i;
        return other;
    }
    if (position) *position = NO_INDEX;
    Error::set(ErrorCode::noSuchKey);
    return nullptr;
}

}  // namespace Libraries::Files::Hive
