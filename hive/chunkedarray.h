#pragma once

#include <array>
#include <memory>

#include "platform/system/heap.h"

namespace Libraries::Files::Hive {

/// An array that grows piece by piece: it never moves an item nor holds itself twice, which matters for hives
/// of many thousand hbins.
template <typename T>
class ChunkedArray {
 public:
    Platform::u32 size() const { return _size; }
    bool empty() const { return _size == 0; }
    /// REQUIRES: index < size().
    T& operator[](Platform::u32 index) { return (*_chunks[index / CHUNK])[index % CHUNK]; }
    const T& operator[](Platform::u32 index) const { return (*_chunks[index / CHUNK])[index % CHUNK]; }

    void push_back(const T& item) {
        if (_size % CHUNK == 0) _chunks.emplace_back(new (Platform::Heap::mustAlloc(sizeof(Chunk))) Chunk());
        (*this)[_size++] = item;
    }

 private:
    static constexpr Platform::u32 CHUNK = 256;
    using Chunk = std::array<T, CHUNK>;
    struct Free {
        void operator()(Chunk* chunk) const {
            static_assert(std::is_trivially_destructible_v<T>);
            Platform::Heap::free(chunk);
        }
    };

    Platform::Array<std::unique_ptr<Chunk, Free>> _chunks;
    Platform::u32 _size = 0;
};

}  // namespace Libraries::Files::Hive
