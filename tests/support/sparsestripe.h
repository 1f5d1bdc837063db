#pragma once

#include <array>
#include <functional>
#include <map>

#include "tests/support/teststripe.h"

namespace HiveTest {

/// A byte store of any claimed size that takes memory only for the pages written to; every other page is made
/// up anew each time it is read.
class SparseStripe final : public TestStripe {
 public:
    static constexpr u64 pageBytes = 4096;
    using Page = std::array<u8, pageBytes>;
    /// Fills the page at this byte position (a multiple of 4096); the page comes zeroed.
    using Generator = std::function<void(u64 position, Page& page)>;

    SparseStripe(u64 bytes, Generator generator);

    u64 keptPages() const { return _pages.size(); }

 private:
    Page pageAt(u64 position) const;

    u64 byteCount() const override { return _bytes; }
    void load(u64 position, u8* destination, u64 bytes) override;
    void store(u64 position, const u8* source, u64 bytes) override;
    void resize(u64 bytes) override;

    u64 _bytes;
    Generator _generator;
    std::map<u64, Page> _pages;  // by page position
};

}  // namespace HiveTest
