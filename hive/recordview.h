#pragma once

#include <algorithm>
#include <array>
#include <cstring>

#include "hive/format.h"
#include "platform/system/heap.h"
#include "platform/system/mem.h"

namespace Libraries::Files::Hive {

/// A pointer to a record's bytes in the cache, from its size field on; null when the record could not be
/// loaded. It knows how far the mapped cache reaches behind it: whatever is read behind that end is 0, so
/// that no rule that looks past a record's end can leave the cache.
///
/// Valid only until the next store operation, which may move or drop what is cached: copy what is needed.
class RecordView {
 public:
    RecordView() = default;
    RecordView(const u8* data, u64 mapped) : _data(data), _mapped(mapped) {}

    explicit operator bool() const { return _data != nullptr; }

    /// The size field: negative for a used cell.
    s32 size() const { return static_cast<s32>(u32At(0)); }
    /// The cell's length in bytes whichever its sign.
    u32 absoluteSize() const { return size() < 0 ? 0U - u32At(0) : u32At(0); }
    /// The negated size field as an unsigned number: the length of a used cell, huge for a free one.
    u32 usedSize() const { return 0U - u32At(0); }

    u16 u16At(u64 offset) const { return Platform::L16ToHost(valueAt<u16>(offset)); }
    u32 u32At(u64 offset) const { return Platform::L32ToHost(valueAt<u32>(offset)); }
    /// The head of the record as a layout structure, fields in file byte order.
    template <typename Layout>
    Layout as() const {
        return valueAt<Layout>(0);
    }
    /// The two bytes behind the size field, and whether they are these.
    Platform::CharBuffer signature() const {
        char text[2];
        copy(text, sizeof(u32), sizeof(text));
        return {text, sizeof(text)};
    }
    bool isOf(const char* signature) const {
        const auto bytes = valueAt<std::array<char, 2>>(sizeof(u32));
        return bytes[0] == signature[0] && bytes[1] == signature[1];
    }
    /// The bytes from `offset` on when there are `count` of them in the mapped cache, else null.
    const u8* bytesAt(u64 offset, u64 count) const {
        return offset <= _mapped && _mapped - offset >= count ? _data + offset : nullptr;
    }
    /// Copies `count` bytes from `offset` on, zeros for those behind the mapped cache.
    void copy(void* destination, u64 offset, u64 count) const {
        const u64 inside = offset < _mapped ? std::min(count, _mapped - offset) : 0;
        if (inside) Platform::Mem::copy(destination, _data + offset, inside);
        Platform::Mem::fill8(static_cast<u8*>(destination) + inside, 0, count - inside);
    }

 private:
    template <typename T>
    T valueAt(u64 offset) const {
        T value;
        if (offset <= _mapped && _mapped - offset >= sizeof(value)) [[likely]]
            std::memcpy(&value, _data + offset, sizeof(value));
        else
            copy(&value, offset, sizeof(value));
        return value;
    }

    const u8* _data = nullptr;
    u64 _mapped = 0;
};

}  // namespace Libraries::Files::Hive
