#include "fuzz/mutation.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace HiveFuzz {

namespace {

constexpr u64 BASE_BLOCK = 4096;
constexpr u64 HBIN_HEAD = 32;
constexpr u64 LIST_BYTES = 512;  // of a list, how much counts as structure

u32 get32(const std::vector<u8>& file, u64 at) {
    if (at > file.size() || file.size() - at < 4) return 0;
    return file[at] | u32{file[at + 1]} << 8 | u32{file[at + 2]} << 16 | u32{file[at + 3]} << 24;
}

u64 below(std::mt19937_64& random, u64 bound) {
    return random() % bound;
}

}  // namespace

Mutator::Mutator(const std::vector<u8>& file) {
    for (int i = 0; i < 4; ++i)
        _regions.push_back({20, 24});  // versions, root cell, length of the hbins area
    addCells(file);
}

void Mutator::addCells(const std::vector<u8>& file) {
    u64 hbin = BASE_BLOCK;
    while (hbin + BASE_BLOCK <= file.size()) {
        const u64 end = hbin + get32(file, hbin + 8);
        if (end <= hbin || end > file.size()) return;
        _regions.push_back({hbin, HBIN_HEAD});
        for (u64 cell = hbin + HBIN_HEAD; cell < end;) {
            const u32 size = get32(file, cell);
            const u64 length = size >> 31 ? 0U - size : size;
            if (length < 8 || length > end - cell) return;
            if (size >> 31) addCell(file, cell, length);
            cell += length;
        }
        hbin = end;
    }
}

void Mutator::addCell(const std::vector<u8>& file, u64 cell, u64 length) {
    const std::string kind(reinterpret_cast<const char*>(file.data()) + cell + 4, 2);
    if (kind == "nk") {
        _regions.push_back({cell, std::min<u64>(length, 96)});
        if (get32(file, cell + 40) != 0) addBody(file, get32(file, cell + 44));  // the value list
    } else if (kind == "vk") {
        _regions.push_back({cell, std::min<u64>(length, 32)});
    } else if (kind == "db") {
        _regions.push_back({cell, 12});
        addBody(file, get32(file, cell + 8));  // the fragment list
    } else if (kind == "lf" || kind == "lh" || kind == "li" || kind == "ri") {
        _regions.push_back({cell, std::min(length, LIST_BYTES)});
    } else if (kind == "sk") {
        _regions.push_back({cell, 24});
    }
}

void Mutator::addBody(const std::vector<u8>& file, u32 offset) {
    const u64 cell = u64{offset} + BASE_BLOCK;
    if (cell >= file.size()) return;
    const u64 length = std::min<u64>(0U - get32(file, cell), file.size() - cell);
    _regions.push_back({cell, std::min(length, LIST_BYTES)});
}

u64 Mutator::choosePlace(const std::vector<u8>& file, std::mt19937_64& random) const {
    if (below(random, 8) == 0) return below(random, file.size());
    const Region& region = _regions[below(random, _regions.size())];
    return region.at + below(random, region.length);
}

std::vector<ByteChange> Mutator::choose(const std::vector<u8>& file, std::mt19937_64& random) const {
    static constexpr u8 EXTREMES[] = {0x00, 0xFF, 0x7F, 0x80};
    const u64 count = 1 + below(random, 8);
    std::vector<ByteChange> changes;
    const auto change = [&](u64 at, u8 after) {
        if (at < file.size() && changes.size() < count) changes.push_back({at, file[at], after});
    };
    while (changes.size() < count) {
        const u64 at = choosePlace(file, random);
        switch (below(random, 5)) {
            case 0:
                change(at, static_cast<u8>(random()));
                break;
            case 1:
                change(at, static_cast<u8>(file[at] ^ 1U << below(random, 8)));
                break;
            case 2:
                change(at, EXTREMES[below(random, 4)]);
                break;
            case 3:
                change(at, static_cast<u8>(file[at] + (below(random, 2) ? 1 : 255)));
                break;
            default:  // a word from elsewhere: references to cells of another kind, rings, shared cells
                const u64 from = choosePlace(file, random) / 4 * 4;
                for (u64 i = 0; i < 4; ++i) change(at / 4 * 4 + i, file[std::min(from + i, file.size() - 1)]);
        }
    }
    return changes;
}

std::string Mutator::describe(const std::vector<ByteChange>& changes) {
    std::string text;
    for (const ByteChange& change : changes) {
        char piece[48];
        std::snprintf(piece, sizeof(piece), "%s%llx:%02x>%02x", text.empty() ? "" : " ",
                      static_cast<unsigned long long>(change.at), change.before, change.after);
        text += piece;
    }
    return text;
}

}  // namespace HiveFuzz
