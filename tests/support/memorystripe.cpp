#include "tests/support/memorystripe.h"

#include "platform/system/mem.h"

namespace HiveTest {

using Platform::Mem;

MemoryStripe::MemoryStripe(std::vector<u8> bytes, u32 elementSize)
    : TestStripe(elementSize, (u64{1} << 30) / elementSize), _bytes(std::move(bytes)) {}

u64 MemoryStripe::readAt(u64 position, Interfaces::ShPtr destination, u64 count) {
    if (position > _bytes.size() || count > _bytes.size() - position) return 0;
    load(position, destination.address(), count);
    ++counters.reads;
    counters.bytesRead += count;
    return count;
}

void MemoryStripe::load(u64 position, u8* destination, u64 bytes) {
    Mem::copy(destination, _bytes.data() + position, bytes);
}

void MemoryStripe::store(u64 position, const u8* source, u64 bytes) {
    Mem::copy(_bytes.data() + position, source, bytes);
}

SparseStripe::SparseStripe(u64 bytes, Generator generator)
    : TestStripe(1, u64{1} << 40), _bytes(bytes), _generator(std::move(generator)) {}

void SparseStripe::load(u64 position, u8* destination, u64 bytes) {
    while (bytes) {
        const u64 inPage = position % 4096, piece = std::min(bytes, 4096 - inPage);
        Page page(4096);
        _generator(position - inPage, page);
        Mem::copy(destination, page.data() + inPage, piece);
        position += piece;
        destination += piece;
        bytes -= piece;
    }
}

}  // namespace HiveTest
