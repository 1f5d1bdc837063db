#include "regfile/salvage/salvagerecords.h"

#include "hive/nameencoding.h"

namespace Libraries::Files::Hive {

namespace {

constexpr auto KEY = "key";
constexpr auto VALUE = "value";
constexpr u64 LEAST_BUDGET = 4096;
constexpr u64 FREE_NAME = 512;  // bytes of a name that is read without a look at the budget: any key's

std::string asHexBytes(const Array<u8>& bytes) {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string text;
    for (const u8 byte : bytes) {
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 15];
    }
    return text;
}

}  // namespace

/// Every entry takes 4 bytes of some list and data is nobody's twice; as much again for what damage repeats.
SalvageRecords::SalvageRecords(SalvageFile& file, HiveFile::HiveCodepage codepage)
    : _file(file),
      _codepage(codepage),
      _isV13(L32ToHost(file.header().minorVersion) == 3),
      _entriesLeft(2 * file.areaSize() / OFFSET_ENTRY_SIZE + LEAST_BUDGET),
      _bytesLeft(2 * file.areaSize() + LEAST_BUDGET) {}

bool SalvageRecords::hasSignature(u32 offset, const char* signature) {
    char found[2];
    return _file.read(u64{offset} + sizeof(hive_record), found, sizeof(found)) && found[0] == signature[0] &&
           found[1] == signature[1];
}

u64 SalvageRecords::record(u32 offset, u64 fixedSize, bool isMeant, const char* kind, SalvageFlaws& flaws) {
    const SalvageCell cell = _file.cell(offset, flaws);
    if (cell.state == SalvageCell::outside) {
        flaws.push_back({SalvageFlaw::lost, offset, std::string(kind) + " record " + cell.trouble()});
        return 0;
    }
    const bool fits = cell.length >= fixedSize;
    // What stands there is what makes it a record: the cell's size may be damaged as well as anything.
    const u64 room = fits ? cell.length : cell.limit;
    if (!isMeant || room < fixedSize) {
        flaws.push_back({SalvageFlaw::lost, offset, std::string("no ") + kind + " record is there"});
        return 0;
    }
    if (cell.state != SalvageCell::used || !fits)
        flaws.push_back({SalvageFlaw::doubtful, offset,
                         std::string(kind) + " record " + (fits ? cell.trouble() : "has a broken size")});
    return room;
}

std::optional<SalvagedKey> SalvageRecords::key(u32 offset, u32 parent, SalvageFlaws& flaws) {
    hive_record_nk nk{};
    const bool isRead = _file.read(offset, &nk, sizeof(nk));
    const bool isSigned = isRead && hasSignature(offset, hive_record_nk::SIGNATURE);
    const bool namesParent = isRead && parent != INVALID_RECORD && L32ToHost(nk.parent) == parent;
    const u64 room = record(offset, sizeof(nk), isSigned || namesParent, KEY, flaws);
    if (!room) return {};
    if (!isSigned)
        flaws.push_back(
            {SalvageFlaw::doubtful, offset, "key record without signature that names its parent"});
    // It stands here because a list says so; the record itself may know better.
    if (parent != INVALID_RECORD && !namesParent)
        flaws.push_back({SalvageFlaw::doubtful, offset,
                         "key record names another parent, " + salvageHex(L32ToHost(nk.parent))});
    const u16 flags = L16ToHost(nk.flags);
    return SalvagedKey{offset,
                       name(offset, sizeof(nk), L16ToHost(nk.nameLength), room - sizeof(nk),
                            (flags & hive_record_nk::FLAG_COMPRESSED_NAME) != 0, flaws),
                       flags,
                       L32ToHost(nk.parent),
                       L32ToHost(nk.numOfKeys),
                       L32ToHost(nk.keyList),
                       L32ToHost(nk.numOfValues),
                       L32ToHost(nk.valueList)};
}

std::optional<SalvagedValue> SalvageRecords::value(u32 offset, SalvageFlaws& flaws) {
    hive_record_vk vk{};
    const bool isSigned =
        _file.read(offset, &vk, sizeof(vk)) && hasSignature(offset, hive_record_vk::SIGNATURE);
    const u64 room = record(offset, sizeof(vk), isSigned, VALUE, flaws);
    if (!room) return {};
    const u32 size = L32ToHost(vk.dataSize);
    const u32 length = size & ~hive_record_vk::FLAG_RESIDENT;
    return SalvagedValue{offset,
                         name(offset, sizeof(vk), L16ToHost(vk.nameLength), room - sizeof(vk),
                              (L16ToHost(vk.flags) & hive_record_vk::FLAG_COMPRESSED_NAME) != 0, flaws),
                         L32ToHost(vk.type),
                         length,
                         length == 0 || (size & hive_record_vk::FLAG_RESIDENT) != 0,
                         vk.data_or_offset};
}

std::u16string SalvageRecords::name(u32 offset, u64 place, u32 length, u64 room, bool compressed,
                                    SalvageFlaws& flaws) {
    if (length > FREE_NAME && !takeBytes(length)) {
        flaws.push_back({SalvageFlaw::doubtful, offset,
                         "name left out: the names are longer than a hive of "
                         "this length holds"});
        return {};
    }
    Array<u8> bytes(toSize(std::min<u64>(length, room)));
    if (!_file.read(offset + place, bytes.data(), bytes.size())) bytes.clear();
    std::u16string text = decode(offset, bytes, compressed, flaws);
    if (bytes.size() == length) return text;
    flaws.push_back(
        {SalvageFlaw::doubtful, offset,
         "name of " + std::to_string(length) + " bytes, the record holds " + std::to_string(bytes.size())});
    text.resize(text.find_last_not_of(u'\0') + 1);  // what fills the cell up
    return text;
}

std::u16string SalvageRecords::decode(u32 offset, const Array<u8>& bytes, bool compressed,
                                      SalvageFlaws& flaws) {
    std::u16string text;
    if (!compressed) {
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
            text += static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8);
        return text;
    }
    bool isReadable = true;
    for (const u8 byte : bytes) {
        u32 codePoint = 0;
        // In ISO 8859-1 every byte is a character, so that different names stay different.
        if (!byteToChar(byte, _codepage, codePoint)) {
            isReadable = false;
            codePoint = byte;
        }
        text += static_cast<char16_t>(codePoint);
    }
    if (!isReadable)
        flaws.push_back({SalvageFlaw::doubtful, offset,
                         "name of the bytes " + asHexBytes(bytes) +
                             " is not in the code page; what is not stands as ISO 8859-1"});
    return text;
}

Array<u32> SalvageRecords::subkeys(const SalvagedKey& key, SalvageFlaws& flaws) {
    Array<u32> records;
    const u64 told = flaws.size();
    const bool hasList = key.keyList != 0 && key.keyList != INVALID_RECORD;
    if (hasList) appendSublist(key.keyList, true, records, flaws);
    if (records.size() < key.numOfKeys)
        flaws.push_back({flaws.size() > told ? SalvageFlaw::note : SalvageFlaw::lost,
                         hasList ? key.keyList : key.record,
                         "the key has " + std::to_string(key.numOfKeys) + " subkeys, its lists name " +
                             std::to_string(records.size())});
    else if (records.size() > key.numOfKeys)
        flaws.push_back({SalvageFlaw::note, key.record,
                         "the key tells of " + std::to_string(key.numOfKeys) + " subkeys, its lists name " +
                             std::to_string(records.size())});
    return records;
}

void SalvageRecords::appendSublist(u32 list, bool mayNest, Array<u32>& records, SalvageFlaws& flaws) {
    hive_record_list head{};
    const bool isRead = _file.read(list, &head, sizeof(head));
    const bool isIndex = isRead && hasSignature(list, hive_record_list::RI);
    const bool isPlain = isRead && hasSignature(list, hive_record_list::LI);
    const bool isHashed =
        isRead && (hasSignature(list, hive_record_list::LF) || hasSignature(list, hive_record_list::LH));
    const u64 room =
        record(list, sizeof(head), isPlain || isHashed || (isIndex && mayNest), "subkey list", flaws);
    if (!room) return;
    const u64 stride = isHashed ? sizeof(hive_list_entry) : OFFSET_ENTRY_SIZE;
    const u64 told = L16ToHost(head.count);
    const u64 count = std::min(told, (room - sizeof(head)) / stride);
    if (count < told)
        flaws.push_back(
            {SalvageFlaw::doubtful, list,
             "subkey list of " + std::to_string(told) + " entries has room for " + std::to_string(count)});
    if (!isIndex) return appendEntries(list + sizeof(head), stride, count, list, records, flaws);
    Array<u32> sublists;
    appendEntries(list + sizeof(head), stride, count, list, sublists, flaws);
    for (const u32 sublist : sublists) appendSublist(sublist, false, records, flaws);
}

void SalvageRecords::appendEntries(u64 place, u64 stride, u64 count, u32 list, Array<u32>& records,
                                   SalvageFlaws& flaws) {
    const u64 taken = std::min(count, _entriesLeft);
    _entriesLeft -= taken;
    if (taken < count)
        flaws.push_back({SalvageFlaw::lost, list,
                         std::to_string(count - taken) + " entries: the lists name more than a hive of this "
                                                         "length holds"});
    for (u64 i = 0; i < taken; ++i) {
        u32 entry = 0;
        if (!_file.read(place + i * stride, &entry, sizeof(entry))) return;
        records.push_back(L32ToHost(entry));
    }
}

Array<u32> SalvageRecords::values(const SalvagedKey& key, SalvageFlaws& flaws) {
    Array<u32> records;
    if (key.numOfValues == 0) return records;
    const SalvageCell cell = _file.cell(key.valueList, flaws);
    if (!cell.holdsData()) {
        flaws.push_back({SalvageFlaw::lost, key.valueList,
                         std::to_string(key.numOfValues) + " value(s): the list of them " + cell.trouble()});
        return records;
    }
    const u64 room = (cell.length - sizeof(hive_record)) / OFFSET_ENTRY_SIZE;
    const u64 count = std::min<u64>(key.numOfValues, room);
    if (count < key.numOfValues)
        flaws.push_back({SalvageFlaw::lost, key.valueList,
                         "the key has " + std::to_string(key.numOfValues) +
                             " values, its list has room for " + std::to_string(count)});
    appendEntries(u64{key.valueList} + sizeof(hive_record), OFFSET_ENTRY_SIZE, count, key.valueList, records,
                  flaws);
    return records;
}

}  // namespace Libraries::Files::Hive
