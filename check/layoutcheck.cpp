#include "check/layoutcheck.h"

namespace Libraries::Files::Hive {

namespace {

constexpr u32 CHECKSUM_WORDS = 127;
constexpr u32 MIN_CELL = hive_hbin::RECORD_ALIGNMENT;

bool isHbinAt(CheckContext& context, u64 offset) {
    const RecordView head = context.bytes.view(HIVE_HEADER_SIZE + offset, sizeof(hive_hbin));
    return std::memcmp(head.as<hive_hbin>().signature, hive_hbin::SIGNATURE, 4) == 0;
}

void checkChecksum(CheckContext& context) {
    const RecordView block = context.bytes.view(0, HIVE_HEADER_SIZE);
    u32 sum = 0;
    for (u32 i = 0; i < CHECKSUM_WORDS; ++i) sum ^= block.u32At(4 * u64{i});
    const u32 stored = block.u32At(offsetof(hive_header, checksum));
    if (stored != sum)
        context.fault(HiveFinding::baseBlock, "checksum " + hexText(stored) + ", should be " + hexText(sum));
}

/// What is wrong with an hbin's head; empty when nothing is. `end` is that of the hbins area.
std::string headFault(const hive_hbin& head, u64 offset, u64 end) {
    const u32 size = L32ToHost(head.size);
    if (std::memcmp(head.signature, hive_hbin::SIGNATURE, 4) != 0) return "no hbin here";
    if (L32ToHost(head.offset) != offset) return "hbin says it is at " + hexText(L32ToHost(head.offset));
    if (size == 0 || size % HBIN_READ_BUFFER_SIZE) return "hbin of " + hexText(size) + " bytes";
    if (size > end - offset) return "hbin runs past the end of the hbins area";
    return {};
}

void checkCells(CheckContext& context, u64 from, u64 end, u64 limit) {
    for (u64 at = from; at < end && at < limit;) {
        const auto offset = static_cast<u32>(at);
        const RecordView cell = context.bytes.view(HIVE_HEADER_SIZE + at, sizeof(hive_record));
        const u32 length = cell.absoluteSize();
        if (length < MIN_CELL || length % MIN_CELL || length > end - at) {
            context.fault(offset, "cell size " + std::to_string(cell.size()) + ": the other " +
                                      countText(end - at, "byte") + " of the hbin are lost");
            return;
        }
        if (length > limit - at) {
            context.fault(offset, "the file ends within the cell");
            return;
        }
        context.cells.add(offset, cell.size());
        ++(cell.size() < 0 ? context.counts.usedCells : context.counts.freeCells);
        at += length;
    }
}

}  // namespace

BaseBlock checkBaseBlock(CheckContext& context) {
    const u32 place = HiveFinding::baseBlock;
    BaseBlock block{context.bytes.view(0, HIVE_HEADER_SIZE).as<hive_header>()};
    const hive_header& header = block.header;
    const bool isSigned = std::memcmp(header.signature, hive_header::SIGNATURE, 4) == 0;
    const u64 size = context.bytes.size();
    block.isHive = size >= HIVE_HEADER_SIZE && (isSigned || isHbinAt(context, 0));
    if (!block.isHive) return block;
    if (!isSigned) context.fault(place, "no hive signature");
    checkChecksum(context);
    const u32 major = L32ToHost(header.majorVersion), minor = L32ToHost(header.minorVersion);
    context.isV13 = minor == 3;
    if (major != 1 || (minor != 3 && minor != 5))
        context.fault(place, "version " + std::to_string(major) + "." + std::to_string(minor) +
                                 ": only 1.3 and 1.5 are known");
    const u64 needed = u64{L32ToHost(header.hbinsSize)} + HIVE_HEADER_SIZE;
    if (needed > size)
        context.fault(place,
                      "the file ends " + countText(needed - size, "byte") + " before the hbins area does");
    if (needed > ~u32{0}) context.fault(place, "the hbins area ends behind 4 GiB");
    const u32 primary = L32ToHost(header.primarySequence), secondary = L32ToHost(header.secondarySequence);
    if (primary != secondary)
        context.note(place, "sequence numbers " + std::to_string(primary) + " and " +
                                std::to_string(secondary) + " differ: the last writer did not finish");
    return block;
}

void checkHbins(CheckContext& context, const hive_header& header) {
    const u64 end = L32ToHost(header.hbinsSize);
    const u64 limit = std::min(end, context.bytes.size() - HIVE_HEADER_SIZE);
    for (u64 at = 0; at < limit;) {
        const auto offset = static_cast<u32>(at);
        const auto headAt = [&](u64 place) {
            return context.bytes.view(HIVE_HEADER_SIZE + place, sizeof(hive_hbin)).as<hive_hbin>();
        };
        const hive_hbin head = headAt(at);
        const std::string wrong = headFault(head, at, end);
        if (!wrong.empty()) {
            do at += HBIN_READ_BUFFER_SIZE;
            while (at < limit && !headFault(headAt(at), at, end).empty());
            context.fault(offset, wrong + ": " + countText(std::min(at, end) - offset, "byte") + " are lost");
            continue;
        }
        const u32 size = L32ToHost(head.size), next = L32ToHost(head.next);
        if (next != 0 && next != size)
            context.note(offset,
                         "distance to the next hbin " + hexText(next) + ", should be " + hexText(size));
        ++context.counts.hbins;
        checkCells(context, at + sizeof(hive_hbin), at + size, limit);
        at += size;
    }
    context.cells.seal();
}

}  // namespace Libraries::Files::Hive
