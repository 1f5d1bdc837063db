#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

/// The platform's fixed-width integers and the operations whose meaning depends only on them.
namespace Platform {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using s32 = std::int32_t;
using s64 = std::int64_t;

/// A count or position in memory for the standard library, whose sizes have 32 bits on some machines. What no
/// memory can hold becomes the largest size, at which an allocation fails and no text is that long; it never
/// wraps to a small one.
constexpr std::size_t toSize(u64 count) {
    return static_cast<std::size_t>(std::min<u64>(count, SIZE_MAX));
}

}  // namespace Platform
