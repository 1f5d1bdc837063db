#pragma once

#include <string>
#include <string_view>

#include "platform/interfaces/stripe.h"
#include "platform/system/string.h"

namespace Platform {

/// Buffers UTF-16 units on their way to a stream whose elements are units (element size 2) or UTF-8 bytes
/// (element size 1). A failed write is remembered: everything after it is dropped and `good()` stays false.
///
/// Not thread-safe: one writer is for one user at a time.
class PLATFORM_API CharWriter final : public Object {
 public:
    /// How `endLine` of a printer ends lines.
    enum class LineEnd { crLf, lf };

    /// Buffers `bufferUnits` units (0: a default of 8192). Null for a null stream (0x8445) or one whose
    /// elements are of another size (0x10002).
    static Ref<CharWriter> create(Ref<Interfaces::Stream> stream, u32 bufferUnits,
                                  LineEnd lineEnd = LineEnd::crLf);
    ~CharWriter() override;

    void write(std::u16string_view units) {
        if (units.size() >= _room.size() - _used) return writeThrough(units);
        units.copy(_room.data() + _used, units.size());
        _used += units.size();
    }
    /// Room for `count` units, to be filled in and taken by `wrote`; null when the buffer is too full, or too
    /// small, for them. Valid until the next call.
    char16_t* roomFor(std::size_t count) {
        return count < _room.size() - _used ? _room.data() + _used : nullptr;
    }
    void wrote(std::size_t count) { _used += count; }
    /// Hands the buffered units to the stream. Returns `good()`.
    bool flush();
    bool good() const { return _good; }
    LineEnd lineEnd() const { return _lineEnd; }

 private:
    void writeThrough(std::u16string_view units);
    void makeRoom(std::size_t wanted);
    void dropAll();
    std::u16string_view buffered() const { return {_room.data(), _used}; }
    template <typename T, typename... Args>
    friend Ref<T> makeRef(Args&&... args);
    CharWriter(Ref<Interfaces::Stream> stream, u32 bufferUnits, LineEnd lineEnd);

    Ref<Interfaces::Stream> _stream;
    std::size_t _capacity;
    LineEnd _lineEnd;
    bool _good = true;
    Array<char16_t> _room;  // the buffer as far as it was needed yet; none when not good
    std::size_t _used = 0;  // units in it, fewer than fit
};

}  // namespace Platform
