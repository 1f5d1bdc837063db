#include "check/keycheck.h"

#include "check/offsetlist.h"
#include "hive/keys/keyobj.h"
#include "hive/nameencoding.h"

namespace Libraries::Files::Hive {

bool KeyCheck::run(u32 root) {
    hive_record_nk nk;
    if (!openKey(root, CellTable::NONE, nk)) return false;
    _rootSecurity = L32ToHost(nk.security);
    _pending.push_back({root, 0});
    while (!_pending.empty()) {
        const Pending key = _pending.back();
        _pending.pop_back();
        checkKey(key);
    }
    return true;
}

/// Takes a key record and reads its name into `_name`.
bool KeyCheck::openKey(u32 record, u32 owner, hive_record_nk& nk) {
    const TakenCell cell = _context.take(record, CellUse::key, owner);
    if (!cell) return false;
    nk = _context.record(cell, sizeof(nk)).as<hive_record_nk>();
    if (cell.length < sizeof(nk) || std::memcmp(nk.signature, hive_record_nk::SIGNATURE, 2) != 0) {
        _context.fault(record, "no key record");
        return false;
    }
    const u32 length = L16ToHost(nk.nameLength);
    if (sizeof(nk) + length > cell.length) {
        _context.fault(record, "name of " + countText(length, "byte") + " runs past its cell");
        return false;
    }
    ++_context.counts.keys;
    const bool isRoot = owner == CellTable::NONE;  // what its record says is never shown
    _nameKnown = _context.readKeyName(cell, _name);
    if (!_nameKnown && !isRoot) _context.fault(record, "name has bytes that the code page lacks");
    if (_nameKnown && _name.empty() && !isRoot) _context.note(record, "empty name");
    if (_nameKnown && _name.size() > KeyObj::MAX_KEY_NAME_LENGTH)
        _context.note(record, "name of " + countText(_name.size(), "character"));
    if (length % 2 && !(L16ToHost(nk.flags) & hive_record_nk::FLAG_COMPRESSED_NAME))
        _context.note(record, "UTF-16 name of odd length");
    return true;
}

void KeyCheck::checkKey(const Pending& key) {
    const auto nk = _context.record(_context.cellAt(key.record), sizeof(hive_record_nk)).as<hive_record_nk>();
    checkClassName(key.record, L32ToHost(nk.className), L16ToHost(nk.classNameLength));
    _security.use(key.record, L32ToHost(nk.security));
    _values.check(key.record, L32ToHost(nk.valueList), L32ToHost(nk.numOfValues));
    if (key.depth > KeyObj::MAX_KEY_DEPTH)
        return _context.fault(key.record, "more than " + std::to_string(KeyObj::MAX_KEY_DEPTH) +
                                              " levels below the root: its subkeys are left out");
    const u64 before = _pending.size();
    checkSubkeys(key, L32ToHost(nk.keyList), L32ToHost(nk.numOfKeys));
    std::reverse(_pending.begin() + static_cast<std::ptrdiff_t>(before),
                 _pending.end());  // the first comes next
}

void KeyCheck::checkClassName(u32 key, u32 record, u16 length) {
    if (record == INVALID_RECORD || length == 0) return;
    const TakenCell cell = _context.take(record, CellUse::className, key);
    // It is carried over and never read, so nothing is lost by a wrong length.
    if (cell && cell.length - RECORD_HEAD_SIZE < length)
        _context.note(key, "class name of " + countText(length, "byte") + " in a cell of " +
                               std::to_string(cell.length));
}

void KeyCheck::checkSubkeys(const Pending& key, u32 list, u32 count) {
    _listed = 0;
    _hasPrevious = false;
    // A key that has lost its last subkey names list 0.
    const bool hasList = list != 0 && list != INVALID_RECORD;
    if (hasList) checkList(key, list, key.record, true);
    if (_listed != count)
        _context.fault(key.record,
                       hasList ? "lists " + countText(_listed, "subkey") + ", says " + std::to_string(count)
                               : countText(count, "subkey") + ", but no list");
}

void KeyCheck::checkList(const Pending& key, u32 list, u32 owner, bool top) {
    const TakenCell cell = _context.take(list, CellUse::subkeyList, owner);
    if (!cell) return;
    const RecordView head = _context.record(cell, sizeof(hive_record_list));
    const std::string kind(std::string_view(head.signature()));
    const u32 count = head.u16At(offsetof(hive_record_list, count));
    const bool ofLists = top && kind == hive_record_list::RI;
    const bool hashed = kind == hive_record_list::LF || kind == hive_record_list::LH;
    if (!ofLists && !hashed && kind != hive_record_list::LI)
        return _context.fault(list, top ? "no subkey list" : "no lf, lh or li list under an ri list");
    const u32 step = hashed ? sizeof(hive_list_entry) : OFFSET_ENTRY_SIZE;
    if (sizeof(hive_record_list) + u64{step} * count > cell.length)
        return _context.fault(list,
                              kind + " list of " + std::to_string(count) + " entries runs past its cell");
    checkVersion(list, kind, top);
    if (!top && count == 0) _context.note(list, "empty list under an ri list");
    if (hashed) {
        EntryList<hive_list_entry> entries(_context, cell, sizeof(hive_record_list), count);
        for (hive_list_entry entry; entries.nextRaw(entry);) checkEntry(key, list, entry, kind);
        return;
    }
    OffsetList records(_context, cell, sizeof(hive_record_list), count);
    for (u32 record = 0; records.next(record);) {
        if (ofLists)
            checkList(key, record, list, false);
        else
            checkEntry(key, list, {Platform::HostToL32(record), {}}, kind);
    }
}

/// Which lists a version has is a rule of writers; whoever reads by the signature gets along.
void KeyCheck::checkVersion(u32 list, const std::string& kind, bool top) {
    if (kind == hive_record_list::RI) return;
    const bool fits = _context.isV13 ? kind == hive_record_list::LI || (top && kind == hive_record_list::LF)
                                     : kind == hive_record_list::LH;
    if (!fits)
        _context.note(list, kind + " list where version " + (_context.isV13 ? "1.3" : "1.5") +
                                " has none: its subkeys will not be read");
}

void KeyCheck::checkEntry(const Pending& key, u32 list, const hive_list_entry& entry,
                          const std::string& kind) {
    ++_listed;
    const u32 record = L32ToHost(entry.record);
    hive_record_nk nk;
    if (!openKey(record, list, nk)) return;
    const u32 parent = L32ToHost(nk.parent);
    if (parent != key.record)
        _context.fault(record, "parent " + hexText(parent) + ", should be " + hexText(key.record));
    if (_nameKnown) {
        _upper = _name;
        for (char16_t& unit : _upper) unit = String::upperUnit(unit);
        const bool compressed = (L16ToHost(nk.flags) & hive_record_nk::FLAG_COMPRESSED_NAME) != 0;
        if (kind == hive_record_list::LF) checkHint(record, entry, compressed);
        u32 hash = 0;
        std::memcpy(&hash, entry.hint, sizeof(hash));
        if (kind == hive_record_list::LH) checkHash(record, L32ToHost(hash));
        checkOrder(record);
    }
    _pending.push_back({record, key.depth + 1});
}

void KeyCheck::checkOrder(u32 record) {
    const int order = _hasPrevious ? _previous.compare(_upper) : -1;
    if (order == 0) _context.fault(record, "same name as the subkey before it");
    if (order > 0) _context.fault(record, "out of order: belongs before the subkey in front of it");
    _previous.swap(_upper);
    _hasPrevious = true;
}

/// Searches do not trust hints, so a wrong one costs nothing.
void KeyCheck::checkHint(u32 record, const hive_list_entry& entry, bool compressed) {
    if (!compressed) return;
    u8 hint[4] = {};
    for (u32 i = 0; i < sizeof(hint) && i < _name.size(); ++i)
        if (!charToByte(_name[i], _context.codepage(), hint[i])) return;
    if (std::memcmp(hint, entry.hint, sizeof(hint)) != 0)
        _context.note(record, "lf hint is not the head of the name");
}

void KeyCheck::checkHash(u32 record, u32 stored) {
    // Of compressed names either the characters or their bytes are hashed; it is the same in ISO 8859-1.
    u32 ofUnits = 0, ofBytes = 0;
    for (const char16_t unit : _upper) {
        u8 byte = 0;
        charToByte(unit, _context.codepage(), byte);
        ofUnits = ofUnits * 37 + unit;
        ofBytes = ofBytes * 37 + byte;
    }
    if (stored != ofUnits && stored != ofBytes)
        _context.fault(record, "lh hash " + hexText(stored) + ", should be " + hexText(ofUnits));
}

}  // namespace Libraries::Files::Hive
