#pragma once

#include <algorithm>
#include <span>

#include "hive/values/valueobj.h"

namespace Libraries::Files::Hive {

/// Goes over those of the data `extents` that hold `count` bytes from data position `offset` on, by the one
/// rule that reading and writing share, and calls `piece(extent, skip, take, done)` for each: `take` bytes
/// from byte `skip` of the extent's data, `done` bytes having been gone over before. Stops where `piece`
/// returns false. Returns the bytes gone over.
template <typename Piece>
u32 ValueObj::walkExtents(std::span<const u32> extents, u32 offset, u32 count, Piece piece) const {
    u64 start = 0;  // data position of the current extent
    u32 done = 0;
    for (const u32 extent : extents) {
        const u32 length = coveredLength(extent, *_hive);
        if (start + length > offset) {
            const u32 skip = start < offset ? static_cast<u32>(offset - start) : 0;
            const u32 take = std::min(length - skip, count - done);
            if (!piece(extent, skip, take, done)) return done;
            done += take;
            if (done == count) return done;
        }
        start += length;
    }
    return done;
}

}  // namespace Libraries::Files::Hive
