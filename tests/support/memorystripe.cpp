#include "tests/support/memorystripe.h"

#include "platform/system/mem.h"

namespace HiveTest {

using Platform::Mem;

MemoryStripe::MemoryStripe(std::vector<u8> bytes, u32 elementSize)
    : TestStripe(elementSize, (u64{1} << 30) / elementSize), _bytes(std::move(bytes)) {}

void MemoryStripe::load(u64 position, u8* destination, u64 bytes) {
    Mem::copy(destination, _bytes.data() + position, bytes);
}

void MemoryStripe::store(u64 position, const u8* source, u64 bytes) {
    Mem::copy(_bytes.data() + position, source, bytes);
}

}  // namespace HiveTest
