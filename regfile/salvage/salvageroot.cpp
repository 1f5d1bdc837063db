#include "regfile/salvage/salvageroot.h"

#include <cstring>

#include "hive/registryhiveobj.h"

namespace Libraries::Files::Hive {

namespace {

constexpr u16 FLAG_ROOT = 0x0004;  // "hive entry"; some writers leave it out
constexpr u32 MAX_CLIMB = 1024;

/// The key marked as root above `key`, when there is one.
std::optional<SalvagedKey> markedAbove(SalvageRecords& records, const SalvagedKey& key) {
    SalvageFlaws ignored;
    std::optional<SalvagedKey> above = key;
    for (u32 i = 0; above && i < MAX_CLIMB; ++i) {
        if (above->flags & FLAG_ROOT) return above;
        above = records.key(above->parent, INVALID_RECORD, ignored);
    }
    return {};
}

std::optional<SalvagedKey> firstMarked(SalvageFile& file, SalvageRecords& records) {
    u32 cell = 0;
    for (u64 at = 0; file.nextCell(at, cell); at = u64{cell} + hive_hbin::RECORD_ALIGNMENT) {
        char signature[2];
        if (!file.read(u64{cell} + sizeof(hive_record), signature, sizeof(signature)) ||
            std::memcmp(signature, hive_record_nk::SIGNATURE, sizeof(signature)) != 0)
            continue;
        SalvageFlaws flaws;
        const std::optional<SalvagedKey> key = records.key(cell, INVALID_RECORD, flaws);
        if (key && flaws.empty() && key->flags & FLAG_ROOT) return key;
    }
    return {};
}

}  // namespace

void checkBaseBlock(const SalvageFile& file, SalvageFlaws& flaws) {
    const hive_header& header = file.header();
    const auto tell = [&flaws](const std::string& reason) {
        flaws.push_back({SalvageFlaw::note, 0, "base block: " + reason});
    };
    const u32 major = L32ToHost(header.majorVersion);
    const u32 minor = L32ToHost(header.minorVersion);
    if (std::memcmp(header.signature, hive_header::SIGNATURE, sizeof(header.signature)) != 0)
        tell("no hive signature");
    if (major != 1 || (minor != 3 && minor != 5))
        tell("version " + std::to_string(major) + "." + std::to_string(minor) + " instead of 1.3 or 1.5");
    if (RegistryHiveObj::calculateHeaderChecksum(&header) != L32ToHost(header.checksum))
        tell("wrong checksum");
    if (L32ToHost(header.hbinsSize) > file.areaSize())
        tell("tells of " + std::to_string(L32ToHost(header.hbinsSize)) + " bytes of hbins, the file has " +
             std::to_string(file.areaSize()));
}

std::optional<SalvagedKey> findRoot(SalvageFile& file, SalvageRecords& records, SalvageFlaws& flaws) {
    const u32 told = L32ToHost(file.header().rootCell);
    if (std::optional<SalvagedKey> root = records.key(told, INVALID_RECORD, flaws)) {
        const std::optional<SalvagedKey> above = markedAbove(records, *root);
        if (!above || above->record == root->record) return root;
        flaws.push_back(
            {SalvageFlaw::note, told,
             "base block: names a subkey as the root key, taken is the key at " + salvageHex(above->record)});
        return above;
    }
    const std::optional<SalvagedKey> root = firstMarked(file, records);
    if (root)
        flaws.push_back({SalvageFlaw::doubtful, root->record,
                         "base block: names no root key, taken is the first key marked as one"});
    return root;
}

}  // namespace Libraries::Files::Hive
