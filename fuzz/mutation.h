#pragma once

#include <random>
#include <string>
#include <vector>

#include "platform/system/types.h"

namespace HiveFuzz {

using Platform::u32;
using Platform::u64;
using Platform::u8;

/// One byte that a mutation changes.
struct ByteChange {
    u64 at;
    u8 before;
    u8 after;
};

/// Chooses random changes of one to eight bytes in a hive file, mostly in the bytes that say how the hive is
/// built: heads of hbins and cells, lists, the base block.
class Mutator {
 public:
    explicit Mutator(const std::vector<u8>& file);

    /// The changes for this random state; the file is not touched. A byte may be chosen twice.
    std::vector<ByteChange> choose(const std::vector<u8>& file, std::mt19937_64& random) const;

    /// A change list as text: "at:before>after" in hexadecimal.
    static std::string describe(const std::vector<ByteChange>& changes);

 private:
    struct Region {
        u64 at;
        u64 length;
    };

    void addCells(const std::vector<u8>& file);
    void addCell(const std::vector<u8>& file, u64 cell, u64 length);
    void addBody(const std::vector<u8>& file, u32 offset);
    u64 choosePlace(const std::vector<u8>& file, std::mt19937_64& random) const;

    std::vector<Region> _regions;
};

}  // namespace HiveFuzz
