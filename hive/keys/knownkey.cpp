#include "hive/keys/knownkey.h"

#include <algorithm>
#include <cstring>

#include "hive/keys/keyobj.h"
#include "hive/keys/keyrecord.h"

namespace Libraries::Files::Hive {

namespace {

/// `left.compare(right)`, several units at a time: names of one key often begin alike.
int compareUnits(std::u16string_view left, std::u16string_view right) {
    const std::size_t common = std::min(left.size(), right.size());
    std::size_t i = 0;
    for (u64 a = 0, b = 0; common - i >= sizeof(a) / sizeof(char16_t); i += sizeof(a) / sizeof(char16_t)) {
        std::memcpy(&a, left.data() + i, sizeof(a));
        std::memcpy(&b, right.data() + i, sizeof(b));
        if (a != b) break;
    }
    for (; i < common; ++i)
        if (left[i] != right[i]) return left[i] < right[i] ? -1 : 1;
    return left.size() == right.size() ? 0 : left.size() < right.size() ? -1 : 1;
}

}  // namespace

KnownKey::KnownKey(const hive_record_nk& record, Ref<String> name, const SubkeyList& subkeys,
                   Ref<KnownKey> parent, u32 place)
    : _record(record),
      _name(std::move(name)),
      _parent(std::move(parent)),
      _place(place),
      _depth(_parent ? _parent->_depth + 1 : 0) {
    _subkeys.reserve(subkeys.size());
    for (u32 j = 0; j < subkeys.sublists(); ++j)
        for (const SubkeyEntry& entry : subkeys.sublist(j).entries) {
            if (const Ref<KeyObj> live = entry.key.lock())
                _objects.keep(static_cast<u32>(_subkeys.size()), subkeys.size(), live);
            _subkeys.push_back({.record = entry.record});
        }
}

Ref<KeyObj> KnownKey::object(u32 index) const {
    return _objects.find(index);
}

int KnownKey::compareName(u32 index, const FoldedName& other) const {
    const Subkey& subkey = _subkeys[index];
    if (subkey.head != other.head()) return subkey.head < other.head() ? -1 : 1;
    return compareUnits(nameAt(subkey.name), other.view());
}

void KnownKey::keepName(u32 index, const KeyRecord& record) {
    const std::size_t at = _names.size();
    if (at > UINT32_MAX / 2) return;
    const bool plain = record.plainName([&](u64 length, auto unitAt) {
        _names.resize(at + 1 + toSize(length), static_cast<char16_t>(length));
        char16_t* const units = _names.data() + at + 1;
        for (std::size_t i = 0; i < length; ++i) units[i] = unitAt(i);
        String::upperUnits({units, toSize(length)}, units);
    });
    if (!plain) return;
    _subkeys[index].name = static_cast<u32>(at);
    _subkeys[index].head = FoldedName::headOf(nameAt(_subkeys[index].name));
}

void KnownKey::forgetNames() {
    _names = {};
    for (Subkey& subkey : _subkeys) subkey.head = 0;
}

/// Whether anything holds it besides `KnownKeys` and its parent: an object of it or of a subkey, or a known
/// subkey.
bool KnownKey::isInUse() const {
    return _count.value() > 2;
}

/// Bytes it takes.
u64 KnownKey::size() const {
    return sizeof(*this) + sizeof(Ref<KnownKey>) + sizeof(String) + _name->length() * sizeof(char16_t) +
           _subkeys.capacity() * sizeof(Subkey) + _objects.size() + _names.capacity() * sizeof(char16_t);
}

KnownKeys::~KnownKeys() {
    // A key and its subkeys hold each other.
    for (const Ref<KnownKey>& key : _all) slotOf(*key).reset();
}

Ref<KnownKey>& KnownKeys::slotOf(const KnownKey& key) {
    return key._parent ? key._parent->_subkeys[key._place].key : _root;
}

bool KnownKeys::hasRoom() {
    if (_limit > MAX_BYTES && ++_refused >= _all.size()) letGo();
    return _limit == MAX_BYTES;
}

void KnownKeys::add(const Ref<KnownKey>& key) {
    slotOf(*key) = key;
    _all.push_back(key);
    grew(key->size());
}

void KnownKeys::keepName(KnownKey& parent, u32 index, const KeyRecord& record) {
    const u64 before = parent.size();
    parent.keepName(index, record);
    grew(parent.size() - before);
}

void KnownKeys::keepObject(KnownKey& parent, u32 index, const Ref<KeyObj>& key) {
    const u64 before = parent.size();
    parent._objects.keep(index, static_cast<u32>(parent._subkeys.size()), key);
    grew(parent.size() - before);
}

WeakRef<KeyObj>* KnownKeys::roomForDistant() {
    const auto room = std::find_if(_distant.begin(), _distant.end(),
                                   [](const WeakRef<KeyObj>& key) { return !key.lock(); });
    return room == _distant.end() ? nullptr : room;
}

void KnownKeys::grew(u64 bytes) {
    _bytes += bytes;
    if (_bytes > _limit) letGo();
}

/// What objects in use have to do with stays, with all that leads to it: asked for again by whatever way,
/// they are found there. The names there go; they are soon read again.
void KnownKeys::letGo() {
    _bytes = _refused = 0;
    for (std::size_t i = _all.size(); i-- > 0;) {
        Ref<KnownKey>& key = _all[i];
        if (key->isInUse()) {
            key->forgetNames();
            _bytes += key->size();
        } else {
            slotOf(*key).reset();
            key.reset();
        }
    }
    std::erase(_all, nullptr);
    _limit = std::max(MAX_BYTES, 2 * _bytes);
}

}  // namespace Libraries::Files::Hive
