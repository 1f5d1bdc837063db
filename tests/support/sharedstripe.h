#pragma once

#include <vector>

#include "platform/system/mem.h"
#include "tests/support/teststripe.h"

namespace HiveTest {

/// A byte store in memory that child processes share: what a child has written is there when it has ended.
class SharedStripe final : public TestStripe {
 public:
    explicit SharedStripe(const std::vector<u8>& bytes, u64 room = u64{16} << 20)
        : TestStripe(1, room), _memory(Platform::ShMem::create(sizeof(u64) + room)) {
        resize(bytes.size());
        store(0, bytes.data(), bytes.size());
    }
    std::vector<u8> bytes() const { return {at(0), at(byteCount())}; }

 private:
    u8* at(u64 position) const { return _memory->address() + sizeof(u64) + position; }
    u64& count() const { return *reinterpret_cast<u64*>(_memory->address()); }
    u64 byteCount() const override { return count(); }
    void load(u64 position, u8* destination, u64 bytes) override {
        Platform::Mem::copy(destination, at(position), bytes);
    }
    void store(u64 position, const u8* source, u64 bytes) override {
        Platform::Mem::copy(at(position), source, bytes);
    }
    void resize(u64 bytes) override {
        if (bytes > count()) Platform::Mem::fill8(at(count()), 0, bytes - count());
        count() = bytes;
    }

    Ref<Platform::SharedMemory> _memory;
};

}  // namespace HiveTest
