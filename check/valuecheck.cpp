#include "check/valuecheck.h"

#include "check/offsetlist.h"
#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

namespace {

constexpr u32 FRAGMENT_BYTES = hive_record_vk::V1_5_MAX_DATA_WITHOUT_DB;
constexpr u32 RESIDENT_BYTES = 4;

void makeUpper(std::u16string& name) {
    for (char16_t& unit : name) unit = String::upperUnit(unit);
}

}  // namespace

void ValueCheck::check(u32 key, u32 list, u32 count) {
    if (count == 0) {
        if (list != 0 && list != INVALID_RECORD)
            _context.note(key, "no values, but a value list at " + hexText(list));
        return;
    }
    const TakenCell cell = _context.take(list, CellUse::valueList, key);
    if (!cell) return;
    const u64 room = (cell.length - RECORD_HEAD_SIZE) / OFFSET_ENTRY_SIZE;
    if (count > room)
        _context.fault(list,
                       "room for " + countText(room, "value") + ", the key says " + std::to_string(count));
    _named.clear();
    OffsetList records(_context, cell, RECORD_HEAD_SIZE, std::min<u64>(count, room));
    for (u32 place = 0, record = 0; records.next(record); ++place) checkValue(record, list, place);
    findDoubles();
}

void ValueCheck::checkValue(u32 record, u32 list, u32 place) {
    const TakenCell cell = _context.take(record, CellUse::value, list);
    if (!cell) return;
    const auto vk = _context.record(cell, sizeof(hive_record_vk)).as<hive_record_vk>();
    if (cell.length < sizeof(vk) || std::memcmp(vk.signature, hive_record_vk::SIGNATURE, 2) != 0)
        return _context.fault(record, "no value record");
    ++_context.counts.values;
    const u32 nameLength = L16ToHost(vk.nameLength);
    const bool compressed = (L16ToHost(vk.flags) & hive_record_vk::FLAG_COMPRESSED_NAME) != 0;
    if (sizeof(vk) + nameLength > cell.length) {
        _context.fault(record, "name of " + countText(nameLength, "byte") + " runs past its cell");
    } else if (!_context.readValueName(cell, _name)) {
        _context.fault(record, "name has bytes that the code page lacks");
    } else {
        if (!compressed && nameLength % 2) _context.note(record, "UTF-16 name of odd length");
        if (_name.size() > ValueObj::MAX_VALUE_NAME_LENGTH)
            _context.note(record, "name of " + countText(_name.size(), "character"));
        makeUpper(_name);
        u64 hash = 0;
        for (const char16_t unit : _name) hash = (hash ^ unit) * 0x100000001B3;  // of FNV-1a
        _named.push_back({hash, record, place});
    }
    checkData(record, vk);
}

void ValueCheck::checkData(u32 value, const hive_record_vk& vk) {
    const u32 field = L32ToHost(vk.dataSize);
    const u32 size = field & ~hive_record_vk::FLAG_RESIDENT;
    const u32 place = L32ToHost(vk.data_or_offset);
    if (size == 0) return;
    if (field & hive_record_vk::FLAG_RESIDENT) {
        if (size > RESIDENT_BYTES)
            _context.fault(value, "data of " + countText(size, "byte") + " said to be in the record itself");
        return;
    }
    if (!_context.isV13 && size > FRAGMENT_BYTES) return checkBigData(value, place, size);
    const TakenCell cell = _context.take(place, CellUse::data, value);
    if (cell && cell.length - RECORD_HEAD_SIZE < size)
        _context.fault(value,
                       "data of " + countText(size, "byte") + " in a cell of " + std::to_string(cell.length));
}

void ValueCheck::checkBigData(u32 value, u32 record, u32 size) {
    const TakenCell cell = _context.take(record, CellUse::bigData, value);
    if (!cell) return;
    const auto db = _context.record(cell, sizeof(hive_record_db)).as<hive_record_db>();
    if (cell.length < sizeof(db) || std::memcmp(db.signature, hive_record_db::SIGNATURE, 2) != 0)
        return _context.fault(record, "no big-data record for " + countText(size, "byte"));
    const u32 count = L16ToHost(db.fragments), list = L32ToHost(db.fragmentList);
    const u32 needed = (size - 1) / FRAGMENT_BYTES + 1;
    if (count < needed)
        _context.fault(record, countText(count, "fragment") + " for " + countText(size, "byte"));
    else if (count > needed)
        _context.note(record, countText(count - needed, "fragment") + " more than the data needs");
    const TakenCell listCell = _context.take(list, CellUse::fragmentList, record);
    if (!listCell) return;
    const u64 room = (listCell.length - RECORD_HEAD_SIZE) / OFFSET_ENTRY_SIZE;
    if (count > room)
        _context.fault(
            list, "room for " + countText(room, "fragment") + ", the record says " + std::to_string(count));
    OffsetList fragments(_context, listCell, RECORD_HEAD_SIZE, std::min<u64>(count, room));
    for (u32 index = 0, fragment = 0; fragments.next(fragment); ++index)
        checkFragment(fragment, list, index, count, size);
}

void ValueCheck::checkFragment(u32 fragment, u32 list, u64 index, u32 count, u32 size) {
    const TakenCell cell = _context.take(fragment, CellUse::fragment, list);
    if (!cell) return;
    const u64 before = index * FRAGMENT_BYTES;
    if (index + 1 < count) {
        if (cell.length != hive_record_db::FRAGMENT_CELL_SIZE)
            _context.fault(fragment, "cell of " + countText(cell.length, "byte") + " for a full fragment");
    } else if (before < size &&
               cell.length - RECORD_HEAD_SIZE < std::min<u64>(size - before, FRAGMENT_BYTES)) {
        _context.fault(fragment, "the last " + countText(size - before, "byte") + " of data in a cell of " +
                                     std::to_string(cell.length));
    }
}

/// Less than 0, 0 or greater than 0. Names are read again rather than kept: there may be a lot of them.
int ValueCheck::compareNames(const Named& left, const Named& right) {
    if (left.hash != right.hash) return left.hash < right.hash ? -1 : 1;
    if (left.record == right.record) return 0;
    _context.readValueName(_context.cellAt(left.record), _name);
    _context.readValueName(_context.cellAt(right.record), _otherName);
    makeUpper(_name);
    makeUpper(_otherName);
    return _name.compare(_otherName);
}

void ValueCheck::findDoubles() {
    if (_named.size() < 2) return;
    std::sort(_named.begin(), _named.end(), [this](const Named& left, const Named& right) {
        const int order = compareNames(left, right);
        return order ? order < 0 : left.place < right.place;
    });
    for (std::size_t i = 1; i < _named.size(); ++i)
        if (compareNames(_named[i - 1], _named[i]) == 0)
            _context.fault(_named[i].record, "same name as the value at " + hexText(_named[i - 1].record));
}

}  // namespace Libraries::Files::Hive
