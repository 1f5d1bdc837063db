#pragma once

#include "platform/iochar/charwriter.h"

namespace Platform {

/// Prints text and line ends on a `CharWriter`. Not thread-safe.
class PLATFORM_API CharPrinter final : public Object {
 public:
    /// Null for a null writer (0x8445).
    static Ref<CharPrinter> create(Ref<CharWriter> writer);

    void print(std::u16string_view units) { _writer->write(units); }
    void print(const Ref<String>& text) { _writer->write(text->view()); }
    /// As `CharWriter::roomFor`, for text that is better put together in its place.
    char16_t* roomFor(std::size_t count) { return _writer->roomFor(count); }
    void wrote(std::size_t count) { _writer->wrote(count); }
    /// ASCII or ISO 8859-1 text.
    void print(std::string_view text);
    void print(const char* text) { print(std::string_view(text)); }
    /// Ends the line as the writer's line end says.
    void endLine() { _writer->write(_writer->lineEnd() == CharWriter::LineEnd::crLf ? u"\r\n" : u"\n"); }
    bool flush() { return _writer->flush(); }
    bool good() const { return _writer->good(); }

 private:
    template <typename T, typename... Args>
    friend Ref<T> makeRef(Args&&... args);
    explicit CharPrinter(Ref<CharWriter> writer) : _writer(std::move(writer)) {}

    Ref<CharWriter> _writer;
};

}  // namespace Platform
