#include "hive/keys/knownkey.h"

#include "hive/keys/keyrecord.h"

namespace Libraries::Files::Hive {

KnownKey::KnownKey(const hive_record_nk& record, Ref<String> name, const SubkeyList& subkeys)
    : _record(record), _name(std::move(name)) {
    _subkeys.reserve(subkeys.size());
    for (u32 j = 0; j < subkeys.sublists(); ++j)
        for (const SubkeyEntry& entry : subkeys.sublist(j).entries) _subkeys.push_back({entry.record});
}

int KnownKey::compareName(u32 index, const FoldedName& other, bool& isEmpty) const {
    const u32 at = _subkeys[index].name;
    const std::u16string_view own = std::u16string_view(_names).substr(std::size_t{at} + 1, _names[at]);
    isEmpty = own.empty();
    return own.compare(other.view());
}

u64 KnownKey::keepName(u32 index, const KeyRecord& record, u32 round) {
    if (round != _round) {
        _round = round;
        _names = {};
        for (Subkey& subkey : _subkeys) subkey.name = NO_NAME;
    }
    const std::size_t at = _names.size();
    const std::size_t capacity = _names.capacity();
    if (at > UINT32_MAX / 2) return 0;
    const bool plain = record.plainName([&](u64 length, auto unitAt) {
        _names.push_back(static_cast<char16_t>(length));
        for (u64 i = 0; i < length; ++i) _names.push_back(String::upperUnit(unitAt(i)));
    });
    if (plain) _subkeys[index].name = static_cast<u32>(at);
    return (_names.capacity() - capacity) * sizeof(char16_t);
}

u64 KnownKey::size() const {
    return sizeof(*this) + sizeof(String) + _name->length() * sizeof(char16_t) +
           _subkeys.capacity() * sizeof(Subkey) + _names.capacity() * sizeof(char16_t);
}

void KnownKeys::setRoot(Ref<KnownKey> key) {
    grew(key->size());
    _root = std::move(key);
}

void KnownKeys::add(const Ref<KnownKey>& parent, u32 index, const Ref<KnownKey>& key) {
    grew(key->size() + sizeof(parent));
    parent->subkeys()[index].key = key;
    _parents.push_back(parent);
}

void KnownKeys::keepName(KnownKey& parent, u32 index, const KeyRecord& record) {
    grew(parent.keepName(index, record, _round));
}

void KnownKeys::grew(u64 bytes) {
    if (_bytes + bytes > MAX_BYTES) forget();
    _bytes += bytes;
}

/// Objects in use keep what they hold until the next name is added to it.
void KnownKeys::forget() {
    for (const Ref<KnownKey>& parent : _parents)
        for (KnownKey::Subkey& subkey : parent->subkeys()) subkey.key.reset();
    _parents = {};
    _root.reset();
    _bytes = 0;
    ++_round;
}

}  // namespace Libraries::Files::Hive
