#pragma once

#include <string>

#include "platform/interfaces/stripe.h"
#include "platform/system/string.h"

namespace Platform {

/// Reads UTF-16 units, buffered, from a stream with element size 2. Not thread-safe.
class PLATFORM_API CharReader final : public Object {
 public:
    /// Buffers `bufferUnits` units (0: a default of 8192). Null for a null stream (0x8445) or another element
    /// size (0x10002).
    static Ref<CharReader> create(Ref<Interfaces::Stream> stream, u32 bufferUnits);

    /// The next unit; false at the end or when the stream fails.
    bool next(char16_t& unit) {
        if (_position == _buffer.size() && !fill()) return false;
        unit = _buffer[_position++];
        return true;
    }
    /// The next unit without taking it.
    bool peek(char16_t& unit) {
        if (_position == _buffer.size() && !fill()) return false;
        unit = _buffer[_position];
        return true;
    }
    /// The units at hand, at least one: for looking at many at once. Empty at the end or when the stream
    /// fails. Valid until the next call.
    std::u16string_view ahead() {
        if (_position == _buffer.size() && !fill()) return {};
        return std::u16string_view(_buffer).substr(_position);
    }
    /// Takes `count` of the units that `ahead` gave.
    void take(std::size_t count) { _position += count; }
    /// Whether the stream failed (it set an error code), as opposed to having come to its end.
    bool failed() const { return _failed; }

    /// The number of the line being read, from 1, as whoever splits the text into lines keeps it; 0 before
    /// the first.
    u64 line() const { return _line; }
    void setLine(u64 line) { _line = line; }

 private:
    template <typename T, typename... Args>
    friend Ref<T> makeRef(Args&&... args);
    CharReader(Ref<Interfaces::Stream> stream, u32 bufferUnits);
    bool fill();

    Ref<Interfaces::Stream> _stream;
    std::size_t _capacity;
    std::size_t _position = 0;
    u64 _line = 0;
    bool _failed = false;
    Utf16Buffer _buffer;
};

}  // namespace Platform
