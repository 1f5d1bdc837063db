#pragma once

#include <atomic>

#include "hive/hbincache.h"
#include "hive/hbintable.h"
#include "hive/hivefile.h"
#include "hive/keys/knownkey.h"
#include "hive/namecache.h"
#include "hive/readonlycache.h"
#include "hive/values/valuechanges.h"
#include "platform/filesys/file.h"
#include "platform/system/heap.h"

namespace Libraries::Files::Hive {

class KeyObj;

/// The hive store: the file, its base block, the table of known hbins, the hbin cache, the allocator and the
/// writer. Keys, values and security records reach the file only through its record operations, by record
/// offset.
///
/// Ownership: it owns the file and the cache. Keys hold the hive; the hive holds its root key weakly.
/// Locking: `flush`, `rootObj` and the public operations of keys and values take `mon()`; the record
/// operations take no lock and REQUIRE it held.
class RegistryHiveObj final : public HiveFile, public Object {
 public:
    /// Opens the hive; check `valid()`. `item` is the opened file when the hive was opened by path, else
    /// null.
    RegistryHiveObj(Ref<Interfaces::Stripe> file, u32 mode, HiveCodepage codepage,
                    Ref<Services::Filesystem::Client::FSItem> item);
    ~RegistryHiveObj() override;

    Ref<Key> root() override;
    Ref<KeyObj> rootObj();
    Ref<Key> path(Ref<String> path) override;
    bool flush() override;
    u32 mode() const override { return _mode; }
    u32 versionMajor() const override { return L32ToHost(_header.majorVersion); }
    u32 versionMinor() const override { return L32ToHost(_header.minorVersion); }
    bool readonly() const override { return (_mode & modeReadOnly) != 0; }
    bool valid() const override { return _valid; }
    HiveCodepage codepage() const override { return _codepage; }
    Ref<Mon> mon() const override { return _mon; }
    /// The same for those who hold the hive.
    Mon& monitor() const { return *_mon; }
    Ref<SecurityDescriptorIterator> securityDescriptorIterator() override;
    HiveHeader header() const override;
    bool usage(HiveUsage& usage) override;
    /// Length of the hbins area in bytes. Nothing a file says can be larger than what this many bytes hold.
    u32 hbinsSize() const { return L32ToHost(_header.hbinsSize); }

    /// XOR of the 127 words before the checksum field. No result is adjusted, 0 and all ones included: files
    /// already written hold the plain XOR.
    static u32 calculateHeaderChecksum(const hive_header* header);
    /// Whether a cell begins at `offset` (a record offset), given the hbin it should lie in whole in memory:
    /// the plain walk over its cells, by their stored lengths exactly.
    static bool isValidRecord(const u8* hbin, u32 offset);

    /// The stored form of a name: 8-bit where every character has a byte in the hive's code page, else
    /// UTF-16LE. `length` is the most bytes the caller can store (a UTF-16 name may come out up to two bytes
    /// longer) and on success the bytes stored; `compressed` tells the form. Null on failure, without an
    /// error code.
    HeapBuffer stringToRegName(const Ref<String>& name, u64& length, bool& compressed) const;

    /// What searches know of the keys; of a read-only hive.
    KnownKeys& knownKeys() { return _knownKeys; }
    /// Names that values had before.
    NameCache& valueNames() { return _valueNames; }
    /// What value lists must no longer know.
    ValueChanges& valueChanges() { return _valueChanges; }

    // Record access (recordaccess.cpp). Results stay valid until the next store operation.

    /// The used record at `offset`; null on failure. Error: 0x2006 not a multiple of 8.
    RecordView cacheLoadRecord(u32 offset);
    /// The used, or free, record at `offset` and the index of its hbin. Not in `modeUnsafe`.
    RecordView cacheLoadRecord(u32 offset, u32* hbinIdx, bool expectUnused);

    /// The number of the cache's round: while it stays, what was looked at in it is at hand.
    u32 cacheRound() const { return _cache.roundNumber(); }
    /// The used record at `offset` if it is at hand; else null, without a log line or an error code.
    RecordView peekRecord(u32 offset);

    /// Tells the processor that the record at `offset` will be looked at soon, if it is in the cache.
    void bringNear(u32 offset) {
        const HbinPage* const page = _hbins.page(offset);
        if (!page || !page->isCached()) return;
        const u8* const record = _cache.at(page->positionOf(offset));
        __builtin_prefetch(record);
        __builtin_prefetch(record + sizeof(hive_record_nk));
    }

    // Writing (writing.cpp).

    /// Copies bytes into the body of the used record at `offset`, `offsetInRecord` (at least 4) counted from
    /// its size field. Errors: 0x1000 read-only, 0x2005 outside the record's body.
    bool writeRecord(u32 offset, const void* data, u32 offsetInRecord, u32 length);
    /// Copies bytes to any place of an hbin. Error: 0x1000 read-only.
    bool writeHBIN(u32 hbinIdx, u32 offsetInHbin, const void* data, u32 length);
    /// Writes all changed hbins to the file, in the order they were loaded.
    bool internalFlush();

    // Allocation (allocation.cpp). Sizes include the 4-byte size field and are rounded up to multiples of 8.

    /// A new used record of at least `size` bytes, its body not initialised; the file grows by an hbin when
    /// no known one has room. The length goes to `allocatedSize` when given. INVALID_RECORD on failure:
    /// 0x1000 read-only, 0x1002 no room could be made.
    u32 allocateRecord(u32 size, u32* allocatedSize);
    /// Changes a record's length, in place where it or the free cells behind it suffice, else by moving it;
    /// returns its offset, INVALID_RECORD on failure. `copyData` carries the body along on a move;
    /// `keepIfLarger` leaves a record alone that is long enough. A `size` of 0 frees the record and returns
    /// 0.
    u32 resizeRecord(u32 offset, u32 size, bool copyData, u32* allocatedSize, bool keepIfLarger);
    /// Frees the record at `offset`.
    bool releaseRecord(u32 offset) { return resizeRecord(offset, 0, false, nullptr, false) == 0; }
    /// Makes the free cell at `offset` a used record of `size` bytes, a multiple of 8.
    bool initRecord(u32 offset, u32 size);
    /// Total length of the free cells directly behind a used (or free) record.
    u32 getFreeSpaceBehindRecord(u32 offset, bool expectUnused);
    /// Finds the largest free cell of an hbin anew.
    bool updateFreeSpace(u32 hbinIdx);

 private:
    // Opening (registryhiveobj.cpp).
    void open();
    bool readHeader(hive_header& header);
    bool checkHeader(const hive_header& header);

    // hbin discovery (hbindiscovery.cpp).
    u32 hbinFromOffset(u32 offset);
    bool isBehindFile(u32 offset) const;
    u32 discoverHbins(u32 offset);
    void stepOverHbins(u32 offset, u32 buffer);
    bool readHbinHeader(u32 buffer, u64 expectedOffset, hive_hbin& header);
    bool scanFreeCells(u32 buffer, HbinDescriptor& hbin);
    bool readNextPiece(u32 buffer, u32 piece, u32& last);
    bool seekToHbin(u64 hbinOffset, const char* failure);

    // The hbin cache (recordaccess.cpp).
    RecordView knownRecord(u32 offset, u32* hbinIdx, bool expectUnused);
    bool checkCachedHead(u32 hbinIdx, u32 position);
    u64 cacheLoadHbin(u32 hbinIdx, u32 offset = 0);
    bool readNeighbours(u32 hbinIdx);
    bool readHbin(const HbinDescriptor& hbin, u32 position, u32 offset);
    bool cacheBlankHbin(u32 hbinIdx);
    bool isAtHand(u32 hbinIdx) const {
        return hbinIdx != INVALID_HBIN && _hbins[hbinIdx].isCached() &&
               _cache.isOfRound(_hbins[hbinIdx].cacheSlot);
    }
    u32 getFreeCacheChunk(u32 size);
    bool replaceCache(u64 size);
    void emptyCache();
    RecordView unsafeGetRecord(u32 offset);
    bool isCellBoundary(u32 hbinIdx, u32 position, u32 offset);

    bool refuseUnsafe(const char* operation) const;
    bool refuseChange(const char* operation) const {
        return (_mode & (modeReadOnly | modeUnsafe)) != 0 && refuseChangeHere(operation);
    }
    bool refuseChangeHere(const char* operation) const;
    bool store(CachedHbin& hbin, u32 offsetInHbin, const void* data, u32 length);
    u32 endOfRun(u32 first);
    bool writeBack(u32 first, u32 end);
    bool writeThrough(const CachedHbin& hbin, u32 offsetInHbin, u32 length);
    bool writeCellSize(u32 hbinIdx, u32 offset, s32 size);

    /// What could not be written of a cell and the free cell behind it.
    enum class Unwritten { nothing, cell, rest };
    Unwritten writeCells(u32 hbinIdx, u32 offset, u32 total, s32 size);
    u32 freeBehind(const RecordView& record, u32 hbinIdx, u32 offset) const;

    u32 appendHbin(u32 length);
    bool growFile(u32 newSize, bool& isBlank);
    bool writeHbinHead(u32 hbinIdx);
    void noteChange(u32 hbinIdx, u32 offset, u32 length, u32 freeRecord, u32 freeLength);
    bool restoreCellSize(u32 hbinIdx, u32 offset, s32 size);
    bool freeRecord(u32 hbinIdx, u32 offset, u32 current, u32 available);
    u32 moveRecord(u32 offset, u32 current, u32 wanted, bool copyData);

    Ref<Interfaces::Stripe> _file;
    Ref<Services::Filesystem::Client::FSItem> _item;
    const u32 _mode;
    hive_header _header{};  // in file byte order, all 4096 bytes as read
    HbinCache _cache;
    WeakRef<KeyObj> _root;
    Ref<ReadOnlyCache> _unsafeCache;  // in modeUnsafe only
    Ref<Mon> _mon;
    u32 _rootCell = INVALID_RECORD;
    const HiveCodepage _codepage;
    HbinTable _hbins;
    KnownKeys _knownKeys;
    NameCache _valueNames;
    ValueChanges _valueChanges;
    std::atomic<bool> _valid{false};
};

}  // namespace Libraries::Files::Hive
