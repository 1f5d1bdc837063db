#pragma once

#include "hive/format.h"
#include "platform/system/heap.h"

namespace Libraries::Files::Hive {

/// What a cell turned out to hold, by the reference that led to it.
enum class CellUse : u8 {
    none,  ///< no reference led to it yet
    key,
    subkeyList,
    className,
    valueList,
    value,
    data,
    bigData,
    fragmentList,
    fragment,
    security,
};
/// The same in words.
const char* useName(CellUse use);

/// All cells of a hive in file order, and which record took each. 13 bytes for a cell and 4 for each 4096
/// bytes of file.
class CellTable {
 public:
    /// Stands for no cell.
    static constexpr u32 NONE = 0xFFFFFFFF;

    /// Adds the cell behind all others. `size` is its size field.
    void add(u32 offset, s32 size);

    u32 count() const { return static_cast<u32>(_offsets.size()); }
    /// The index of the cell that begins at a record offset; NONE when none does.
    u32 find(u32 offset) const;

    u32 offset(u32 index) const { return _offsets[index]; }
    bool isUsed(u32 index) const { return _sizes[index] < 0; }
    u32 length(u32 index) const {
        const u32 size = static_cast<u32>(_sizes[index]);
        return isUsed(index) ? 0 - size : size;
    }
    CellUse use(u32 index) const { return index < _uses.size() ? _uses[index] : CellUse::none; }
    /// Record offset of the record that took the cell; NONE for the base block.
    u32 owner(u32 index) const { return _owners[index]; }
    void take(u32 index, CellUse use, u32 owner) {
        _uses[index] = use;
        _owners[index] = owner;
    }
    /// To be called once all cells are added, before any is taken.
    void seal();

 private:
    static constexpr u32 PAGE = HBIN_READ_BUFFER_SIZE;  // the unit of hbins, so that cells begin in one page

    Platform::Array<u32> _offsets;
    Platform::Array<s32> _sizes;
    Platform::Array<u32> _owners;
    Platform::Array<CellUse> _uses;
    Platform::Array<u32> _firstOfPage;  // the first cell at or behind the page's start
};

}  // namespace Libraries::Files::Hive
