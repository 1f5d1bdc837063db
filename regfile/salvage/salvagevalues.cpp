#include <cstring>

#include "regfile/salvage/salvagerecords.h"

namespace Libraries::Files::Hive {

namespace {

constexpr u64 FRAGMENT_SIZE = hive_record_vk::V1_5_MAX_DATA_WITHOUT_DB;
constexpr u64 RESIDENT_SIZE = 4;

std::string partOf(u64 got, u64 size) {
    return std::to_string(got) + " of " + std::to_string(size) + " bytes";
}

}  // namespace

bool SalvageRecords::takeBytes(u64 count) {
    if (count > _bytesLeft) return false;
    _bytesLeft -= count;
    return true;
}

bool SalvageRecords::data(const SalvagedValue& value, Array<u8>& bytes, SalvageFlaws& flaws) {
    if (value.resident) {
        // With more than fit it is open whether the length is damaged or the field is an offset.
        if (value.size > RESIDENT_SIZE) {
            flaws.push_back({SalvageFlaw::lost, value.record,
                             "data of " + std::to_string(value.size) + " bytes within the value record"});
            return false;
        }
        bytes.resize(value.size);
        if (value.size) std::memcpy(bytes.data(), &value.dataOrOffset, value.size);
        return true;
    }
    const u32 offset = L32ToHost(value.dataOrOffset);
    const SalvageCell cell = _file.cell(offset, flaws);
    const bool isLarge = value.size > FRAGMENT_SIZE && hasSignature(offset, hive_record_db::SIGNATURE);
    // A version 1.3 hive keeps it in one cell, but its version may be what is damaged.
    const bool isWhole = cell.length >= value.size + sizeof(hive_record);
    if (isLarge && (!_isV13 || !isWhole) && cell.length >= sizeof(hive_record_db))
        return fragments(value.record, offset, value.size, bytes, flaws);
    return single(value.record, cell, value.size, bytes, flaws);
}

bool SalvageRecords::single(u32 owner, const SalvageCell& cell, u64 size, Array<u8>& bytes,
                            SalvageFlaws& flaws) {
    if (!cell.holdsData()) {
        flaws.push_back({SalvageFlaw::lost, owner,
                         std::to_string(size) + " bytes of data: their cell " + salvageHex(cell.offset) +
                             " " + cell.trouble()});
        return false;
    }
    const u64 got = std::min(size, cell.length - sizeof(hive_record));
    if (!takeBytes(got)) {
        flaws.push_back(
            {SalvageFlaw::lost, owner, "the values have more data than a hive of this length holds"});
        return false;
    }
    bytes.resize(toSize(got));
    if (!_file.read(u64{cell.offset} + sizeof(hive_record), bytes.data(), got)) {
        bytes.clear();
        flaws.push_back({SalvageFlaw::lost, owner, std::to_string(size) + " bytes of data cannot be read"});
        return false;
    }
    if (got < size || cell.state == SalvageCell::brokenSize)
        flaws.push_back({got ? SalvageFlaw::doubtful : SalvageFlaw::lost, owner,
                         partOf(got, size) + " of data: their cell " + salvageHex(cell.offset) + " " +
                             (got < size ? "is too short" : cell.trouble())});
    return got == size;
}

bool SalvageRecords::fragments(u32 owner, u32 db, u64 size, Array<u8>& bytes, SalvageFlaws& flaws) {
    hive_record_db head{};
    const bool isRead = _file.read(db, &head, sizeof(head));
    record(db, sizeof(head), isRead, "large data", flaws);
    const u32 list = L32ToHost(head.fragmentList);
    const SalvageCell cell = _file.cell(list, flaws);
    if (!isRead || !cell.holdsData()) {
        flaws.push_back(
            {SalvageFlaw::lost, owner,
             std::to_string(size) + " bytes of data: the list of their pieces " + cell.trouble()});
        return false;
    }
    const u64 told = L16ToHost(head.fragments);
    const u64 needed = (size + FRAGMENT_SIZE - 1) / FRAGMENT_SIZE;
    const u64 listed = std::min({told, needed, (cell.length - sizeof(hive_record)) / OFFSET_ENTRY_SIZE});
    Array<u32> offsets;
    appendEntries(u64{list} + sizeof(hive_record), OFFSET_ENTRY_SIZE, listed, list, offsets, flaws);
    u64 got = 0;
    bool isWhole = offsets.size() == needed;
    for (std::size_t i = 0; i < offsets.size(); ++i) {
        const u64 place = u64{i} * FRAGMENT_SIZE;
        const u64 wanted = std::min(FRAGMENT_SIZE, size - place);
        const u64 before = bytes.size();
        if (!fragment(owner, offsets[i], place, wanted, bytes, flaws)) isWhole = false;
        if (bytes.size() > before) got += bytes.size() - std::max(before, place);
    }
    if (!isWhole)
        flaws.push_back({got ? SalvageFlaw::doubtful : SalvageFlaw::lost, owner,
                         partOf(got, size) + " of data" +
                             (bytes.size() > got ? ", zeros stand for pieces lost between" : "")});
    return isWhole;
}

/// Puts one piece of large data in its place.
bool SalvageRecords::fragment(u32 owner, u32 offset, u64 place, u64 wanted, Array<u8>& bytes,
                              SalvageFlaws& flaws) {
    const SalvageCell cell = _file.cell(offset, flaws);
    const u64 got = cell.holdsData() ? std::min(wanted, cell.length - sizeof(hive_record)) : 0;
    const std::size_t before = bytes.size();
    if (got > 0 && takeBytes(place + got - before)) {
        bytes.resize(toSize(place + got));
        if (_file.read(u64{offset} + sizeof(hive_record), bytes.data() + place, got)) {
            if (got == wanted && cell.state == SalvageCell::used) return true;
        } else {
            bytes.resize(before);
        }
    }
    const bool isThere = got == wanted && bytes.size() == place + got;
    flaws.push_back(
        {isThere ? SalvageFlaw::doubtful : SalvageFlaw::note, owner,
         "the piece of data from " + salvageHex(place) + " on: its cell " + salvageHex(offset) + " " +
             (cell.state == SalvageCell::used ? "is too short or was named too often" : cell.trouble())});
    return isThere;
}

}  // namespace Libraries::Files::Hive
