#include "tests/support/hiveimage.h"

#include <algorithm>
#include <stdexcept>

namespace HiveTest {

namespace {

constexpr u32 HEADER = 4096;
constexpr u32 HBIN_HEAD = 32;

void put32(u8* at, u64 value) {
    for (int i = 0; i < 4; ++i) at[i] = static_cast<u8>(value >> 8 * i);
}

u32 get32(const u8* at) {
    return at[0] | u32{at[1]} << 8 | u32{at[2]} << 16 | u32{at[3]} << 24;
}

void putHbinHead(u8* at, u32 offset, u32 size) {
    std::copy_n("hbin", 4, at);
    put32(at + 4, offset);
    put32(at + 8, size);
    std::fill(at + 12, at + HBIN_HEAD, u8{0});
}

}  // namespace

HiveImage::HiveImage(u32 minor) : _minor(minor), _bytes(HEADER) {
    for (u32 i = 48; i < HEADER; ++i) _bytes[i] = static_cast<u8>(i * 7 + i / 256);
    std::copy_n("regf", 4, _bytes.begin());
    const u32 fields[] = {7, 7, 0x89ABCDEF, 0x01D76543, 1, minor, 0, 1, NONE, 0, 1};
    for (u32 i = 0; i < std::size(fields); ++i) pokeHeader32(4 + 4 * i, fields[i]);
}

u32 HiveImage::addHbin(u32 size) {
    const u32 offset = end();
    if (_lastHbin != NONE) poke32(_lastHbin + 28, offset - _lastHbin);
    _bytes.resize(_bytes.size() + size, 0xDD);
    putHbinHead(_bytes.data() + HEADER + offset, offset, size);
    _lastHbin = offset;
    _tail = offset + HBIN_HEAD;
    poke32(_tail, size - HBIN_HEAD);
    pokeHeader32(40, end());
    return offset;
}

u32 HiveImage::allocate(u64 bytes) {
    const u64 length = (std::max<u64>(bytes, 8) + 7) / 8 * 8;
    if (length > end() - _tail)
        addHbin(std::max(_hbinSize, static_cast<u32>((length + HBIN_HEAD + 4095) / 4096 * 4096)));
    const u32 offset = _tail;
    const auto cell = _bytes.begin() + HEADER + offset;
    std::fill(cell, cell + static_cast<std::ptrdiff_t>(length), u8{0});
    poke32(offset, 0 - length);
    _tail += static_cast<u32>(length);
    if (_tail < end()) poke32(_tail, end() - _tail);
    return offset;
}

u32 HiveImage::allocate(std::span<const u8> body) {
    const u32 offset = allocate(4 + body.size());
    poke(u64{offset} + 4, body);
    return offset;
}

u32 HiveImage::freeCell(u64 bytes) {
    const u32 offset = allocate(bytes);
    release(offset);
    return offset;
}

u16 HiveImage::peek16(u32 offset) const {
    const u64 at = u64{offset} + HEADER;
    return static_cast<u16>(_bytes.at(at) | _bytes.at(at + 1) << 8);
}

u32 HiveImage::peek32(u32 offset) const {
    return wordAt(_bytes, offset);
}

void HiveImage::poke(u64 offset, std::span<const u8> bytes) {
    if (offset > end() || bytes.size() > end() - offset) throw std::out_of_range("poke behind the hive");
    std::copy(bytes.begin(), bytes.end(), _bytes.begin() + HEADER + static_cast<std::ptrdiff_t>(offset));
}

void HiveImage::poke(u64 offset, std::string_view text) {
    poke(offset, std::span(reinterpret_cast<const u8*>(text.data()), text.size()));
}

void HiveImage::poke16(u64 offset, u64 value) {
    const u8 bytes[] = {static_cast<u8>(value), static_cast<u8>(value >> 8)};
    poke(offset, bytes);
}

void HiveImage::poke32(u64 offset, u64 value) {
    u8 bytes[4];
    put32(bytes, value);
    poke(offset, bytes);
}

void HiveImage::pokeHeader32(u32 fileOffset, u32 value) {
    if (fileOffset > HEADER - 4) throw std::out_of_range("poke behind the base block");
    put32(_bytes.data() + fileOffset, value);
}

u32 HiveImage::peekHeader32(u32 fileOffset) const {
    if (fileOffset > HEADER - 4) throw std::out_of_range("peek behind the base block");
    return get32(_bytes.data() + fileOffset);
}

void HiveImage::fixChecksum() {
    u32 sum = 0;
    for (u32 at = 0; at < 508; at += 4) sum ^= peekHeader32(at);
    pokeHeader32(508, sum);
}

std::vector<u8> HiveImage::finish() {
    fixChecksum();
    return _bytes;
}

u32 wordAt(const std::vector<u8>& file, u64 offset) {
    if (offset + HEADER + 4 > file.size()) throw std::out_of_range("a word behind the file");
    return get32(file.data() + HEADER + offset);
}

}  // namespace HiveTest
