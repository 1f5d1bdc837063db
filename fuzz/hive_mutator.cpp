// Changes hives where it counts: the bytes that say how a hive is built. Mostly the base block then still
// passes the checks of opening, so that what lies behind it is reached.

#include <cstring>
#include <random>
#include <string_view>
#include <vector>

#include "fuzz/target.h"

extern "C" std::size_t LLVMFuzzerMutate(Platform::u8* data, std::size_t size, std::size_t most);

namespace {

using namespace HiveFuzz;  // NOLINT

constexpr u64 BASE_BLOCK = 4096;
constexpr u64 RECORD_BYTES = 96;  // of a record, how much counts as structure
constexpr u64 LIST_BYTES = 512;

/// A hive to change in place, of at least a base block.
class Hive {
 public:
    Hive(u8* data, u64 size, u32 seed) : _data(data), _size(size), _random(seed) {
        for (int i = 0; i < 4; ++i) addRegion(20, 24);  // versions, root cell, length of the hbins area
        for (u64 at = BASE_BLOCK; at + 8 <= size; at += 8) findRecord(at);
    }

    void change() {
        for (u32 count = 1 + below(8); count > 0; --count) changeAt(place());
    }

    /// Makes the base block pass: signature, version, length of the hbins area and checksum.
    void repairBaseBlock() {
        std::memcpy(_data, "regf", 4);
        put32(20, 1);
        put32(24, _data[24] == 3 ? 3 : 5);
        put32(40, static_cast<u32>((_size - BASE_BLOCK) / BASE_BLOCK * BASE_BLOCK));
        u8 sum[4] = {};
        for (u64 at = 0; at < 508; ++at) sum[at % 4] ^= _data[at];
        std::memcpy(_data + 508, sum, 4);
    }

    u32 below(u64 bound) { return static_cast<u32>(_random() % bound); }

 private:
    u32 get32(u64 at) const {
        if (at > _size || _size - at < 4) return 0;
        return _data[at] | u32{_data[at + 1]} << 8 | u32{_data[at + 2]} << 16 | u32{_data[at + 3]} << 24;
    }
    void put32(u64 at, u32 number) {
        for (u32 i = 0; i < 4 && at + i < _size; ++i) _data[at + i] = static_cast<u8>(number >> 8 * i);
    }

    void addRegion(u64 at, u64 length) {
        if (at < _size && length != 0) _regions.push_back({at, std::min(length, _size - at)});
    }
    /// A cell by the length it says.
    void addCell(u64 at, u64 most) { addRegion(at, std::min<u64>(0U - get32(at), most)); }

    /// Takes what looks like an hbin or a record for one.
    void findRecord(u64 at) {
        const std::string_view bytes(reinterpret_cast<const char*>(_data) + at, 8);
        if (bytes.starts_with("hbin")) return addRegion(at, 32);
        const std::string_view kind = bytes.substr(4, 2);
        const bool list = kind == "lf" || kind == "lh" || kind == "li" || kind == "ri";
        if (!list && kind != "nk" && kind != "vk" && kind != "sk" && kind != "db") return;
        _cells.push_back(static_cast<u32>(at - BASE_BLOCK));
        addCell(at, list ? LIST_BYTES : RECORD_BYTES);
        if (kind == "nk") addCell(BASE_BLOCK + get32(at + 44), LIST_BYTES);  // the value list
        if (kind == "db") addCell(BASE_BLOCK + get32(at + 8), LIST_BYTES);   // the fragment list
    }

    u64 place() {
        const auto& [at, length] = _regions[below(_regions.size())];
        return below(8) == 0 ? below(_size) : at + below(length);
    }

    void changeAt(u64 at) {
        static constexpr u8 EXTREMES[] = {0x00, 0xFF, 0x7F, 0x80};
        const u64 word = at / 4 * 4;
        const u32 kind = below(7);
        if (kind == 0) _data[at] = static_cast<u8>(_random());
        if (kind == 1) _data[at] = static_cast<u8>(_data[at] ^ 1U << below(8));
        if (kind == 2) _data[at] = EXTREMES[below(4)];
        if (kind == 3) _data[at] = static_cast<u8>(_data[at] + (below(2) ? 1 : 255));
        if (kind == 4) put32(word, get32(word) + (below(2) ? 8U : 0U - 8U));
        if (kind == 5) put32(word, get32(place() / 4 * 4));  // a word from elsewhere: rings, shared cells
        if (kind == 6 && !_cells.empty()) put32(word, _cells[below(_cells.size())]);  // cells of another kind
    }

    u8* _data;
    u64 _size;
    std::mt19937 _random;
    std::vector<std::pair<u64, u64>> _regions;  // places and lengths, to choose from
    std::vector<u32> _cells;                    // record offsets
};

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(Platform::u8* data, std::size_t size, std::size_t most,
                                               unsigned seed) {
    if (size < BASE_BLOCK || seed % 16 == 0) size = LLVMFuzzerMutate(data, size, most);
    if (size < BASE_BLOCK) return size;
    Hive hive(data, size, seed);
    hive.change();
    if (hive.below(16) != 0) hive.repairBaseBlock();
    return size;
}
