#include "hive/hivefile.h"
#include "hive/recordbuilder.h"
#include "hive/registryhiveobj.h"
#include "platform/system/clock.h"

namespace Libraries::Files::Hive {

namespace {

constexpr u32 ROOT_CELL = sizeof(hive_hbin);
/// The security record's cell reaches up to here. Data is covered only as far as its cell's offset, so that
/// no cell before this one would hold a full fragment; the root key and the security record never move.
constexpr u32 FIRST_FREE_CELL = 16384;
constexpr u32 FIRST_HBIN_SIZE = FIRST_FREE_CELL + HBIN_READ_BUFFER_SIZE;
constexpr char ROOT_NAME[] = "ROOT";
constexpr u16 ROOT_FLAGS =
    0x0004 | 0x0008 | hive_record_nk::FLAG_COMPRESSED_NAME;  // hive entry, not to be deleted

/// Self-relative: owner Administrators, group SYSTEM, both with full control of the key and of those below
/// it.
constexpr u8 DESCRIPTOR[] = {
    1,  0, 0x04, 0x80,  // revision; access list present, self-relative
    20, 0, 0,    0,    36,   0, 0,    0, 0,  0, 0, 0,
    48, 0, 0,    0,  // owner, group, no audit list, access list
    1,  2, 0,    0,    0,    0, 0,    5, 32, 0, 0, 0,
    32, 2, 0,    0,                                    // S-1-5-32-544
    1,  1, 0,    0,    0,    0, 0,    5, 18, 0, 0, 0,  // S-1-5-18
    2,  0, 52,   0,    2,    0, 0,    0,               // access list of 52 bytes, two entries
    0,  2, 24,   0,    0x3F, 0, 0x0F, 0,               // allow, inherited by subkeys, full control
    1,  2, 0,    0,    0,    0, 0,    5, 32, 0, 0, 0,
    32, 2, 0,    0,                                    // S-1-5-32-544
    0,  2, 20,   0,    0x3F, 0, 0x0F, 0,               // the same for
    1,  1, 0,    0,    0,    0, 0,    5, 18, 0, 0, 0,  // S-1-5-18
};
static_assert(sizeof(DESCRIPTOR) == 100);

u32 cellLength(const RecordBuilder& record) {
    return static_cast<u32>(alignedLength(record.recordSize()));
}

/// Puts a used cell into the image, from `offset` up to `end`.
void putCell(Array<u8>& image, u32 offset, u32 end, const RecordBuilder& record) {
    const u32 field = HostToL32(offset - end);
    Mem::copy(image.data() + HIVE_HEADER_SIZE + offset, &field, sizeof(field));
    Mem::copy(image.data() + HIVE_HEADER_SIZE + offset + sizeof(field), record.data(), record.size());
}

void putStamp(u8* field, u64 stamp) {
    const u64 stored = HostToL64(stamp);
    Mem::copy(field, &stored, sizeof(stored));
}

RecordBuilder buildRoot(u32 securityCell, u64 stamp) {
    hive_record_nk nk{};
    Mem::copy(nk.signature, hive_record_nk::SIGNATURE, sizeof(nk.signature));
    nk.flags = HostToL16(ROOT_FLAGS);
    putStamp(nk.lastWritten, stamp);
    nk.parent = nk.keyList = nk.volatileKeyList = nk.valueList = nk.className = HostToL32(INVALID_RECORD);
    nk.security = HostToL32(securityCell);
    nk.nameLength = HostToL16(sizeof(ROOT_NAME) - 1);
    RecordBuilder record;
    record.putLayout(nk);
    record.put(ROOT_NAME, sizeof(ROOT_NAME) - 1);
    return record;
}

RecordBuilder buildSecurity(u32 cell) {
    hive_record_sk sk{};
    sk.type = B16ToHost(hive_record_sk::SIGNATURE);
    sk.flink = sk.blink = HostToL32(cell);
    sk.refCount = HostToL32(1);
    sk.descriptorSize = HostToL32(sizeof(DESCRIPTOR));
    RecordBuilder record;
    record.putLayout(sk);
    record.put(DESCRIPTOR, sizeof(DESCRIPTOR));
    return record;
}

hive_header buildHeader(u32 minorVersion, u64 stamp, const Ref<String>& fileName) {
    hive_header header{};
    Mem::copy(header.signature, hive_header::SIGNATURE, sizeof(header.signature));
    header.primarySequence = header.secondarySequence = HostToL32(1);
    putStamp(header.lastWritten, stamp);
    header.majorVersion = HostToL32(1);
    header.minorVersion = HostToL32(minorVersion);
    header.fileFormat = HostToL32(1);
    header.rootCell = HostToL32(ROOT_CELL);
    header.hbinsSize = HostToL32(FIRST_HBIN_SIZE);
    header.clustering = HostToL32(1);
    const u64 room = sizeof(header.fileName) / 2 - 1;
    const u64 length = fileName ? fileName->length() : 0;
    for (u64 i = 0; i < std::min(length, room); ++i) {
        const u16 unit = HostToL16(fileName->charAt(length - std::min(length, room) + i));
        Mem::copy(header.fileName + 2 * i, &unit, sizeof(unit));
    }
    header.checksum = HostToL32(RegistryHiveObj::calculateHeaderChecksum(&header));
    return header;
}

Array<u8> buildImage(u32 minorVersion, const Ref<String>& fileName) {
    Array<u8> image(HIVE_HEADER_SIZE + FIRST_HBIN_SIZE);
    const u64 stamp = Clock::fileTime();
    const hive_header header = buildHeader(minorVersion, stamp, fileName);
    Mem::copy(image.data(), &header, sizeof(header));
    hive_hbin hbin{};
    Mem::copy(hbin.signature, hive_hbin::SIGNATURE, sizeof(hbin.signature));
    hbin.size = HostToL32(FIRST_HBIN_SIZE);
    putStamp(hbin.reserved + 8, stamp);
    Mem::copy(image.data() + HIVE_HEADER_SIZE, &hbin, sizeof(hbin));
    // The root's length does not depend on the offset it names.
    const u32 securityCell = ROOT_CELL + cellLength(buildRoot(INVALID_RECORD, stamp));
    putCell(image, ROOT_CELL, securityCell, buildRoot(securityCell, stamp));
    putCell(image, securityCell, FIRST_FREE_CELL, buildSecurity(securityCell));
    const u32 freeLength = HostToL32(FIRST_HBIN_SIZE - FIRST_FREE_CELL);
    Mem::copy(image.data() + HIVE_HEADER_SIZE + FIRST_FREE_CELL, &freeLength, sizeof(freeLength));
    return image;
}

Ref<HiveFile> refuse(u32 errorCode) {
    Error::set(errorCode);
    return nullptr;
}

}  // namespace

Ref<HiveFile> HiveFile::create(Ref<Interfaces::Stripe> stripe, u32 minorVersion, u32 mode,
                               HiveCodepage codepage, Ref<String> fileName) {
    if (!stripe) return refuse(ErrorCode::nullArgument);
    if (stripe->elementSize() != 1) return refuse(ErrorCode::wrongElementSize);
    if ((minorVersion != 3 && minorVersion != 5) || stripe->elementCount() != 0 ||
        (mode & (modeReadOnly | modeUnsafe)))
        return refuse(ErrorCode::wrongArgument);
    const Array<u8> image = buildImage(minorVersion, fileName);
    if (stripe->setElementCount(image.size()) != image.size() || stripe->seek(0) != 0 ||
        stripe->write(ShPtr::fromConst(image.data()), image.size()) != image.size())
        return refuse(ErrorCode::allocationFailed);
    return open(std::move(stripe), mode, codepage);
}

}  // namespace Libraries::Files::Hive
