#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/support/teststripe.h"

namespace HiveTest {

/// A byte store in memory. It may grow to 1 GiB unless another limit is set.
class MemoryStripe : public TestStripe {
 public:
    explicit MemoryStripe(std::vector<u8> bytes = {}, u32 elementSize = 1);
    explicit MemoryStripe(const std::string& text)
        : MemoryStripe(std::vector<u8>(text.begin(), text.end())) {}

    /// The bytes held, to look at or to change behind the reader's back. Positions are not moved.
    std::vector<u8>& bytes() { return _bytes; }
    std::string text() const { return {_bytes.begin(), _bytes.end()}; }
    u64 readAt(u64 position, Interfaces::ShPtr destination, u64 count) override;

 protected:
    void store(u64 position, const u8* source, u64 bytes) override;

 private:
    u64 byteCount() const override { return _bytes.size(); }
    void load(u64 position, u8* destination, u64 bytes) override;
    void resize(u64 bytes) override { _bytes.resize(bytes); }

    std::vector<u8> _bytes;
};

/// A byte store of any claimed size that takes no memory: every page of 4096 bytes is made up anew each time
/// it is read, and what is written is gone.
class SparseStripe final : public TestStripe {
 public:
    using Page = std::vector<u8>;
    /// Fills the page at this byte position; the page comes zeroed.
    using Generator = std::function<void(u64 position, Page& page)>;

    explicit SparseStripe(u64 bytes, Generator generator = {});

 private:
    u64 byteCount() const override { return _bytes; }
    void load(u64 position, u8* destination, u64 bytes) override;
    void store(u64, const u8*, u64) override {}
    void resize(u64 bytes) override { _bytes = bytes; }

    u64 _bytes;
    Generator _generator;
};

}  // namespace HiveTest
