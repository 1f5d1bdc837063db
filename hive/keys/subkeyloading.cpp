#include "hive/hivelog.h"
#include "hive/keys/keyobj.h"
#include "hive/nameencoding.h"

namespace Libraries::Files::Hive {

namespace {

/// What differs between the list records that name subkeys.
struct ListKind {
    const char* signature;
    u32 entrySize;
    const char* assertion;
    const char* tooLarge;
    const char* tooMany;
    const char* function;
};

constexpr ListKind kinds[] = {
    {hive_record_list::LI, OFFSET_ENTRY_SIZE, "-static_cast<s32>(L32ToHost(li->common.size)) >= 0",
     "Size of items of li list exceeds size of record", "More items in li list than expected",
     "Libraries::Files::Hive::KeyObj::loadLi"},
    {hive_record_list::LH, sizeof(hive_list_entry), "-static_cast<s32>(L32ToHost(lh->common.size)) >= 0",
     "Size of items of lh list exceeds size of record", "More items in lh list than expected",
     "Libraries::Files::Hive::KeyObj::loadLh"},
    {hive_record_list::LF, sizeof(hive_list_entry), "-static_cast<s32>(L32ToHost(lf->common.size)) >= 0",
     "Size of items of lf list exceeds size of record", "More items in lf list than expected",
     "Libraries::Files::Hive::KeyObj::loadLf"},
};
static_assert(keyListLI == 0 && keyListLH == 1 && keyListLF == 2);

}  // namespace

bool KeyObj::initSubkeys() {
    if (!_valid) return false;
    if (_subkeysLoaded) return true;
    if (_keyListCell == 0 && _numOfKeys == 0) {
        _twoLevelList = false;
        _subkeysLoaded = true;
        return true;
    }
    const RecordView record = _hive->cacheLoadRecord(_keyListCell);
    _keyList.clear();
    if (!record || !loadTopList(record)) {
        _keyList.clear();
        return ErrorCode::fail(ErrorCode::badSubkeyList);
    }
    _subkeysLoaded = true;
    return true;
}

bool KeyObj::loadTopList(const RecordView& record) {
    const bool isV13 = _hive->versionMinor() == 3;
    const CharBuffer signature = record.signature();
    const char* refused = nullptr;
    if (signature == hive_record_list::LF) {
        if (isV13) return loadOneLevel(record, keyListLF, "Failed to load lf key list, list: ");
        refused = "Lf list is only expected in V1.3 hive";
    } else if (signature == hive_record_list::LH) {
        if (!isV13) return loadOneLevel(record, keyListLH, "Failed to load lh key list, list: ");
        refused = "Lh list is not expected in V1.3 hive";
    } else if (signature == hive_record_list::LI) {
        if (isV13) return loadOneLevel(record, keyListLI, "Failed to load li (top level) key list:");
        refused = "Li list (top level) is only expected in V1.3 hive";
    } else if (signature == hive_record_list::RI) {
        return loadTwoLevel(record);
    } else {
        log(3, Channel::hive, "Invalid list type for key list: ", record.u16At(sizeof(hive_record)));
        return false;
    }
    log(4, Channel::hive, refused);
    return false;
}

bool KeyObj::loadOneLevel(const RecordView& record, KeyListType type, const char* failure) {
    Array<SubkeyEntry> entries;
    if (_numOfKeys > UINT16_MAX || loadList(record, type, 0, entries) != _numOfKeys) {
        log(3, Channel::hive, failure, _keyListCell);
        return false;
    }
    _keyList.append(_keyListCell, std::move(entries));
    _twoLevelList = false;
    _listType = type;
    return true;
}

bool KeyObj::loadTwoLevel(const RecordView& record) {
    const u32 lists = L16ToHost(record.as<hive_record_list>().count);
    if (record.absoluteSize() < u64{lists} * OFFSET_ENTRY_SIZE + sizeof(hive_record_list)) {
        log(3, Channel::hive, "Size of items of ri list exceeds size of record");
        return false;
    }
    Array<u32> offsets(lists);
    for (u32 i = 0; i < lists; ++i)
        offsets[i] = record.u32At(sizeof(hive_record_list) + u64{i} * OFFSET_ENTRY_SIZE);
    _twoLevelList = true;
    const KeyListType type = _hive->versionMinor() == 3 ? keyListLI : keyListLH;
    // Sublists named again and again must not add up to more subkeys than the file has room for.
    const bool possible = _numOfKeys <= _hive->hbinsSize() / (sizeof(hive_record_nk) + OFFSET_ENTRY_SIZE);
    if (!possible) offsets.clear();
    for (const u32 offset : offsets) {
        const RecordView sublist = _hive->cacheLoadRecord(offset);
        if (!sublist) {
            log(3, Channel::hive, "Failed to load sub list of ri list: ", offset);
            return false;
        }
        if (!sublist.isOf(kinds[type].signature)) {
            log(3, Channel::hive, "Invalid list type for key sub list: ", sublist.signature());
            return false;
        }
        Array<SubkeyEntry> entries;
        loadList(sublist, type, _keyList.size(), entries);
        _keyList.append(offset, std::move(entries));
    }
    if (_keyList.size() != _numOfKeys) {
        log(3, Channel::hive, "Wrong number of items in sublists of ri list");
        return false;
    }
    _listType = type;
    return true;
}

/// Copies the entries of one list record, the first of which is the key's subkey number `start`. Returns
/// their number, 0 on failure. The stored hints and hashes are taken as they are.
u16 KeyObj::loadList(const RecordView& record, KeyListType type, u32 start,
                     Array<SubkeyEntry>& entries) const {
    const ListKind& kind = kinds[type];
    if (!record.isOf(kind.signature)) return 0;
    assertCondition(record.size() <= 0, kind.assertion, kind.function);
    const u16 count = L16ToHost(record.as<hive_record_list>().count);
    if (record.absoluteSize() < u64{count} * kind.entrySize + sizeof(hive_record_list)) {
        log(3, Channel::hive, kind.tooLarge, "record = ", _recordOfs, "recsize = ", record.absoluteSize(),
            "num of items = ", count);
        return 0;
    }
    if (u64{start} + count > _numOfKeys) {
        log(3, Channel::hive, kind.tooMany, "record = ", _recordOfs, "num of items = ", count,
            "offset = ", start, "_numOfKeys = ", _numOfKeys.load());
        return 0;
    }
    entries.reserve(count);
    for (u32 i = 0; i < count; ++i) {
        const u64 at = sizeof(hive_record_list) + u64{i} * kind.entrySize;
        SubkeyHash hash{};
        if (type == keyListLH)
            hash.hash = record.u32At(at + offsetof(hive_list_entry, hint));
        else if (type == keyListLF)
            record.copy(hash.hint, at + offsetof(hive_list_entry, hint), sizeof(hash.hint));
        entries.push_back({record.u32At(at), hash, {}});
    }
    return count;
}

bool KeyObj::makeHash(KeyListType type, const Ref<String>& name, SubkeyHash& hash, bool compressed,
                      bool lenient) const {
    hash = {};
    const auto toByte = [&](char16_t unit, u8& byte) {
        byte = static_cast<u8>(unit);
        if (unit < 128 || charToByte(unit, _codepage, byte)) return true;
        byte = 0;
        return lenient;
    };
    if (type == keyListLF) {
        for (u32 i = 0; i < sizeof(hash.hint) && i < name->length(); ++i)
            if (!toByte(name->charAt(i), hash.hint[i])) return false;
        return true;
    }
    if (type == keyListLH) {
        u32 sum = 0;
        for (const char16_t unit : name->view()) {
            const char16_t upper = String::upperUnit(unit);
            u8 byte = 0;
            if (compressed && !toByte(upper, byte)) return false;
            sum = sum * 37 + (compressed ? byte : upper);
        }
        hash.hash = sum;
        return true;
    }
    log(3, Channel::hive, "Can't calculate hash for hash type: ", static_cast<u32>(type));
    return false;
}

}  // namespace Libraries::Files::Hive
