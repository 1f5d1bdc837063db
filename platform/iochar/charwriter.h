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
        if (_good && units.size() < _capacity - _buffer.size())
            _buffer.append(units);
        else
            writeThrough(units);
    }
    /// Hands the buffered units to the stream. Returns `good()`.
    bool flush();
    bool good() const { return _good; }
    LineEnd lineEnd() const { return _lineEnd; }

 private:
    void writeThrough(std::u16string_view units);
    template <typename T, typename... Args>
    friend Ref<T> makeRef(Args&&... args);
    CharWriter(Ref<Interfaces::Stream> stream, u32 bufferUnits, LineEnd lineEnd);

    Ref<Interfaces::Stream> _stream;
    std::size_t _capacity;
    LineEnd _lineEnd;
    bool _good = true;
    Utf16Buffer _buffer;
};

}  // namespace Platform
