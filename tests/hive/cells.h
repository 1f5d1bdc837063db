#pragma once

#include <algorithm>
#include <random>

#include "hive/registryhiveobj.h"
#include "tests/support/hivebuilder.h"
#include "tests/support/memorystripe.h"

namespace HiveTest {

using Libraries::Files::Hive::HiveFile;
using Libraries::Files::Hive::RecordView;
using Libraries::Files::Hive::RegistryHiveObj;

/// Seeded 32-bit numbers.
struct Random : std::mt19937 {
    using result_type = u32;
    using std::mt19937::mt19937;
    u32 operator()() { return static_cast<u32>(std::mt19937::operator()()); }
};

/// A cell as the file's bytes have it.
struct Cell {
    u32 offset, length;
    bool used;
    u32 hbin;  // offset of the hbin it lies in
};

/// The hive as the store's own class, whose record operations the tests call; null when it does not open.
inline Ref<RegistryHiveObj> openStore(Ref<Interfaces::Stripe> stripe, u32 mode) {
    return Platform::refCast<RegistryHiveObj>(
        HiveFile::open(std::move(stripe), mode, HiveFile::hiveCodepageLatin1));
}

/// All cells of an intact image, in file order.
inline std::vector<Cell> cellsOf(HiveImage& image) {
    std::vector<Cell> cells;
    const u32 end = static_cast<u32>(image.bytes().size() - 4096);
    for (u32 hbin = 0; hbin < end; hbin += image.peek32(hbin + 8)) {
        for (u32 at = hbin + 32; at < hbin + image.peek32(hbin + 8); at += cells.back().length) {
            const u32 size = image.peek32(at);
            cells.push_back({at, size >> 31 ? 0 - size : size, size >> 31 != 0, hbin});
        }
    }
    return cells;
}

/// hbins of 1 to 6 pages full of used and free cells, of very different or all equal lengths; their bodies
/// hold a pattern.
inline HiveImage randomImage(Random& random, u32 hbins) {
    HiveImage image;
    while (hbins--) {
        const u32 size = (1 + random() % 6) * 4096;
        image.addHbin(size);
        for (u32 left = size - 32; left > 0 && random() % 40 != 0;) {
            const u32 most[] = {64, 600, 9000, left};
            const u32 length = std::min(left, hbins % 3 ? (random() % most[random() % 4] + 8) / 8 * 8 : 512);
            const u32 offset = image.allocate(patternBytes(length - 4, left));
            if (random() % 3 == 0) image.release(offset);
            left -= length;
        }
    }
    return image;
}

/// Whether a view shows the file's bytes from `position` on.
inline bool shows(const RecordView& view, const std::vector<u8>& file, u64 position, u64 length) {
    std::vector<u8> bytes(length);
    if (view) view.copy(bytes.data(), 0, length);
    return view &&
           std::equal(bytes.begin(), bytes.end(), file.begin() + static_cast<std::ptrdiff_t>(position));
}

}  // namespace HiveTest
