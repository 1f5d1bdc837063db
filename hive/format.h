#pragma once

#include "platform/system/byteorder.h"

/// The on-disk layouts of a hive file: a base block of 4096 bytes, then the hbins area. All integers
/// little-endian; fields are kept in file byte order and converted on access (`L32ToHost` and its kin).
/// Nothing here may change: it is what files already written hold. Record offsets count from the start of the
/// hbins area, that is from file offset 4096.
namespace Libraries::Files::Hive {

using Platform::s32;
using Platform::u16;
using Platform::u32;
using Platform::u64;
using Platform::u8;

/// Length of the base block, and so the distance from a record offset to its file offset.
constexpr u32 HIVE_HEADER_SIZE = 4096;
/// hbins are discovered in pieces of this many bytes; it is also the unit of an hbin's size.
constexpr u32 HBIN_READ_BUFFER_SIZE = 4096;
/// First size of the hbin cache in bytes.
constexpr u32 INITIAL_CACHE_SIZE = 1048576;
/// Length of a cell's head, its size field: where the body begins.
constexpr u32 RECORD_HEAD_SIZE = 4;
/// The longest name the 16-bit name length fields of keys and values can tell.
constexpr u64 MAX_STORED_NAME = 0xFFFF;
/// Stands for no hbin.
constexpr u32 INVALID_HBIN = 0xFFFFFFFF;
/// Stands for no record, in the file and as a failure result.
constexpr u32 INVALID_RECORD = 0xFFFFFFFF;

/// The base block. Fields without a use here are carried over byte for byte; the sequence numbers and the
/// time stamp are never touched, also after a change (callers that need them stamped do it themselves).
struct hive_header {
    static constexpr char SIGNATURE[5] = "regf";
    u8 signature[4];
    u32 primarySequence;
    u32 secondarySequence;
    u8 lastWritten[8];  // u64, 100 ns since 1601; unaligned
    u32 majorVersion;
    u32 minorVersion;
    u32 fileType;
    u32 fileFormat;
    u32 rootCell;   // record offset of the root key's nk record
    u32 hbinsSize;  // bytes of the hbins area
    u32 clustering;
    u8 fileName[64];  // UTF-16LE, the end of the path the hive was loaded from
    u8 reserved[396];
    u32 checksum;  // XOR of the 127 words before it, no value excepted
    u8 rest[3584];
};
static_assert(sizeof(hive_header) == HIVE_HEADER_SIZE && offsetof(hive_header, rootCell) == 36 &&
              offsetof(hive_header, hbinsSize) == 40 && offsetof(hive_header, checksum) == 508);

/// Head of an hbin; its cells follow it without gaps up to the hbin's end.
struct hive_hbin {
    static constexpr char SIGNATURE[5] = "hbin";
    static constexpr u32 RECORD_ALIGNMENT = 8;
    u8 signature[4];
    u32 offset;  // own offset in the hbins area
    u32 size;    // including this head; non-zero multiple of 4096
    u8 reserved[16];
    u32 next;  // distance to the next hbin, 0 in the last
};
static_assert(sizeof(hive_hbin) == 32);

/// A cell length rounded up to the alignment: what the cell takes of its hbin.
constexpr u64 alignedLength(u64 length) {
    return (length + hive_hbin::RECORD_ALIGNMENT - 1) / hive_hbin::RECORD_ALIGNMENT *
           hive_hbin::RECORD_ALIGNMENT;
}

/// Head of every cell: negative in use, positive free, never 0; the absolute value is the length, this field
/// included.
struct hive_record {
    s32 size;
};
static_assert(sizeof(hive_record) == RECORD_HEAD_SIZE);

/// A key. The name follows.
struct hive_record_nk {
    static constexpr char SIGNATURE[3] = "nk";
    static constexpr u16 FLAG_COMPRESSED_NAME = 0x0020;  // 8-bit name in the hive's code page, else UTF-16LE
    s32 size;
    u8 signature[2];
    u16 flags;
    u8 lastWritten[8];
    u32 access;
    u32 parent;
    u32 numOfKeys;
    u32 numOfVolatileKeys;
    u32 keyList;
    u32 volatileKeyList;
    u32 numOfValues;
    u32 valueList;
    u32 security;
    u32 className;
    u32 maxKeyName;
    u32 maxKeyClassName;
    u32 maxValueName;
    u32 maxValueData;
    u32 work;
    u16 nameLength;  // bytes
    u16 classNameLength;
};
static_assert(sizeof(hive_record_nk) == 80 && offsetof(hive_record_nk, parent) == 20 &&
              offsetof(hive_record_nk, security) == 48 && offsetof(hive_record_nk, nameLength) == 76);

/// Head of the subkey list records lf, lh, li and ri; the entries follow.
struct hive_record_list {
    static constexpr char LF[3] = "lf";
    static constexpr char LH[3] = "lh";
    static constexpr char LI[3] = "li";
    static constexpr char RI[3] = "ri";
    s32 size;
    u8 signature[2];
    u16 count;
};
static_assert(sizeof(hive_record_list) == 8);

/// Entry of an lf record (hint: first four characters of the name) and of an lh record (hash: of the whole
/// name).
struct hive_list_entry {
    u32 record;
    u8 hint[4];
};
static_assert(sizeof(hive_list_entry) == 8);

/// Entry of li (nk records) and ri (list records), of a value list (vk records, behind the size field alone)
/// and of a fragment list: a bare record offset.
constexpr u32 OFFSET_ENTRY_SIZE = 4;

/// A value. The name follows.
struct hive_record_vk {
    static constexpr char SIGNATURE[3] = "vk";
    static constexpr u32 FLAG_RESIDENT = 0x80000000;  // in dataSize: the data stands in dataOrOffset
    static constexpr u16 FLAG_COMPRESSED_NAME = 0x0001;
    /// The most data a version 1.5 hive keeps in one cell, and what each full fragment holds.
    static constexpr u32 V1_5_MAX_DATA_WITHOUT_DB = 16344;
    s32 size;
    u8 signature[2];
    u16 nameLength;      // bytes
    u32 dataSize;        // bytes, with the resident flag
    u32 data_or_offset;  // record offset of the data or db cell; the data itself when resident
    u32 type;
    u16 flags;
    u16 spare;
};
static_assert(sizeof(hive_record_vk) == 24 && offsetof(hive_record_vk, type) == 16);

/// Big data of a version 1.5 hive: names the fragment list.
struct hive_record_db {
    static constexpr char SIGNATURE[3] = "db";
    /// Cell length of a full fragment, 16344 data bytes and the size field rounded up to the alignment.
    static constexpr u32 FRAGMENT_CELL_SIZE = 16352;
    s32 size;
    u8 signature[2];
    u16 fragments;
    u32 fragmentList;
};
static_assert(sizeof(hive_record_db) == 12);

/// A security descriptor, shared by keys; the descriptor's bytes follow. The records form a ring.
struct hive_record_sk {
    static constexpr u16 SIGNATURE = 0x736B;  // "sk", compared big-endian
    s32 size;
    u16 type;
    u16 reserved;
    u32 flink;
    u32 blink;
    u32 refCount;
    u32 descriptorSize;  // bytes
};
static_assert(sizeof(hive_record_sk) == 24);

}  // namespace Libraries::Files::Hive
