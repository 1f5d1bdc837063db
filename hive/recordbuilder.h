#pragma once

#include <string_view>

#include "hive/format.h"
#include "platform/system/heap.h"
#include "platform/system/mem.h"

namespace Libraries::Files::Hive {

/// Puts together the body of a record, from the byte behind the size field on, in file byte order.
class RecordBuilder {
 public:
    RecordBuilder() { _bytes.reserve(COMMON_SIZE); }

    /// The body so far.
    const u8* data() const { return _bytes.data(); }
    u32 size() const { return static_cast<u32>(_bytes.size()); }
    /// Length of the whole record, the size field included.
    u32 recordSize() const { return size() + static_cast<u32>(sizeof(hive_record)); }

    void put(const void* bytes, u64 count) {
        const auto* first = static_cast<const u8*>(bytes);
        _bytes.insert(_bytes.end(), first, first + count);
    }
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
    static constexpr u32 COMMON_SIZE = 128;  // most records are no longer

    template <typename T>
    void putField(T value) {
        put(&value, sizeof(value));
    }

    Platform::Array<u8> _bytes;
};

}  // namespace Libraries::Files::Hive
