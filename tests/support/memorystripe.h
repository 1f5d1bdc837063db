#pragma once

#include <string>
#include <vector>

#include "tests/support/teststripe.h"

namespace HiveTest {

/// A byte store in memory. It may grow to 1 GiB unless another limit is set.
class MemoryStripe final : public TestStripe {
 public:
    explicit MemoryStripe(std::vector<u8> bytes = {}, u32 elementSize = 1);
    explicit MemoryStripe(const std::string& text)
        : MemoryStripe(std::vector<u8>(text.begin(), text.end())) {}

    /// The bytes held, to look at or to change behind the reader's back. Positions are not moved.
    std::vector<u8>& bytes() { return _bytes; }
    std::string text() const { return {_bytes.begin(), _bytes.end()}; }

 private:
    u64 byteCount() const override { return _bytes.size(); }
    void load(u64 position, u8* destination, u64 bytes) override;
    void store(u64 position, const u8* source, u64 bytes) override;
    void resize(u64 bytes) override { _bytes.resize(bytes); }

    std::vector<u8> _bytes;
};

}  // namespace HiveTest
