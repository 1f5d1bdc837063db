#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "tests/support/memorystripe.h"

namespace HiveTest {

/// A hive file laid out cell by cell. At every moment the hbins tile the data area and the cells tile each
/// hbin; only the checksum waits for `finish`. Nothing keeps a test from breaking any of this afterwards with
/// the poke operations.
///
/// It knows the layout by itself and shares no code with the library, so that the two can disagree. Free
/// space and the header's uninterpreted fields hold rubbish on purpose: a reader must not depend on zeros.
///
/// Offsets are record offsets (file offset - 4096) unless named otherwise. Access behind the image throws.
class HiveImage {
 public:
    static constexpr u32 NONE = 0xFFFFFFFF;

    /// Versions 1.3 and 1.5 are the ones in use; any other is laid down just the same.
    explicit HiveImage(u32 minor = 5);

    u32 minor() const { return _minor; }
    /// Appends an hbin of a multiple of 4096 bytes and returns its offset. Cells go into it from now on; what
    /// the hbin before has left stays one free cell.
    u32 addHbin(u32 size = 4096);
    /// The least size of the hbins that `allocate` appends by itself.
    void setHbinSize(u32 size) { _hbinSize = size; }
    /// A used cell of `bytes` bytes, the size field included, rounded up to a multiple of 8; its body is
    /// zeroed. Opens a new hbin when the last one has no room.
    u32 allocate(u64 bytes);
    /// A used cell with this body (behind the size field).
    u32 allocate(std::span<const u8> body);
    /// A free cell, as `allocate`; it is never handed out again.
    u32 freeCell(u64 bytes);
    /// Turns a used cell into a free one.
    void release(u32 offset) { poke32(offset, 0u - peek32(offset)); }

    u16 peek16(u32 offset) const;
    u32 peek32(u32 offset) const;
    void poke(u64 offset, std::span<const u8> bytes);
    void poke(u64 offset, std::string_view text);
    void poke16(u64 offset, u64 value);
    void poke32(u64 offset, u64 value);

    /// Fields of the base block, by file offset. The checksum is left alone.
    void pokeHeader32(u32 fileOffset, u32 value);
    u32 peekHeader32(u32 fileOffset) const;
    void setRoot(u32 offset) { pokeHeader32(36, offset); }
    void fixChecksum();

    /// Repairs the checksum and returns the whole file. May be called again after further changes.
    std::vector<u8> finish();
    /// The file as it stands.
    std::vector<u8>& bytes() { return _bytes; }

 private:
    u32 end() const { return static_cast<u32>(_bytes.size() - 4096); }

    u32 _minor;
    std::vector<u8> _bytes;
    u32 _hbinSize = 4096;
    u32 _lastHbin = NONE;
    u32 _tail = 0;  // the last hbin's trailing free cell; the hbin's end when it is full
};

/// A little-endian word of a whole file, by record offset; throws behind its end.
u32 wordAt(const std::vector<u8>& file, u64 offset);

}  // namespace HiveTest
