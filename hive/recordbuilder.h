#pragma once

#include <array>
#include <string_view>

#include "hive/format.h"
#include "platform/system/heap.h"
#include "platform/system/mem.h"

namespace Libraries::Files::Hive {

/// Puts together the body of a record, from the byte behind the size field on, in file byte order.
class RecordBuilder {
 public:
    /// The body so far.
    const u8* data() const { return _many.empty() ? _few.data() : _many.data(); }
    u32 size() const { return static_cast<u32>(_size); }
    /// Length of the whole record, the size field included.
    u32 recordSize() const { return size() + static_cast<u32>(sizeof(hive_record)); }

    /// Makes the body longer by `count` bytes, which the caller has to fill in before the next call.
    u8* extend(u64 count) {
        const std::size_t start = _size;
        _size += static_cast<std::size_t>(count);
        if (_many.empty()) {
            if (_size <= _few.size()) return _few.data() + start;
            _many.reserve(2 * _size);
            _many.assign(_few.begin(), _few.begin() + static_cast<std::ptrdiff_t>(start));
        }
        _many.resize(_size);
        return _many.data() + start;
    }
    void put(const void* bytes, u64 count) { Platform::Mem::copy(extend(count), bytes, count); }
    void put16(u16 value) { putField(Platform::HostToL16(value)); }
    void put32(u32 value) { putField(Platform::HostToL32(value)); }
    /// UTF-16LE text.
    void putUnits(std::u16string_view units) {
        if constexpr (Platform::hostIsLittleEndian)
            put(units.data(), units.size() * sizeof(char16_t));
        else
            for (const char16_t unit : units) put16(unit);
    }
    void putSignature(const char* signature) { put(signature, 2); }
    /// A layout structure without its size field; its fields are in file byte order already.
    template <typename Layout>
    void putLayout(const Layout& layout) {
        put(reinterpret_cast<const u8*>(&layout) + sizeof(hive_record), sizeof(layout) - sizeof(hive_record));
    }

 private:
    template <typename T>
    void putField(T value) {
        put(&value, sizeof(value));
    }

    std::size_t _size = 0;
    std::array<u8, 128> _few;  // most records are no longer
    Platform::Array<u8> _many;
};

}  // namespace Libraries::Files::Hive
