#pragma once

#include <bit>

#include "platform/system/types.h"

/// Conversions between file byte order and host byte order: the only place that knows the host's.
/// `L` stands for little-endian file fields, `B` for big-endian ones; both directions are the same swap.
namespace Platform {

constexpr u16 swap16(u16 v) {
    return __builtin_bswap16(v);
}
constexpr u32 swap32(u32 v) {
    return __builtin_bswap32(v);
}
constexpr u64 swap64(u64 v) {
    return __builtin_bswap64(v);
}

constexpr bool hostIsLittleEndian = std::endian::native == std::endian::little;

constexpr u16 L16ToHost(u16 v) {
    return hostIsLittleEndian ? v : swap16(v);
}
constexpr u32 L32ToHost(u32 v) {
    return hostIsLittleEndian ? v : swap32(v);
}
constexpr u64 L64ToHost(u64 v) {
    return hostIsLittleEndian ? v : swap64(v);
}
constexpr u16 HostToL16(u16 v) {
    return L16ToHost(v);
}
constexpr u32 HostToL32(u32 v) {
    return L32ToHost(v);
}
constexpr u64 HostToL64(u64 v) {
    return L64ToHost(v);
}
constexpr u16 B16ToHost(u16 v) {
    return hostIsLittleEndian ? swap16(v) : v;
}
constexpr u32 B32ToHost(u32 v) {
    return hostIsLittleEndian ? swap32(v) : v;
}
constexpr u32 HostToB32(u32 v) {
    return B32ToHost(v);
}

}  // namespace Platform
