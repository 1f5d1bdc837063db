#include "tests/support/sparsestripe.h"

#include <algorithm>

#include "platform/system/mem.h"

namespace HiveTest {

using Platform::Mem;

SparseStripe::SparseStripe(u64 bytes, Generator generator)
    : TestStripe(1, u64{1} << 40), _bytes(bytes), _generator(std::move(generator)) {}

SparseStripe::Page SparseStripe::pageAt(u64 position) const {
    if (const auto kept = _pages.find(position); kept != _pages.end()) return kept->second;
    Page page{};
    _generator(position, page);
    return page;
}

void SparseStripe::load(u64 position, u8* destination, u64 bytes) {
    while (bytes) {
        const u64 inPage = position % pageBytes;
        const u64 piece = std::min(bytes, pageBytes - inPage);
        const Page page = pageAt(position - inPage);
        Mem::copy(destination, page.data() + inPage, piece);
        position += piece;
        destination += piece;
        bytes -= piece;
    }
}

void SparseStripe::store(u64 position, const u8* source, u64 bytes) {
    while (bytes) {
        const u64 inPage = position % pageBytes;
        const u64 piece = std::min(bytes, pageBytes - inPage);
        Page& page = _pages.try_emplace(position - inPage, pageAt(position - inPage)).first->second;
        Mem::copy(page.data() + inPage, source, piece);
        position += piece;
        source += piece;
        bytes -= piece;
    }
}

void SparseStripe::resize(u64 bytes) {
    _bytes = bytes;
    _pages.erase(_pages.lower_bound(bytes), _pages.end());
}

}  // namespace HiveTest
